"""The kit from Python, against orvanta-sandbox in a process of its own: the whole flow a host
goes through, parameters typed exactly as the kit types them, what a handler that raises or is
let go of while the kit is about to call it does to the kit, and many threads at once."""

from __future__ import annotations

import datetime
import gc
import os
import shutil
import subprocess
import sys
import threading
import weakref
from pathlib import Path

import pytest

import orvanta
from conftest import TOKEN, Heard, Sandbox

REFERENCE_DATE = datetime.datetime(2001, 1, 1, tzinfo=datetime.timezone.utc)


def push_payload(push_id: str) -> dict:
    return {
        "aps": {"alert": {"title": "Flash sale", "body": "Two hours only"}},
        "data": {
            "id": push_id,
            "registration_id": "c11e0057",
            "action_buttons": {
                "category_id": "ORVANTA_PUSH_CATEGORY_ACCEPTANCE",
                "items": [
                    {"id": "ORVANTA_PUSH_ACTION_ACCEPT", "type": "NONE", "url": "https://orvanta.io/a"}
                ],
            },
        },
    }


def test_start_up_refusals(kit: Sandbox) -> None:
    # The platform is bound for good once the kit is in use.
    with pytest.raises(orvanta.OrvantaError) as refused:
        orvanta.install_platform(bundle_directory="/elsewhere")
    assert refused.value.status == orvanta.Status.TOO_LATE
    assert "already in use" in str(refused.value)
    with pytest.raises(orvanta.OrvantaError) as refused:
        orvanta.set_service_base_urls("http://example.com/v1/")
    assert refused.value.status == orvanta.Status.REFUSED
    for payload in ("[1]", "{", "[" * 600 + "]" * 600):
        with pytest.raises(orvanta.OrvantaError) as refused:
            orvanta.deliver_remote_notification(payload)
        assert refused.value.status == orvanta.Status.REFUSED
    with pytest.raises(ValueError):
        orvanta.analytics.track_event("a\0b")
    with pytest.raises(TypeError):
        orvanta.analytics.track_event("typed", {1: "a key that is no text"})
    with pytest.raises(TypeError):
        orvanta.analytics.track_event("typed", {"what": object()})
    assert orvanta.version() == "0.1.0"


def test_registration_push_button_and_missed_push(kit: Sandbox, heard: Heard) -> None:
    orvanta.push.on_token = heard.record("token")
    orvanta.push.on_registered = heard.record("registered")
    orvanta.push.on_registration_failed = heard.record("failed")
    orvanta.push.on_receive = heard.record("receive")
    orvanta.push.on_action = heard.record("action")
    orvanta.push.on_unreached = heard.record("unreached")

    orvanta.push.did_register(TOKEN)
    assert heard.next("token") == ("c11e0057",)
    assert heard.next("registered") == ("c11e0057",)
    kit.wait_for(lambda s: any(d["registration_id"] == "c11e0057" for d in s["devices"]))
    orvanta.push.did_fail_to_register("no distributor on the bus")
    assert "no distributor" in heard.next("failed")[0]

    # A push in front: reported received and heard; its button pressed, heard and reported.
    orvanta.deliver_remote_notification(push_payload("py-push-1"))
    (user_info,) = heard.next("receive")
    assert user_info["data"]["id"] == "py-push-1"
    kit.wait_for(lambda s: kit.report_for(s, "py-push-1"))
    orvanta.push.did_receive_response(push_payload("py-push-1"), "ORVANTA_PUSH_ACTION_ACCEPT")
    identifier, user_info = heard.next("action")
    assert identifier == "ORVANTA_PUSH_ACTION_ACCEPT" and user_info["data"]["id"] == "py-push-1"
    report = kit.wait_for(lambda s: kit.report_for(s, "py-push-1", "actionId"))
    assert report["body"]["actionId"] == "ORVANTA_PUSH_ACTION_ACCEPT"

    # The push the user missed, as the application comes to the front: shown by the host.
    kit.request("PUT", "last_push/c11e0057", {"id": "py-push-2", "title": "Your cart is waiting"})
    orvanta.post_lifecycle_event(orvanta.LifecycleEvent.WILL_ENTER_FOREGROUND)
    user_info, complete = heard.next("unreached")
    assert isinstance(user_info, dict)  # as the C++ delegate gets it (empty for a last push)
    complete(True)
    complete(True)  # a second answer changes nothing
    report = kit.wait_for(lambda s: kit.report_for(s, "py-push-2", "details"))
    assert report["body"]["details"] == "DIALOG_DISMISS_ACTION"


