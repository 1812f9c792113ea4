"""The Orvanta kit from Python: push messaging and analytics over liborvanta.so.0's C interface.

Once, at start-up, before any other call into the kit::

    import orvanta
    orvanta.install_platform(bundle_directory="/opt/myapp/resources",   # OrvantaConfig.plist
                             application_id="com.example.Shop")
    orvanta.configure(logging=True)

Then::

    orvanta.push.on_open = lambda user_info: print("opened", user_info)
    orvanta.push.register()
    orvanta.user.email = "ann@example.com"
    orvanta.user.save()
    orvanta.analytics.track_event("purchase", {"sku": "A-1", "qty": 2, "when": datetime.now()})
    left = orvanta.flush(timeout=10)       # a command-line program's last call

The library is found through `use_library(path)`, else $ORVANTA_LIBRARY, else the system's
library search (liborvanta.so.0). Every function may be called from any thread; none blocks on
the network but `flush`. Failures the kit refuses raise `OrvantaError` (its `status` says which
kind); wrong Python types raise `TypeError`. No failure of the kit's own work (a post refused, the
disk full) reaches Python: the kit logs it and tries again.
"""

from __future__ import annotations

import ctypes
import json
from enum import IntEnum
from typing import Any, Dict, Iterable, Mapping, Optional, Union

from ._native import ABI_VERSION, OrvantaError, Status, check, lib, take_text, text, use_library
from ._parameters import Parameters, ParameterValue, read
from ._push import Completion, Push, payload_json, push

__all__ = [
    "ABI_VERSION",
    "Analytics",
    "Completion",
    "LifecycleEvent",
    "OrvantaError",
    "Push",
    "Status",
    "User",
    "analytics",
    "configure",
    "deliver_remote_notification",
    "flush",
    "health",
    "install_platform",
    "post_lifecycle_event",
    "post_will_suspend",
    "push",
    "reset_service_base_urls",
    "set_logging_enabled",
    "set_service_base_urls",
    "use_library",
    "user",
    "version",
]

__version__ = "0.1.0"


def version() -> str:
    """The version of the kit's library in use ("0.1.0")."""
    return lib().orvanta_version().decode()


# --- Start-up --------------------------------------------------------------------------------


def install_platform(
    *,
    bundle_directory: Optional[str] = None,
    data_directory: Optional[str] = None,
    application_name: Optional[str] = None,
    preferences_file: Optional[str] = None,
    kit_resources_directory: Optional[str] = None,
    application_id: Optional[str] = None,
    push_distributor: Optional[str] = None,
    languages: Iterable[str] = (),
    full_durability: bool = False,
    vapid_public_key: Optional[str] = None,
    accept_plain_push_messages: bool = False,
    desktop_entry: Optional[str] = None,
    resident_notifications: bool = False,
) -> None:
    """Installs the Linux platform for the whole process. First, before any other call into the
    kit: its first use binds the platform in force, and a later call raises `OrvantaError` with
    status TOO_LATE. Anything left None takes its default:

    bundle_directory         where OrvantaConfig.plist is (default: the executable's folder)
    data_directory           event database and key store ($XDG_DATA_HOME/<application name>)
    application_name         folder name under the XDG directories (the executable's name)
    preferences_file         ($XDG_CONFIG_HOME/<application name>/preferences.json)
    kit_resources_directory  the kit's string tables (its installed share/orvanta folder)
    application_id           reverse-DNS id under which pushes arrive over UnifiedPush
    push_distributor         the distributor when the user named none
    languages                of the kit's texts, most wanted first (default: the user's)
    full_durability          sync the disk at every tracked event (survives a power cut)
    vapid_public_key         the service's VAPID key, so that only its pushes reach the endpoint
    accept_plain_push_messages  take pushes in clear too (default off: only encrypted ones)
    desktop_entry            named in notifications (default: the application id; "": none)
    resident_notifications   notifications stay on screen once handled (default: closed)
    """
    library = lib()
    options = library.orvanta_platform_options_new()
    if not options:
        raise MemoryError("orvanta_platform_options_new")
    try:
        for setter, value, what in (
            ("orvanta_platform_options_set_bundle_directory", bundle_directory, "bundle_directory"),
            ("orvanta_platform_options_set_data_directory", data_directory, "data_directory"),
            ("orvanta_platform_options_set_application_name", application_name, "application_name"),
            ("orvanta_platform_options_set_preferences_file", preferences_file, "preferences_file"),
            (
                "orvanta_platform_options_set_kit_resources_directory",
                kit_resources_directory,
                "kit_resources_directory",
            ),
            ("orvanta_platform_options_set_application_id", application_id, "application_id"),
            ("orvanta_platform_options_set_push_distributor", push_distributor, "push_distributor"),
            ("orvanta_platform_options_set_vapid_public_key", vapid_public_key, "vapid_public_key"),
            ("orvanta_platform_options_set_desktop_entry", desktop_entry, "desktop_entry"),
        ):
            if value is not None:
                check(getattr(library, setter)(options, text(str(value), what)))
        if isinstance(languages, str):
            raise TypeError("languages is a list of language names, not one str")
        for language in languages:
            language_text = text(language, "a language")
            check(library.orvanta_platform_options_add_language(options, language_text))
        durability = 1 if full_durability else 0
        check(library.orvanta_platform_options_set_event_durability(options, durability))
        check(
            library.orvanta_platform_options_set_accept_plain_push_messages(
                options, bool(accept_plain_push_messages)
            )
        )
        check(
            library.orvanta_platform_options_set_resident_notifications(
                options, bool(resident_notifications)
            )
        )
        check(library.orvanta_install_linux_platform(options))
    finally:
        library.orvanta_platform_options_free(options)


