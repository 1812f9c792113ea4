"""The Python package's tests run the kit in the test process, against orvanta-sandbox running as a
separate process, and read what the sandbox received through its control API.

Environment (set by CTest, see CMakeLists.txt): ORVANTA_LIBRARY, the kit's shared library;
ORVANTA_SANDBOX, the orvanta-sandbox program; PYTHONPATH holding the package's folder (python/).
"""

from __future__ import annotations

import json
import os
import queue
import socket
import subprocess
import threading
import time
import urllib.request
from pathlib import Path
from typing import Any, Callable, Dict, Iterator, Optional

import pytest

import orvanta

PATIENCE = 30.0  # seconds to wait for what must happen

CREDENTIALS = {
    "AppId": "python-app",
    "Token": "python-token",
    "Secret": "python-secret",
    "EventsToken": "python-events-token",
}


def write_bundle(bundle: Path) -> Path:
    """A bundle folder whose OrvantaConfig.plist holds the sandbox's credentials."""
    bundle.mkdir(parents=True)
    entries = "".join(f"<key>{k}</key><string>{v}</string>" for k, v in CREDENTIALS.items())
    (bundle / "OrvantaConfig.plist").write_text(
        f'<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>{entries}</dict></plist>'
    )
    return bundle


class Sandbox:
    """orvanta-sandbox in a process of its own, and its control API."""

    def __init__(self, program: str) -> None:
        self.process = subprocess.Popen(
            [
                program,
                "--app-id", CREDENTIALS["AppId"],
                "--token", CREDENTIALS["Token"],
                "--secret", CREDENTIALS["Secret"],
                "--events-token", CREDENTIALS["EventsToken"],
            ],
            stdout=subprocess.PIPE,
            text=True,
        )
        line = self.process.stdout.readline()  # "orvanta-sandbox listening on <url>"
        if "listening on " not in line:
            self.process.kill()
            raise RuntimeError(f"orvanta-sandbox did not start: {line!r}")
        self.base_url = line.split("listening on ", 1)[1].strip()
        self.control = self.base_url.replace("/v1/", "/_sandbox/")
        # Its request lines are read and dropped, so that they never fill the pipe.
        self._drain = threading.Thread(target=self.process.stdout.read, daemon=True)
        self._drain.start()

    def stop(self) -> None:
        self.process.terminate()
        self.process.wait(timeout=PATIENCE)
        self._drain.join(timeout=PATIENCE)

    def request(self, method: str, path: str, body: Any = None) -> Any:
        data = json.dumps(body).encode() if body is not None else None
        request = urllib.request.Request(self.control + path, data=data, method=method)
        with urllib.request.urlopen(request, timeout=PATIENCE) as answer:
            text = answer.read()
        return json.loads(text) if text else None

    def state(self) -> Dict[str, Any]:
        return self.request("GET", "state")

    def wait_for(self, predicate: Callable[[Dict[str, Any]], Any]) -> Any:
        """Waits until `predicate(state)` is true and returns it, reading the state again at each
        change notice of the sandbox's change stream (no polling); fails the test after
        PATIENCE seconds."""
        deadline = time.monotonic() + PATIENCE
        # The stream sends a notice at once, then one after each change (a comment line every
        # 15 s when nothing happens); a read that waits longer than the patience fails.
        with urllib.request.urlopen(self.control + "changes", timeout=PATIENCE) as changes:
            while True:
                value = predicate(self.state())
                if value:
                    return value
                while True:
                    if time.monotonic() > deadline:
                        pytest.fail("the sandbox never reached the state the test waited for")
                    try:
                        line = changes.readline()
                    except (socket.timeout, OSError):
                        pytest.fail("the sandbox never reached the state the test waited for")
                    if line.startswith(b"data:"):
                        break

    def events_named(self, name: str) -> list:
        return [event for event in self.state()["events"] if event["body"]["eventName"] == name]

    def report_for(self, state: Dict[str, Any], push_id: str, member: Optional[str] = None) -> Any:
        for report in state["reports"]:
            if report["push_id"] == push_id and (member is None or member in report["body"]):
                return report
        return None


@pytest.fixture(scope="session")
def sandbox() -> Iterator[Sandbox]:
    program = os.environ.get("ORVANTA_SANDBOX")
    if not program:
        pytest.skip("ORVANTA_SANDBOX names no orvanta-sandbox program")
    server = Sandbox(program)
    yield server
    server.stop()


@pytest.fixture(scope="session")
def kit(sandbox: Sandbox, tmp_path_factory: pytest.TempPathFactory) -> Sandbox:
    """The kit, set up once for the whole session as a host does at start-up (the platform can
    be installed only once per process), pointed at the sandbox."""
    folder = tmp_path_factory.mktemp("kit")
    bundle = write_bundle(folder / "bundle")
    orvanta.install_platform(
        bundle_directory=str(bundle),
        data_directory=str(folder / "data"),
        preferences_file=str(folder / "preferences.json"),
        application_name="orvanta-python-test",
        languages=["de"],
    )
    orvanta.set_service_base_urls(sandbox.base_url)
    orvanta.configure(logging=True)
    return sandbox


class Heard:
    """What the handlers heard, for the test to wait on."""

    def __init__(self) -> None:
        self.calls: "queue.Queue[tuple]" = queue.Queue()

    def record(self, name: str) -> Callable[..., None]:
        return lambda *arguments: self.calls.put((name, *arguments))

    def next(self, name: str) -> tuple:
        """The next call of `name` (earlier calls of other handlers are passed over)."""
        deadline = time.monotonic() + PATIENCE
        while True:
            try:
                call = self.calls.get(timeout=max(0.0, deadline - time.monotonic()))
            except queue.Empty:
                pytest.fail(f"no {name} call came")
            if call[0] == name:
                return call[1:]


@pytest.fixture
def heard() -> Iterator[Heard]:
    """Handlers that record their calls; every handler unset after the test."""
    yield Heard()
    for name in ("on_receive", "on_open", "on_action", "on_unreached", "on_token",
                 "on_registered", "on_registration_failed"):
        setattr(orvanta.push, name, None)


TOKEN = bytes([0xC1, 0x1E, 0x00, 0x57])


@pytest.fixture
def registered(kit: Sandbox, heard: Heard) -> str:
    """The installation registered with the sandbox under TOKEN; its hex text."""
    orvanta.push.on_registered = heard.record("registered")
    orvanta.push.did_register(TOKEN)
    assert heard.next("registered") == ("c11e0057",)
    orvanta.push.on_registered = None
    return "c11e0057"
