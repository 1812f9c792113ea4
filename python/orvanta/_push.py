"""The push facade: registration, pushes handed over by the host, and the host's handlers.

Handlers are plain attributes (`orvanta.push.on_open = callable`). The kit calls them on its main
queue, a thread of its own: ctypes takes the GIL for each call. A handler that raises has its
traceback printed once on standard error and the kit goes on. Setting a handler installs, in the
C interface, a delegate (or registration observer) with exactly the handlers that are set, since
a handler set means the host handles that moment and the kit does not; once the new one is
installed, no call reaches the handlers it replaced.
"""

from __future__ import annotations

import atexit
import json
import sys
import threading
import traceback
from typing import Any, Callable, Dict, Mapping, Optional, Union

from . import _native
from ._native import ACTION_FN, FAILURE_FN, TOKEN_FN, UNREACHED_FN, USER_INFO_FN, check, lib, text

UserInfo = Dict[str, Any]


class Completion:
    """The host's answer to a missed push offered to `on_unreached`: call it once, now or later,
    from any thread, with True when the host showed the push (which reports it seen). Dropped
    without being called, it answers False."""

    def __init__(self, handle: int) -> None:
        self._handle: Optional[int] = handle
        self._lock = threading.Lock()

    def __call__(self, displayed: bool = True) -> None:
        with self._lock:
            handle, self._handle = self._handle, None
        if handle:
            lib().orvanta_completion_complete(handle, bool(displayed))

    def __del__(self) -> None:
        try:
            if self._handle and _native.is_loaded():
                self(False)
        except Exception:  # noqa: BLE001 - the interpreter may be going away
            pass


_DELEGATE_HANDLERS = ("on_receive", "on_open", "on_action", "on_unreached")
_OBSERVER_HANDLERS = ("on_token", "on_registered", "on_registration_failed")


def _user_info(raw: Optional[bytes]) -> UserInfo:
    return json.loads(raw.decode("utf-8", "replace")) if raw else {}


def _text_or_none(raw: Optional[bytes]) -> Optional[str]:
    return raw.decode("utf-8", "replace") if raw is not None else None


def _handler(name: str) -> property:
    """A handler attribute of `Push`: setting it installs the handlers anew."""

    def get(self: "Push") -> Optional[Callable[..., Any]]:
        return self._handlers[name]

    def set(self: "Push", handler: Optional[Callable[..., Any]]) -> None:
        if handler is not None and not callable(handler):
            raise TypeError(f"{name} must be callable or None")
        group = "delegate" if name in _DELEGATE_HANDLERS else "observer"
        with self._lock:
            self._handlers[name] = handler
            self._changes[group] += 1
        self._install(group)

    return property(get, set, doc=f"The {name} handler, or None.")


class Push:
    """`orvanta.push`. Every member may be called from any thread.

    Handlers, each optional (None: not set), all called on the kit's main queue:
      on_receive(user_info)             a push arrived while the application is in front
      on_open(user_info)                the user tapped one of the kit's notifications; the host
                                        navigates, the kit performs no action of its own
      on_action(identifier, user_info)  the user tapped one of its buttons (its whole identifier,
                                        "ORVANTA_PUSH_ACTION_ACCEPT" say)
      on_unreached(user_info, complete) the push the user missed, as the application comes to the
                                        front: the host shows it and calls complete(True)
      on_token(token)                   the push transport gave a token (lower-case hex)
      on_registered(token)              the service accepted the device (token, or None before one)
      on_registration_failed(reason)    registration failed; the kit tries again every 60 seconds
    """

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._handlers: Dict[str, Optional[Callable[..., Any]]] = {
            name: None for name in _DELEGATE_HANDLERS + _OBSERVER_HANDLERS
        }
        self._changes = {"delegate": 0, "observer": 0}

    on_receive = _handler("on_receive")
    on_open = _handler("on_open")
    on_action = _handler("on_action")
    on_unreached = _handler("on_unreached")
    on_token = _handler("on_token")
    on_registered = _handler("on_registered")
    on_registration_failed = _handler("on_registration_failed")

    def _install(self, group: str) -> None:
        """Installs the delegate or observer with the handlers set now. The C call may wait for a
        handler still running, so no lock is held across it; whoever changed a handler meanwhile
        has it installed again, so the last installation is the latest."""
        while True:
            with self._lock:
                changes = self._changes[group]
                names = _DELEGATE_HANDLERS if group == "delegate" else _OBSERVER_HANDLERS
                present = {name for name in names if self._handlers[name] is not None}
            if group == "delegate":
                _install_delegate(present)
            else:
                _install_observer(present)
            with self._lock:
                if self._changes[group] == changes:
                    return

    def _deliver(self, name: str, *arguments: Any) -> None:
        handler = self._handlers.get(name)
        if handler is None:
            return
        try:
            handler(*arguments)
        except BaseException:  # noqa: B902 - nothing may unwind into the kit's thread
            sys.stderr.write(f"orvanta: the push handler {name} raised; the kit goes on:\n")
            traceback.print_exc()
            sys.stderr.flush()

    # --- Registration ------------------------------------------------------------------------

    def register(self) -> None:
        """Asks permission and registers for remote notifications (on Linux with the UnifiedPush
        distributor, under the platform's application id); `on_registration_failed` hears why
        when it fails."""
        check(lib().orvanta_push_register())

    def unregister(self) -> None:
        check(lib().orvanta_push_unregister())

    def did_register(self, token: bytes) -> None:
        """The host's own push transport gave this token (1 to 4096 bytes)."""
        if not isinstance(token, (bytes, bytearray, memoryview)):
            raise TypeError("token must be bytes")
        data = bytes(token)
        check(lib().orvanta_push_did_register(data, len(data)))

    def did_fail_to_register(self, reason: str) -> None:
        """The host's own push transport could not give a token."""
        check(lib().orvanta_push_did_fail_to_register(text(reason, "reason")))

    def did_receive_response(
        self, user_info: Union[Mapping[str, Any], str], action: Optional[str] = None
    ) -> None:
        """The user acted on a notification the host showed itself: `action` is the button's
        identifier, None for a tap on the body."""
        identifier = text(action, "action") if action is not None else None
        check(lib().orvanta_push_did_receive_response(payload_json(user_info), identifier))


