"""Options, strings and versions: what is refused, what reaches the servers, and how the library is found."""

from __future__ import annotations

import io
import math
import os
import re
import socket
import subprocess
import sys
import threading
from pathlib import Path
from typing import Any, Dict, List

import cryptcli
import pytest
from conftest import CONTENT, MakeClient
from environment import ROOM, Environment

SOURCES = Path(__file__).resolve().parents[3]


def test_the_version_is_that_of_the_project() -> None:
    project = re.search(r"project\(cryptcli VERSION (\S+)", (SOURCES / "CMakeLists.txt").read_text())
    assert project is not None
    assert cryptcli.__version__ == project[1] == cryptcli.version()
    assert cryptcli.build_info()["cryptcli"] == cryptcli.version()
    assert "OpenSSL" in cryptcli.build_info()["transport"]


def test_origins_and_policies_are_shown_by_their_names() -> None:
    assert str(cryptcli.Origin.PROVEN) == f"{cryptcli.Origin.PROVEN}" == "proven"
    assert f"{cryptcli.Origin.SIGNATURE_ONLY:>16}|" == "  signature_only|"
    assert "%s %d" % (cryptcli.Policy.ANY_SIGNER, cryptcli.Policy.ANY_SIGNER) == "any_signer 1"
    assert [cryptcli.Origin.from_name(str(origin)) for origin in cryptcli.Origin] == list(cryptcli.Origin)


def run(program: str, library: str) -> "subprocess.CompletedProcess[str]":
    return subprocess.run(
        [sys.executable, "-B", "-c", program],
        env={**os.environ, "CRYPTCLI_LIBRARY": library},
        capture_output=True,
        text=True,
        timeout=60,
    )


def test_a_missing_library_is_an_import_error(tmp_path: Path) -> None:
    ended = run("import cryptcli", str(tmp_path / "missing.so"))
    assert ended.returncode == 1
    assert "ImportError: cryptcli needs the C library libcryptcli-c.so.1" in ended.stderr
    assert "CRYPTCLI_LIBRARY" in ended.stderr


def test_a_library_without_our_functions_is_an_import_error() -> None:
    ended = run("import cryptcli", "libc.so.6")
    assert "ImportError: The C library libc.so.6 is too old" in ended.stderr


@pytest.mark.parametrize("bad", ["a\0b", "\ud800"])
def test_strings_that_c_cannot_express_are_refused(
    client: cryptcli.Client, protected: Path, bad: str
) -> None:
    refused = pytest.raises(cryptcli.InvalidArgument)
    with refused:
        client.verify(ROOM + bad, protected)
    with refused:
        client.verify(ROOM, "/tmp/" + bad)
    with refused:
        client.decrypt(ROOM, protected, "/tmp/" + bad)
    with refused:
        client.rekey(ROOM, "/tmp/" + bad)
    with refused:
        cryptcli.inspect("/tmp/" + bad)
    with refused:
        client.perform("DeleteKey" + bad, {})
    for option in ("service", "ca_file", "client_certificate", "proxy", "temporary_directory"):
        options: Dict[str, Any] = {"service": "http://host/", option: "http://host/" + bad}
        with refused:
            cryptcli.Client(**options)
    with refused:
        cryptcli.Client("http://host/", headers={"Authorization": bad})


def test_a_lone_surrogate_in_an_argument_is_refused(client: cryptcli.Client) -> None:
    with pytest.raises(cryptcli.InvalidArgument):
        client.perform("GetAuditLog", {"keyserver": ["http://host/"], "group": "\ud800"})


@pytest.mark.parametrize("wrong", [None, 7, b"demo"])
def test_a_room_has_to_be_a_string(client: cryptcli.Client, protected: Path, wrong: Any) -> None:
    with pytest.raises(TypeError, match="The room has to be a str"):
        client.verify(wrong, protected)


def test_a_secret_is_not_quoted() -> None:
    for value in ("geheim\n", "geheim\0", "geheim\ud800"):
        with pytest.raises(cryptcli.InvalidArgument) as caught:
            cryptcli.Client("http://host/", headers={"Authorization": value})
        assert "geheim" not in str(caught.value)
        assert caught.value.__cause__ is None


