"""The example hosts (examples/c, examples/python) run to their end against the sandbox, as a
developer runs them: each exits 0 once the service accepted its registration and every event."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

import pytest

from conftest import Sandbox, write_bundle

ROOT = Path(__file__).resolve().parents[2]


def run(command: list, sandbox: Sandbox, folder: Path) -> subprocess.CompletedProcess:
    bundle = write_bundle(folder / "bundle")
    return subprocess.run(
        command
        + ["--service", sandbox.base_url, "--bundle", str(bundle), "--data", str(folder / "data")],
        capture_output=True, text=True, timeout=120,
    )


def check(host: subprocess.CompletedProcess, token: str, sandbox: Sandbox, push_id: str) -> None:
    output = host.stdout
    assert host.returncode == 0, output + host.stderr
    assert f"registered with token {token}" in output
    assert "ORVANTA_PUSH_ACTION_ACCEPT pressed" in output
    assert "0 events left undelivered" in output
    state = sandbox.state()
    assert any(r["push_id"] == push_id and "actionId" in r["body"] for r in state["reports"])
    device = next(d for d in state["devices"] if d["registration_id"] == token)
    assert device["orvanta"]["email"] == "ann@example.com"
    assert device["custom"]["boolean_fields"] == {"beta": True}


def test_the_c_host(sandbox: Sandbox, tmp_path: Path) -> None:
    program = os.environ.get("ORVANTA_C_HOST")
    if not program:
        pytest.skip("the example hosts are not built (-DORVANTA_BUILD_EXAMPLES=OFF)")
    check(run([program], sandbox, tmp_path), "c0ffee", sandbox, "c-host-push")


def test_the_python_host(sandbox: Sandbox, tmp_path: Path) -> None:
    host = run([sys.executable, str(ROOT / "examples" / "python" / "host.py")], sandbox, tmp_path)
    check(host, "beef", sandbox, "python-host-push")