def set_service_base_urls(push_url: str, api_url: Optional[str] = None) -> None:
    """Points the kit at other services (a local orvanta-sandbox, say): `push_url` for devices
    and reports, `api_url` (default: the same) for events. Each ends in "/" and uses https, or
    http on a loopback host; otherwise `OrvantaError` (REFUSED). Before the kit's first use."""
    api = push_url if api_url is None else api_url
    check(lib().orvanta_set_service_base_urls(text(push_url, "push_url"), text(api, "api_url")))


def reset_service_base_urls() -> None:
    """Back to the production services."""
    lib().orvanta_reset_service_base_urls()


def configure(*, logging: bool = False) -> None:
    """Configures the kit from OrvantaConfig.plist, with its log lines on standard output or not
    (kept across launches). Once, early."""
    check(lib().orvanta_configure(bool(logging)))


def set_logging_enabled(enabled: bool) -> None:
    lib().orvanta_set_logging_enabled(bool(enabled))


# --- Life cycle, pushes, delivery ----------------------------------------------------------------


class LifecycleEvent(IntEnum):
    DID_FINISH_LAUNCHING = 0
    #: The application comes to the front: the kit offers the push the user missed.
    WILL_ENTER_FOREGROUND = 1
    #: It leaves the screen: stored events are sent under a background task.
    DID_ENTER_BACKGROUND = 2


def post_lifecycle_event(event: LifecycleEvent) -> None:
    check(lib().orvanta_post_lifecycle_event(int(LifecycleEvent(event))))


def post_will_suspend() -> None:
    """The process is about to be suspended: background tasks end, what is stored is synced."""
    lib().orvanta_post_will_suspend()


def deliver_remote_notification(payload: Union[Mapping[str, Any], str]) -> None:
    """Hands a push that the host's own transport received to the kit, as a mapping or its JSON
    text: it is reported received, shown, and `push.on_receive` hears of it. Anything but a JSON
    object of at most 64 KiB raises `OrvantaError` (REFUSED)."""
    check(lib().orvanta_deliver_remote_notification(payload_json(payload)))


def flush(timeout: float = 10.0) -> int:
    """Sends every stored event and waits until the service took them all or `timeout` seconds
    passed; returns how many are left (0: all delivered). Not from a push handler."""
    milliseconds = max(0, min(int(timeout * 1000), 2**32 - 1))
    return int(lib().orvanta_flush(milliseconds))


def health() -> Dict[str, int]:
    """What the kit did since the process started (events tracked, stored and posted, failed
    posts, events waiting, pushes received, shown and dropped, reports...), as a dict of
    counters; "oldestWaitingMs" and "lastSuccessfulPostMs" are milliseconds."""
    pointer = _native_out()
    check(lib().orvanta_health_json(pointer))
    return json.loads(take_text(pointer.contents.value) or "{}")


def _native_out() -> Any:
    """A place for the C interface to store a pointer in (`char**`, `orvanta_parameters**`)."""
    return ctypes.pointer(ctypes.c_void_p())


# --- Analytics ----------------------------------------------------------------------------------


class Analytics:
    """`orvanta.analytics`."""

    def track_event(
        self, name: str, parameters: Optional[Mapping[str, ParameterValue]] = None
    ) -> None:
        """Records an event and sends every stored one. Parameters are typed as the kit types
        them: str, int (bool before int: True is a Boolean, not 1), datetime (a date); floats,
        None, lists and dicts are dropped. Nothing is recorded before the device has a push token.
        Blocks for a database insert, never for the network."""
        with Parameters(parameters if parameters is not None else {}) as handle:
            check(lib().orvanta_analytics_track_event(text(name, "name"), handle))


# --- User data --------------------------------------------------------------------------------


def _field(index: int, doc: str) -> property:
    def get(self: "User") -> Optional[str]:
        pointer = _native_out()
        check(lib().orvanta_user_get(index, pointer))
        return take_text(pointer.contents.value)

    def set(self: "User", value: Optional[str]) -> None:
        check(lib().orvanta_user_set(index, None if value is None else text(value, "the value")))

    return property(get, set, doc=doc)


class User:
    """`orvanta.user`: the profile and custom parameters of this installation's user. Edits stay
    in memory until `save()` sends them (and keeps them for later launches)."""

    email = _field(0, "The e-mail address, or None.")
    phone = _field(1, "The phone number (sent as \"number\"), or None.")
    first_name = _field(2, "The first name, or None.")
    last_name = _field(3, "The last name, or None.")

    @property
    def custom_parameters(self) -> Dict[str, Any]:
        """Every custom parameter (a date over a string over an integer over a Boolean of the
        same name). Assigning a mapping adds its entries, typed as `track_event` types them;
        nothing is removed."""
        pointer = _native_out()
        check(lib().orvanta_user_custom_parameters(pointer))
        handle = pointer.contents.value
        try:
            return read(handle)
        finally:
            lib().orvanta_parameters_free(handle)

    @custom_parameters.setter
    def custom_parameters(self, values: Mapping[str, ParameterValue]) -> None:
        if values is None:
            raise TypeError("custom parameters are a mapping; an empty one changes nothing")
        with Parameters(values) as handle:
            check(lib().orvanta_user_set_custom_parameters(handle))

    def save(self) -> None:
        """Sends the profile; `push.on_registered` or `push.on_registration_failed` hears how it
        went. Returns at once."""
        check(lib().orvanta_user_save())

    def remove(self) -> None:
        """Clears the four profile fields (custom parameters stay), then saves."""
        check(lib().orvanta_user_remove())


analytics = Analytics()
user = User()
