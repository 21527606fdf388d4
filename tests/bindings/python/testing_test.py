"""What the package offers to tests of other projects: the environment, as a class and as fixtures of pytest."""

from __future__ import annotations

import http.server
import io
import json
import os
import socket
import ssl
import stat
import subprocess
import sys
import textwrap
import threading
import time
from pathlib import Path
from typing import Iterator, List
from urllib.parse import urlsplit

import cryptcli
import pytest
from cryptcli.testing import ControlError, Environment, NotStarted, plugin

SOURCE = Path(__file__).resolve().parents[3]
# The tests of another project, which share no files with ours.
CONFTEST = (SOURCE / "tests" / "install" / "stand_consumer" / "conftest.py").read_text()
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

def test_breaks_the_environment(cryptstand):
    cryptstand.control("POST", "/stand/v1/rooms", {"room": "other"})
    cryptstand.server_down(0)

def test_finds_the_first_state(cryptstand_reset):
    state = cryptstand_reset.control("GET", "/stand/v1/state")
    assert [room["room"] for room in state["rooms"]] == ["mine"] and state["servers"][0]["up"]
    cryptstand_reset.stop()

def test_finds_a_new_one_after_a_stop(cryptstand_reset):
    assert cryptstand_reset.running

def test_restarts_with_a_locked_room(cryptstand):
    cryptstand.control("POST", "/stand/v1/rooms", {"room": "mine", "locked": True})
    cryptstand.restart()

def test_finds_the_first_state_after_a_restart(cryptstand_reset):
    with cryptcli.Client(cryptstand_reset.service) as client:
        client.encrypt("mine", io.BytesIO(b"bytes"), io.BytesIO())

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


@pytest.fixture(scope="module")
def shared() -> Iterator[Environment]:
    with Environment(key_servers=2) as environment:
        yield environment


@pytest.fixture
def controlled(shared: Environment) -> Environment:
    shared.reset()
    return shared


def faults(environment: Environment) -> List[str]:
    return [fault["fault"] for fault in environment.control("GET", "/stand/v1/faults")["set"]]


def test_a_restart_keeps_rooms_and_keys() -> None:
    with Environment() as environment:
        secret, opened = io.BytesIO(), io.BytesIO()
        with cryptcli.Client(environment.service) as client:
            client.encrypt(environment.room, io.BytesIO(b"bytes"), secret)
        environment.crash()
        assert not environment.running
        with cryptcli.Client(environment.service) as client, pytest.raises(cryptcli.Unreachable):
            client.decrypt(environment.room, io.BytesIO(secret.getvalue()), io.BytesIO())
        environment.restart()
        with cryptcli.Client(environment.service) as client:
            client.decrypt(environment.room, io.BytesIO(secret.getvalue()), opened)
        assert opened.getvalue() == b"bytes"


def test_a_refusal_names_the_member(controlled: Environment) -> None:
    with pytest.raises(ControlError) as caught:
        controlled.control("POST", "/stand/v1/faults", {"server": "0", "fault": "slow", "usess": 1})
    assert (caught.value.status, caught.value.member) == (400, "usess")
    assert "uses" in caught.value.allowed
    with pytest.raises(ControlError) as caught:
        controlled.control("GET", "/stand/v1/no-such")
    assert caught.value.status == 404


def test_a_fault_lasts_for_its_block(controlled: Environment) -> None:
    with cryptcli.Client(controlled.service) as client:
        with controlled.fault("all", "error-code", operation="getKeyRequest", number=619):
            assert faults(controlled) == ["error-code"] * 2
            with pytest.raises(cryptcli.ServerError) as caught:
                client.encrypt("demo", io.BytesIO(b"bytes"), io.BytesIO())
            assert len(caught.value.attempts) == 2
        assert faults(controlled) == []
        client.encrypt("demo", io.BytesIO(b"bytes"), io.BytesIO())


def test_a_fault_ends_although_it_is_used_up_or_the_block_fails(controlled: Environment) -> None:
    with cryptcli.Client(controlled.service) as client:
        with controlled.fault("crypt", "status", uses=1):
            with pytest.raises(cryptcli.ServerError):
                client.room("demo")
        with pytest.raises(LookupError):
            with controlled.fault("crypt", "status"):
                raise LookupError
        client.room("demo")
    assert faults(controlled) == []