def test_parameters_are_typed_as_the_kit_types_them(registered: str, kit: Sandbox) -> None:
    when = datetime.datetime(2024, 5, 17, 9, 30, 15, 250000, tzinfo=datetime.timezone.utc)
    orvanta.analytics.track_event(
        "py-typed",
        {
            "sku": "A-1",
            "qty": 2,
            "flag": True,  # a Boolean, never the integer 1
            "off": False,
            "largest": 2**63 - 1,
            "beyond": 2**64,  # no 64-bit integer: dropped, as a double would be
            "price": 9.5,  # the service has no field for fractions
            "whole": 3.0,
            "when": when,
            "nothing": None,
            "list": [1, 2],
            "note": "café",
        },
    )
    (event,) = kit.wait_for(lambda s: kit.events_named("py-typed"))
    body = event["body"]
    assert body["additionalStringFields"] == {"sku": "A-1", "note": "café"}
    assert body["additionalNumericFields"] == {"qty": 2, "largest": 2**63 - 1}
    assert body["additionalBoolFields"] == {"flag": True, "off": False}
    assert body["additionalDateFields"] == {"when": (when - REFERENCE_DATE).total_seconds()}
    assert body["pushId"] == f"{registered}|||python-app"


def test_user_saved_and_removed(registered: str, kit: Sandbox) -> None:
    orvanta.user.email = "ann@example.com"
    orvanta.user.first_name = "Ann"
    orvanta.user.phone = "+1 555 0100"
    orvanta.user.phone = None
    assert orvanta.user.email == "ann@example.com" and orvanta.user.phone is None
    since = datetime.datetime(2020, 9, 13, 12, 26, 40, tzinfo=datetime.timezone.utc)
    custom = {"plan": "pro", "seats": 5, "beta": True, "since": since}
    orvanta.user.custom_parameters = {**custom, "ratio": 0.5}  # a fraction is dropped
    assert orvanta.user.custom_parameters == custom

    def ours(state: dict) -> dict:
        return next(d for d in state["devices"] if d["registration_id"] == registered)

    orvanta.user.save()
    device = kit.wait_for(lambda s: ours(s)["orvanta"].get("email") and ours(s))
    assert device["orvanta"] == {"email": "ann@example.com", "first_name": "Ann"}
    assert device["custom"]["integer_fields"] == {"seats": 5}
    assert device["custom"]["boolean_fields"] == {"beta": True}

    orvanta.user.remove()  # the profile goes, the custom parameters stay
    device = kit.wait_for(lambda s: not ours(s)["orvanta"] and ours(s))
    assert device["custom"]["string_fields"] == {"plan": "pro"}


def test_a_handler_that_raises_is_reported_once_and_the_kit_goes_on(
    registered: str, kit: Sandbox, heard: Heard, capfd: pytest.CaptureFixture
) -> None:
    def broken(token: str) -> None:
        raise RuntimeError("the host's handler broke")

    orvanta.push.on_token = broken
    orvanta.push.on_registered = heard.record("registered")
    orvanta.push.did_register(TOKEN)
    heard.next("registered")  # the kit's main queue carried on past the broken handler
    orvanta.deliver_remote_notification(push_payload("py-push-3"))
    kit.wait_for(lambda s: kit.report_for(s, "py-push-3"))
    errors = capfd.readouterr().err
    assert errors.count("the push handler on_token raised") == 1
    assert errors.count("RuntimeError: the host's handler broke") == 1
    assert "Exception ignored" not in errors


