"""What the package offers to tests of other projects: the environment, as a class and as fixtures of pytest."""

from __future__ import annotations

import io
import os
import socket
import stat
import subprocess
import sys
from pathlib import Path
from urllib.parse import urlsplit

import cryptcli
import pytest
from cryptcli.testing import Environment, NotStarted

# A project's own tests, with nothing of ours beside them.
CONFTEST = """
import pytest
pytest_plugins = ["cryptcli.testing.plugin"]

@pytest.fixture(scope="session")
def cryptstand_options():
    return {"key_servers": 1, "rooms": ["mine"]}
"""
UPLOAD_TEST = """
import io
import cryptcli
from pathlib import Path

def test_protects_the_file(cryptstand):
    secret, opened = io.BytesIO(), io.BytesIO()
    with cryptcli.Client(cryptstand.service) as client:
        client.encrypt("mine", io.BytesIO(b"bytes"), secret)
        client.decrypt("mine", io.BytesIO(secret.getvalue()), opened)
    assert opened.getvalue() == b"bytes"

def test_has_the_same_environment(cryptstand):
    assert cryptstand.running and cryptstand.room == "mine"
    Path("directory").write_text(str(cryptstand.directory))
"""


def accepts(url: str) -> bool:
    parts = urlsplit(url)
    assert parts.hostname is not None
    with socket.socket() as handle:
        return handle.connect_ex((parts.hostname, parts.port)) == 0


def script(path: Path, text: str) -> str:
    path.write_text("#!/bin/sh\n" + text)
    path.chmod(stat.S_IRWXU)
    return str(path)


def test_an_environment_runs_until_it_is_stopped(temporary: Path) -> None:
    environment = Environment(key_servers=2, rooms=["a b", "c"])
    assert not environment.running
    with environment:
        assert (len(environment.key_servers), environment.rooms, environment.room) == (2, ("a b", "c"), "a b")
        assert environment.directory.parent == temporary
        assert stat.S_IMODE(environment.directory.stat().st_mode) == 0o700
        with cryptcli.Client(environment.service) as client:
            client.encrypt("c", io.BytesIO(b"bytes"), io.BytesIO())
        service = environment.service
        assert accepts(service)
    assert not environment.running
    assert not accepts(service)
    with pytest.raises(NotStarted, match="not running"):
        environment.service


def test_a_reason_is_what_the_program_writes() -> None:
    with pytest.raises(NotStarted, match="ended before it was ready.*--no-such-option"):
        Environment(arguments=["--no-such-option"]).start()


def test_a_program_that_cannot_be_started_is_named(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("CRYPTSTAND", "/nowhere/cryptstand")
    with pytest.raises(NotStarted, match="^/nowhere/cryptstand cannot be started: No such file or directory$"):
        Environment().start()


def test_a_program_that_is_never_ready_is_stopped(tmp_path: Path) -> None:
    program = script(tmp_path / "program", f"echo waiting >&2\necho $$ >{tmp_path}/process\nexec sleep 1000\n")
    environment = Environment(program=program, start_timeout=0.5)
    with pytest.raises(NotStarted, match="is not ready in time: waiting"):
        environment.start()
    with pytest.raises(ProcessLookupError):
        os.kill(int((tmp_path / "process").read_text()), 0)


def test_the_plugin_gives_one_environment_to_all_tests(tmp_path: Path) -> None:
    (tmp_path / "conftest.py").write_text(CONFTEST)
    (tmp_path / "upload_test.py").write_text(UPLOAD_TEST)
    run = subprocess.run(
        [sys.executable, "-B", "-m", "pytest", "-q", "-p", "no:cacheprovider", "upload_test.py"],
        cwd=tmp_path,
        stdout=subprocess.PIPE,
        text=True,
    )
    assert run.returncode == 0 and "2 passed" in run.stdout, run.stdout
    assert not Path((tmp_path / "directory").read_text()).exists()