@pytest.mark.parametrize("is_started_again", [False, True])
def test_a_fault_ends_with_its_program(is_started_again: bool) -> None:
    """Another program has other faults, with the same identifiers."""
    with Environment(key_servers=1) as environment:
        with pytest.raises(LookupError):
            with environment.fault("crypt", "status"):
                environment.crash()
                if is_started_again:
                    environment.restart()
                    environment.control("POST", "/stand/v1/faults", {"server": "crypt", "fault": "slow", "number": 1})
                raise LookupError
        assert not is_started_again or faults(environment) == ["slow"]


def test_a_server_goes_down_and_comes_up(controlled: Environment) -> None:
    server = controlled.key_servers[1]
    assert accepts(server)
    controlled.server_down(1)
    assert not accepts(server)
    controlled.server_up(1)
    assert accepts(server)
    controlled.server_down("all")
    assert not any(map(accepts, controlled.key_servers))
    controlled.reset()
    assert all(map(accepts, controlled.key_servers))


TLS_PROGRAM = """
cat >"$4.new" <<END
{"service":"https://127.0.0.1:@PORT@/","keyservers":[],"rooms":["demo"],"token":"t","caFile":"@FOLDER@/cert.pem",
 "clientCertificate":"@FOLDER@/cert.pem","clientKey":"@FOLDER@/key.pem"}
END
mv "$4.new" "$4"
exec cat
"""


class Echo(http.server.BaseHTTPRequestHandler):
    """Echoes the request of the client."""

    def do_GET(self) -> None:
        subject = self.connection.getpeercert()["subject"]
        body = json.dumps({"path": self.path, "token": self.headers["Authorization"], "subject": subject}).encode()
        self.send_response(200)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, format: str, *args: object) -> None:
        pass


def test_the_control_interface_is_reached_over_tls(tmp_path: Path) -> None:
    """With a server of the test, since only the requests of the client are of interest."""
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "1"]
        + ["-subj", "/CN=both", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", "key.pem", "-out", "cert.pem"],
        cwd=tmp_path,
        check=True,
        stderr=subprocess.DEVNULL,
    )
    context = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH, cafile=str(tmp_path / "cert.pem"))
    context.load_cert_chain(tmp_path / "cert.pem", tmp_path / "key.pem")
    context.verify_mode = ssl.CERT_REQUIRED
    with http.server.HTTPServer(("127.0.0.1", 0), Echo) as server:
        server.socket = context.wrap_socket(server.socket, server_side=True)
        threading.Thread(target=server.serve_forever).start()
        text = TLS_PROGRAM.replace("@PORT@", str(server.server_port)).replace("@FOLDER@", str(tmp_path))
        with Environment(program=script(tmp_path / "program", text)) as environment:
            reply = environment.control("GET", "/stand/")
            assert environment.tls == {
                "ca_file": tmp_path / "cert.pem",
                "client_certificate": tmp_path / "cert.pem",
                "client_key": tmp_path / "key.pem",
            }
        server.shutdown()
    assert (reply["path"], reply["token"]) == ("/stand/", "Bearer t")
    assert reply["subject"] == [[["commonName", "both"]]]


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


def test_the_program_ends_with_a_test_that_crashes(tmp_path: Path) -> None:
    crash = (
        "import os, signal; from cryptcli.testing import Environment\n"
        "print(Environment().start().service, flush=True); os.kill(os.getpid(), signal.SIGKILL)"
    )
    run = subprocess.run(
        [sys.executable, "-B", "-c", crash],
        stdout=subprocess.PIPE,
        text=True,
        env={**os.environ, "TMPDIR": str(tmp_path)},
    )
    assert run.returncode == -9
    deadline = time.monotonic() + 10
    while accepts(run.stdout.strip()):
        assert time.monotonic() < deadline
        time.sleep(0.01)


def test_other_arguments_are_documented_as_tested() -> None:
    fixture = CONFTEST[CONFTEST.index("@pytest.fixture") :]
    assert fixture in (SOURCE / "docs" / "stand-in-tests.md").read_text()
    assert textwrap.indent(fixture, "    ") in str(plugin.__doc__)


def test_the_plugin_gives_one_environment_to_all_tests(tmp_path: Path) -> None:
    (tmp_path / "conftest.py").write_text(CONFTEST)
    (tmp_path / "upload_test.py").write_text(UPLOAD_TEST)
    run = subprocess.run(
        [sys.executable, "-B", "-m", "pytest", "-q", "-p", "no:cacheprovider", "upload_test.py"],
        cwd=tmp_path,
        stdout=subprocess.PIPE,
        text=True,
    )
    assert run.returncode == 0 and "7 passed" in run.stdout, run.stdout
    assert not Path((tmp_path / "directory").read_text()).exists()