@pytest.mark.parametrize("wrong", [0, -1, math.nan, math.inf, 5e9])
@pytest.mark.parametrize("option", ["timeout", "connect_timeout"])
def test_timeouts_have_to_be_positive(option: str, wrong: float) -> None:
    options: Dict[str, Any] = {option: wrong}
    with pytest.raises(cryptcli.InvalidArgument, match="positive number of seconds"):
        cryptcli.Client("http://host/", **options)


def test_the_service_has_to_be_given() -> None:
    with pytest.raises(cryptcli.InvalidArgument, match="No URL of the crypt service"):
        cryptcli.Client("")


def test_a_ca_file_has_to_be_there(tmp_path: Path) -> None:
    with pytest.raises(cryptcli.InvalidArgument, match=re.escape("missing.pem")):
        cryptcli.Client("https://host/", ca_file=tmp_path / "missing.pem")


def test_a_client_key_needs_its_certificate(tmp_path: Path) -> None:
    with pytest.raises(cryptcli.InvalidArgument, match="without a client certificate"):
        cryptcli.Client("https://host/", client_key=tmp_path / "key.pem")


def test_a_proxy_gets_the_requests(make_client: MakeClient, tmp_path: Path) -> None:
    seen: List[bytes] = []
    with socket.create_server(("127.0.0.1", 0)) as server:

        def serve() -> None:
            connection, _ = server.accept()
            with connection:
                seen.append(connection.recv(4096))
                connection.sendall(b"HTTP/1.1 503 Busy\r\nContent-Length: 0\r\n\r\n")

        thread = threading.Thread(target=serve)
        thread.start()
        client = make_client(service="http://crypt.example/", proxy=f"http://127.0.0.1:{server.getsockname()[1]}/")
        with pytest.raises(cryptcli.ServerError):
            client.encrypt(ROOM, io.BytesIO(CONTENT), tmp_path / "secret")
        thread.join()
    assert seen[0].startswith(b"GET http://crypt.example/crypt/key/demo ")


@pytest.mark.parametrize("wrong", [0, True, "anything", None])
def test_a_policy_has_to_be_a_policy(client: cryptcli.Client, protected: Path, wrong: Any) -> None:
    with pytest.raises(TypeError, match="accept has to be a Policy"):
        client.verify(ROOM, protected, accept=wrong)


# ---- The log


def logged(make_client: MakeClient, protected: Path, **options: Any) -> str:
    lines: List[str] = []

    def log(level: cryptcli.LogLevel, message: str) -> None:
        assert isinstance(level, cryptcli.LogLevel)
        lines.append(f"{level.name} {message}")

    make_client(log=log, **options).verify(ROOM, protected)
    return "\n".join(lines)


def test_the_log_shows_requests_without_bodies(
    environment: Environment, make_client: MakeClient, protected: Path
) -> None:
    log = logged(make_client, protected)
    assert f"POST {environment.service}crypt/key/demo" in log
    assert "DEBUG" not in log
    assert 'authztoken":' not in log


def test_the_log_leaves_secrets_out_unless_they_are_asked_for(make_client: MakeClient, protected: Path) -> None:
    hidden = logged(make_client, protected, log_level=cryptcli.LogLevel.DEBUG)
    assert "room=[demo]" in hidden
    assert 'authztoken":' not in hidden
    revealed = logged(make_client, protected, log_level=cryptcli.LogLevel.DEBUG, reveal_secrets=True)
    assert 'authztoken":' in revealed


def test_the_log_shows_errors_alone(make_client: MakeClient, protected: Path) -> None:
    assert logged(make_client, protected, log_level=cryptcli.LogLevel.ERROR) == ""


@pytest.mark.parametrize("wrong", [0, 2, "DEBUG"])
def test_a_log_level_has_to_be_one(wrong: Any) -> None:
    with pytest.raises(TypeError, match="log_level has to be a LogLevel"):
        cryptcli.Client("http://host/", log_level=wrong)