def test_many_threads_tracking_at_once(registered: str, kit: Sandbox) -> None:
    threads, each = 8, 30
    failures: list = []

    def track(thread: int) -> None:
        try:
            for i in range(each):
                orvanta.analytics.track_event(f"py-thread-{thread}", {"i": i, "even": i % 2 == 0})
        except BaseException as error:  # noqa: B902 - reported to the main thread
            failures.append(error)

    workers = [threading.Thread(target=track, args=(t,)) for t in range(threads)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    assert failures == []
    assert orvanta.flush(timeout=30) == 0
    for thread in range(threads):
        events = kit.events_named(f"py-thread-{thread}")
        numbers = sorted(e["body"]["additionalNumericFields"]["i"] for e in events)
        assert numbers == list(range(each))
    assert orvanta.health()["eventsTracked"] >= threads * each


def test_handlers_let_go_of_while_the_kit_calls_them(
    registered: str, kit: Sandbox, heard: Heard
) -> None:
    class Listener:
        def __init__(self) -> None:
            self.entered = threading.Event()
            self.leave = threading.Event()
            self.returned = threading.Event()

        def on_receive(self, user_info: dict) -> None:
            self.entered.set()
            self.leave.wait(timeout=30)
            self.returned.set()

    listener = Listener()
    orvanta.push.on_receive = listener.on_receive
    orvanta.deliver_remote_notification(push_payload("py-push-4"))
    assert listener.entered.wait(timeout=30)
    # A second push queues behind the running call on the kit's main queue. Replacing the handler
    # returns only once the running call has returned (another thread lets it).
    orvanta.deliver_remote_notification(push_payload("py-push-5"))
    letting_go = threading.Thread(target=listener.leave.set)
    letting_go.start()
    orvanta.push.on_receive = None
    assert listener.returned.is_set()
    letting_go.join()
    gone = weakref.ref(listener)
    del listener
    gc.collect()
    assert gone() is None  # neither the kit nor the package holds the handler's object

    # The kit carries on: the queued push is reported, a later callback arrives.
    kit.wait_for(lambda s: kit.report_for(s, "py-push-5"))
    orvanta.push.on_token = heard.record("token")
    orvanta.push.did_register(TOKEN)
    heard.next("token")

    # A handler that replaces itself from inside its own call does not wait for itself.
    def replacing(user_info: dict) -> None:
        orvanta.push.on_receive = None
        heard.record("replaced")(user_info["data"]["id"])

    orvanta.push.on_receive = replacing
    orvanta.deliver_remote_notification(push_payload("py-push-6"))
    assert heard.next("replaced") == ("py-push-6",)
    assert orvanta.push.on_receive is None

    # A missed push's completion dropped unanswered answers by itself (not displayed).
    orvanta.push.on_unreached = lambda user_info, complete: heard.record("unreached")(user_info)
    kit.request("PUT", "last_push/c11e0057", {"id": "py-push-7", "title": "Missed"})
    orvanta.post_lifecycle_event(orvanta.LifecycleEvent.WILL_ENTER_FOREGROUND)
    heard.next("unreached")


def test_installs_offline_with_pip(tmp_path: Path) -> None:
    """`pip install --no-build-isolation` with Debian's setuptools needs no network."""
    # A copy: building writes into the package's folder (build/, *.egg-info).
    package = shutil.copytree(Path(__file__).resolve().parents[2] / "python", tmp_path / "package")
    target = tmp_path / "site"
    install = subprocess.run(
        [sys.executable, "-m", "pip", "install", "--quiet", "--no-build-isolation", "--no-index",
         "--no-cache-dir", "--target", str(target), str(package)],
        capture_output=True, text=True,
    )
    if install.returncode != 0 and "No module named pip" in install.stderr:
        pytest.skip("pip is not installed (Debian package python3-pip)")
    assert install.returncode == 0, install.stderr
    check = subprocess.run(
        [sys.executable, "-c", "import orvanta; print(orvanta.__file__, orvanta.version())"],
        capture_output=True, text=True, cwd=tmp_path,
        env={**os.environ, "PYTHONPATH": str(target)},
    )
    assert check.returncode == 0, check.stderr
    assert check.stdout.startswith(str(target)) and check.stdout.strip().endswith("0.1.0")
    assert (target / "orvanta" / "py.typed").exists()
