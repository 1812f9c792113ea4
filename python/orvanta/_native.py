"""The kit's C interface (orvanta/orvanta.h) through ctypes: finding and loading the library, the
functions' prototypes, and C statuses turned into exceptions."""

from __future__ import annotations

import ctypes
import ctypes.util
import os
import threading
from enum import IntEnum
from typing import Iterator, Optional

#: The C ABI this package is written for: the number in the library's soname.
ABI_VERSION = 0
SONAME = f"liborvanta.so.{ABI_VERSION}"


class Status(IntEnum):
    """What a call into the kit answered (orvanta_status)."""

    OK = 0
    INVALID_ARGUMENT = 1
    REFUSED = 2
    TOO_LATE = 3
    OUT_OF_MEMORY = 4
    INTERNAL = 5


class OrvantaError(Exception):
    """A call the kit refused or could not do; `status` says which kind, the text why."""

    def __init__(self, status: Status, message: str) -> None:
        super().__init__(message)
        self.status = status


# Callbacks, as orvanta.h declares them. ctypes takes the GIL before running one.
RELEASE_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p)
USER_INFO_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p)
ACTION_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p, ctypes.c_char_p)
UNREACHED_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p)
TOKEN_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p)
FAILURE_FN = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p)
#: A NULL release function: the package's handlers need none.
NO_RELEASE = RELEASE_FN()

_status = ctypes.c_int
_text = ctypes.c_char_p
_handle = ctypes.c_void_p
_owned = ctypes.c_void_p  # text the caller frees with orvanta_string_free
_out = ctypes.POINTER(ctypes.c_void_p)

_PROTOTYPES = {
    "orvanta_last_error": (_text, []),
    "orvanta_string_free": (None, [_owned]),
    "orvanta_version": (_text, []),
    "orvanta_abi_version": (ctypes.c_int, []),
    "orvanta_platform_options_new": (_handle, []),
    "orvanta_platform_options_free": (None, [_handle]),
    "orvanta_platform_options_set_application_name": (_status, [_handle, _text]),
    "orvanta_platform_options_set_bundle_directory": (_status, [_handle, _text]),
    "orvanta_platform_options_set_data_directory": (_status, [_handle, _text]),
    "orvanta_platform_options_set_preferences_file": (_status, [_handle, _text]),
    "orvanta_platform_options_set_kit_resources_directory": (_status, [_handle, _text]),
    "orvanta_platform_options_set_application_id": (_status, [_handle, _text]),
    "orvanta_platform_options_set_push_distributor": (_status, [_handle, _text]),
    "orvanta_platform_options_add_language": (_status, [_handle, _text]),
    "orvanta_platform_options_set_event_durability": (_status, [_handle, ctypes.c_int]),
    "orvanta_platform_options_set_vapid_public_key": (_status, [_handle, _text]),
    "orvanta_platform_options_set_accept_plain_push_messages": (_status, [_handle, ctypes.c_bool]),
    "orvanta_platform_options_set_desktop_entry": (_status, [_handle, _text]),
    "orvanta_platform_options_set_resident_notifications": (_status, [_handle, ctypes.c_bool]),
    "orvanta_install_linux_platform": (_status, [_handle]),
    "orvanta_set_service_base_urls": (_status, [_text, _text]),
    "orvanta_reset_service_base_urls": (None, []),
    "orvanta_configure": (_status, [ctypes.c_bool]),
    "orvanta_set_logging_enabled": (None, [ctypes.c_bool]),
    "orvanta_post_lifecycle_event": (_status, [ctypes.c_int]),
    "orvanta_post_will_suspend": (None, []),
    "orvanta_parameters_new": (_handle, []),
    "orvanta_parameters_free": (None, [_handle]),
    "orvanta_parameters_set_string": (_status, [_handle, _text, _text]),
    "orvanta_parameters_set_integer": (_status, [_handle, _text, ctypes.c_int64]),
    "orvanta_parameters_set_double": (_status, [_handle, _text, ctypes.c_double]),
    "orvanta_parameters_set_boolean": (_status, [_handle, _text, ctypes.c_bool]),
    "orvanta_parameters_set_date": (_status, [_handle, _text, ctypes.c_double]),
    "orvanta_parameters_count": (ctypes.c_size_t, [_handle]),
    "orvanta_parameters_key": (_text, [_handle, ctypes.c_size_t]),
    "orvanta_parameters_kind": (ctypes.c_int, [_handle, ctypes.c_size_t]),
    "orvanta_parameters_string": (_text, [_handle, ctypes.c_size_t]),
    "orvanta_parameters_integer": (ctypes.c_int64, [_handle, ctypes.c_size_t]),
    "orvanta_parameters_double": (ctypes.c_double, [_handle, ctypes.c_size_t]),
    "orvanta_parameters_boolean": (ctypes.c_bool, [_handle, ctypes.c_size_t]),
    "orvanta_parameters_date": (ctypes.c_double, [_handle, ctypes.c_size_t]),
    "orvanta_analytics_track_event": (_status, [_text, _handle]),
    "orvanta_flush": (ctypes.c_size_t, [ctypes.c_uint32]),
    "orvanta_health_json": (_status, [_out]),
    "orvanta_user_set": (_status, [ctypes.c_int, _text]),
    "orvanta_user_get": (_status, [ctypes.c_int, _out]),
    "orvanta_user_set_custom_parameters": (_status, [_handle]),
    "orvanta_user_custom_parameters": (_status, [_out]),
    "orvanta_user_save": (_status, []),
    "orvanta_user_remove": (_status, []),
    "orvanta_push_register": (_status, []),
    "orvanta_push_unregister": (_status, []),
    "orvanta_push_did_register": (_status, [ctypes.c_char_p, ctypes.c_size_t]),
    "orvanta_push_did_fail_to_register": (_status, [_text]),
    "orvanta_deliver_remote_notification": (_status, [_text]),
    "orvanta_push_did_receive_response": (_status, [_text, _text]),
    "orvanta_push_delegate_new": (_handle, [ctypes.c_void_p, RELEASE_FN]),
    "orvanta_push_delegate_on_receive": (None, [_handle, USER_INFO_FN]),
    "orvanta_push_delegate_on_open": (None, [_handle, USER_INFO_FN]),
    "orvanta_push_delegate_on_action": (None, [_handle, ACTION_FN]),
    "orvanta_push_delegate_on_unreached": (None, [_handle, UNREACHED_FN]),
    "orvanta_push_delegate_free": (None, [_handle]),
    "orvanta_push_set_delegate": (_status, [_handle]),
    "orvanta_completion_complete": (None, [_handle, ctypes.c_bool]),
    "orvanta_registration_observer_new": (_handle, [ctypes.c_void_p, RELEASE_FN]),
    "orvanta_registration_observer_on_token": (None, [_handle, TOKEN_FN]),
    "orvanta_registration_observer_on_registered": (None, [_handle, TOKEN_FN]),
    "orvanta_registration_observer_on_failed": (None, [_handle, FAILURE_FN]),
    "orvanta_registration_observer_free": (None, [_handle]),
    "orvanta_push_set_registration_observer": (_status, [_handle]),
}