def payload_json(payload: Union[Mapping[str, Any], str]) -> bytes:
    """A push (a mapping, or its JSON text) as the JSON text the C interface takes."""
    if isinstance(payload, str):
        return text(payload, "the push")
    if not isinstance(payload, Mapping):
        raise TypeError(f"a push is a mapping or JSON text, not {type(payload).__name__}")
    return json.dumps(payload, ensure_ascii=False, allow_nan=False).encode("utf-8")


push = Push()


# --- Trampolines: the C callbacks, one of each kind, alive as long as the module --------------


@USER_INFO_FN
def _on_receive(_user_data: Any, user_info: Optional[bytes]) -> None:
    push._deliver("on_receive", _user_info(user_info))


@USER_INFO_FN
def _on_open(_user_data: Any, user_info: Optional[bytes]) -> None:
    push._deliver("on_open", _user_info(user_info))


@ACTION_FN
def _on_action(_user_data: Any, identifier: Optional[bytes], user_info: Optional[bytes]) -> None:
    push._deliver("on_action", _text_or_none(identifier), _user_info(user_info))


@UNREACHED_FN
def _on_unreached(_user_data: Any, user_info: Optional[bytes], completion: Optional[int]) -> None:
    # Dropped unanswered (no handler any more, or one that kept no hold of it), it answers False.
    push._deliver("on_unreached", _user_info(user_info), Completion(completion or 0))


@TOKEN_FN
def _on_token(_user_data: Any, token: Optional[bytes]) -> None:
    push._deliver("on_token", _text_or_none(token))


@TOKEN_FN
def _on_registered(_user_data: Any, token: Optional[bytes]) -> None:
    push._deliver("on_registered", _text_or_none(token))


@FAILURE_FN
def _on_failed(_user_data: Any, description: Optional[bytes]) -> None:
    push._deliver("on_registration_failed", _text_or_none(description))


_DELEGATE_SETTERS = {
    "on_receive": ("orvanta_push_delegate_on_receive", _on_receive),
    "on_open": ("orvanta_push_delegate_on_open", _on_open),
    "on_action": ("orvanta_push_delegate_on_action", _on_action),
    "on_unreached": ("orvanta_push_delegate_on_unreached", _on_unreached),
}
_OBSERVER_SETTERS = {
    "on_token": ("orvanta_registration_observer_on_token", _on_token),
    "on_registered": ("orvanta_registration_observer_on_registered", _on_registered),
    "on_registration_failed": ("orvanta_registration_observer_on_failed", _on_failed),
}


def _install_delegate(present: set) -> None:
    library = lib()
    if not present:
        check(library.orvanta_push_set_delegate(None))
        return
    delegate = library.orvanta_push_delegate_new(None, _native.NO_RELEASE)
    if not delegate:
        raise MemoryError("orvanta_push_delegate_new")
    try:
        for name in present:
            setter, trampoline = _DELEGATE_SETTERS[name]
            getattr(library, setter)(delegate, trampoline)
        check(library.orvanta_push_set_delegate(delegate))
    finally:
        library.orvanta_push_delegate_free(delegate)  # the kit holds it from here


def _install_observer(present: set) -> None:
    library = lib()
    if not present:
        check(library.orvanta_push_set_registration_observer(None))
        return
    observer = library.orvanta_registration_observer_new(None, _native.NO_RELEASE)
    if not observer:
        raise MemoryError("orvanta_registration_observer_new")
    try:
        for name in present:
            setter, trampoline = _OBSERVER_SETTERS[name]
            getattr(library, setter)(observer, trampoline)
        check(library.orvanta_push_set_registration_observer(observer))
    finally:
        library.orvanta_registration_observer_free(observer)


@atexit.register
def _let_go() -> None:
    """Before the interpreter goes: no handler may be called once Python can't run it. Waits for
    a handler still running (the C calls let go of the GIL meanwhile)."""
    if not _native.is_loaded():
        return
    library = lib()
    library.orvanta_push_set_delegate(None)
    library.orvanta_push_set_registration_observer(None)