_lock = threading.Lock()
_library: Optional[ctypes.CDLL] = None
_explicit_path: Optional[str] = None


def use_library(path: str) -> None:
    """Loads the kit from `path` instead of looking for it. Only before the first call into the
    kit; afterwards the library in use stays."""
    global _explicit_path
    with _lock:
        if _library is not None:
            raise OrvantaError(Status.TOO_LATE, "the kit's library is already loaded")
        _explicit_path = os.fspath(path)


def _candidates() -> Iterator[tuple[str, bool]]:
    """Where to look, in order, and whether that place must have it: an explicit path, then
    $ORVANTA_LIBRARY, then the system's library search (ldconfig's cache, LD_LIBRARY_PATH)."""
    if _explicit_path:
        yield _explicit_path, True
    from_environment = os.environ.get("ORVANTA_LIBRARY")
    if from_environment:
        yield from_environment, True
    found = ctypes.util.find_library("orvanta")
    if found:
        yield found, False
    yield SONAME, False


def _load() -> ctypes.CDLL:
    tried = []
    for path, required in _candidates():
        try:
            library = ctypes.CDLL(path)
        except OSError as error:
            if required:
                raise OrvantaError(
                    Status.INVALID_ARGUMENT, f"can't load the kit from {path}: {error}"
                )
            tried.append(f"{path} ({error})")
            continue
        try:
            abi = library.orvanta_abi_version
        except AttributeError:
            raise OrvantaError(
                Status.INVALID_ARGUMENT, f"{path} has no C interface (orvanta_abi_version)"
            )
        abi.restype = ctypes.c_int
        abi.argtypes = []
        if abi() != ABI_VERSION:
            raise OrvantaError(
                Status.INVALID_ARGUMENT,
                f"{path} has C ABI {abi()}, this package needs {ABI_VERSION}",
            )
        for name, (restype, argtypes) in _PROTOTYPES.items():
            function = getattr(library, name)
            function.restype = restype
            function.argtypes = argtypes
        return library
    raise OrvantaError(
        Status.INVALID_ARGUMENT,
        "the kit's library was not found; set ORVANTA_LIBRARY to its path, call "
        "orvanta.use_library(path), or install it where the system finds it. Tried: "
        + "; ".join(tried),
    )


def lib() -> ctypes.CDLL:
    """The loaded library, loading it on first use. Any thread."""
    global _library
    if _library is None:
        with _lock:
            if _library is None:
                _library = _load()
    return _library


def is_loaded() -> bool:
    return _library is not None


def check(status: int) -> None:
    """Raises `OrvantaError` for a failed call; call it on the thread that made the call."""
    if status != Status.OK:
        message = lib().orvanta_last_error()
        raise OrvantaError(Status(status), message.decode("utf-8", "replace") if message else "")


def text(value: str, what: str) -> bytes:
    """`value` as the UTF-8 text the C interface takes."""
    if not isinstance(value, str):
        raise TypeError(f"{what} must be a str, not {type(value).__name__}")
    if "\0" in value:
        raise ValueError(f"{what} contains a NUL character")
    return value.encode("utf-8")


def take_text(pointer: Optional[int]) -> Optional[str]:
    """Text the kit handed over (a `char*` the caller owns), freed once read."""
    if not pointer:
        return None
    try:
        return ctypes.string_at(pointer).decode("utf-8", "replace")
    finally:
        lib().orvanta_string_free(pointer)

