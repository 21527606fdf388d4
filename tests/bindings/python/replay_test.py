"""Recordings that the program made, replayed without it."""

from __future__ import annotations

import io
import json
import os
import signal
import threading
import time
from pathlib import Path
from typing import Any, Dict

import cryptcli
import pytest
from conftest import CONTENT
from cryptcli.testing import Environment, NoRecording, NotRecorded, Replay

START: Dict[str, Any] = {
    "recording": "cryptstand",
    "version": 1,
    "service": "http://127.0.0.1:1/",
    "keyservers": ["http://127.0.0.1:2", "http://127.0.0.1:3"],
}


def line(
    server: str, method: str, target: str, request: str, response: str, number: int = 7, **members: Any
) -> Dict[str, Any]:
    return {
        "number": number,
        "server": server,
        "method": method,
        "target": target,
        "request": {"headers": [], "body": request},
        "response": {"status": 200, "headers": [["Date", "today"]], "body": response, **members},
    }


STATUS = line("0", "GET", "/status?5", "", "alive")


def write(path: Path, *lines: Any) -> Path:
    path.write_text("".join((one if isinstance(one, str) else json.dumps(one)) + "\n" for one in lines))
    return path


def send(replay: Replay, method: str, url: str, body: str = "") -> Any:
    return replay(cryptcli.Request(method, url, (), body.encode(), 1, 1)).body


def test_a_response_is_as_recorded(tmp_path: Path) -> None:
    replay = Replay(write(tmp_path / "file", START, line("crypt", "GET", "/crypt/key/demo", "", "{}")))
    assert (replay.service, replay.key_servers, replay.unused) == (START["service"], tuple(START["keyservers"]), 1)
    response = replay(cryptcli.Request("GET", "http://127.0.0.1:1/crypt/key/demo", (), b"", 1, 1))
    assert response == cryptcli.Response(200, {"Date": "today"}, b"{}")
    assert replay.unused == 0


def test_equal_requests_get_their_responses_in_order(tmp_path: Path) -> None:
    path = write(
        tmp_path / "file",
        START,
        line("0", "POST", "/rest/json", '{"payload":{"type":"signRequest"}}', "first"),
        line("1", "POST", "/rest/json", '{"payload":{"type":"decryptRequest"},"a":1}', "second"),
        line("1", "POST", "/rest/json", '{"payload":{"type":"decryptRequest"},"a":2}', "third"),
    )
    replay, url = Replay(path), "http://127.0.0.1:3/rest/json"
    assert send(replay, "POST", url, '{"payload":{"type":"decryptRequest"},"a":2}') == b"third"
    assert send(replay, "POST", url, '{"payload":{"type":"decryptRequest"},"a":3}') == b"second"
    with pytest.raises(NotRecorded) as caught:
        send(replay, "POST", url, '{"payload":{"type":"decryptRequest"},"a":1}')
    assert str(caught.value) == (
        "The recording has no response left to POST /rest/json (decryptRequest) of a key server; "
        "the next exchange in it is number 7, POST /rest/json (signRequest) of a key server"
    )


def test_the_key_server_in_a_body_is_not_compared(tmp_path: Path) -> None:
    """A client names the key server that it is at, which it has chosen at random."""

    def request(server: str) -> str:
        return json.dumps({"keyserver": server, "operation": "signRequest"})

    path, url = "/crypt/authztoken/demo", "http://127.0.0.1:1/crypt/authztoken/demo"
    responses = [("http://127.0.0.1:3", "first"), ("http://127.0.0.1:2", "second"), ("", "third")]
    lines = [line("crypt", "POST", path, request(server), response) for server, response in responses]
    replay = Replay(write(tmp_path / "file", START, *lines))
    assert send(replay, "POST", url, request("http://127.0.0.1:2")) == b"first"
    assert send(replay, "POST", url, request("")) == b"second"
    assert send(replay, "POST", url, request("http://127.0.0.1:3")) == b"third"


def test_status_and_lists_are_repeated(tmp_path: Path) -> None:
    replay = Replay(write(tmp_path / "file", START, STATUS, line("crypt", "GET", "/crypt/key/demo", "", "key")))
    for _ in range(3):
        assert send(replay, "GET", "http://127.0.0.1:2/status?99") == b"alive"
    assert send(replay, "GET", "http://127.0.0.1:1/crypt/key/demo") == b"key"
    with pytest.raises(NotRecorded, match="GET /crypt/key/demo of the crypt service, and no other exchange$"):
        send(replay, "GET", "http://127.0.0.1:1/crypt/key/demo")


def test_a_server_that_was_not_recorded_is_named(tmp_path: Path) -> None:
    with pytest.raises(NotRecorded, match="GET http://127.0.0.1:22/status, a server that it does not name"):
        send(Replay(write(tmp_path / "file", START, STATUS)), "GET", "http://127.0.0.1:22/status")


def test_a_cut_response_is_a_broken_connection(tmp_path: Path) -> None:
    cut = line("0", "GET", "/status", "", "half", isWhole=False)
    with pytest.raises(ConnectionError, match="cut off"):
        send(Replay(write(tmp_path / "file", START, cut)), "GET", "http://127.0.0.1:2/status")


def test_a_connection_without_a_response_is_broken(tmp_path: Path) -> None:
    dropped = line("0", "GET", "/status", "", "", status=0)
    with pytest.raises(ConnectionError, match="without a response"):
        send(Replay(write(tmp_path / "file", START, dropped)), "GET", "http://127.0.0.1:2/status")


def test_a_recording_may_end_inside_a_line(tmp_path: Path) -> None:
    torn = json.dumps(STATUS)[:30]
    path = write(tmp_path / "file", START, STATUS, torn, {**START, "service": "http://127.0.0.1:9/"}, STATUS)
    path.write_text(path.read_text() + torn)
    replay = Replay(path)
    assert (replay.unused, replay.service) == (2, START["service"])


@pytest.mark.parametrize("after", [1, 2])
def test_a_replay_begins_after_a_number(tmp_path: Path, after: int) -> None:
    lines = [line("0", "POST", "/rest/json", "{}", f"response {number}", number) for number in (1, 3, 4)]
    path = write(tmp_path / "file", START, *lines)
    replay = Replay(path, after=after)
    assert replay.unused == 2
    assert send(replay, "POST", "http://127.0.0.1:2/rest/json", "{}") == b"response 3"
    assert Replay(path, after=4).unused == 0


def test_the_number_to_begin_after_counts_in_the_last_start(tmp_path: Path) -> None:
    def room(number: int, response: str) -> Dict[str, Any]:
        return line("crypt", "GET", "/crypt/key/demo", "", response, number)

    later = {**START, "service": "http://127.0.0.1:7/"}
    lines = [START, room(1, "a"), room(2, "b"), room(3, "c"), later, room(1, "d"), room(2, "e")]
    replay = Replay(write(tmp_path / "file", *lines), after=1)
    assert (replay.service, replay.unused) == ("http://127.0.0.1:7/", 1)
    assert send(replay, "GET", "http://127.0.0.1:7/crypt/key/demo") == b"e"
    with pytest.raises(NotRecorded, match="that it does not name, and no other exchange$"):
        send(replay, "GET", "http://127.0.0.1:1/crypt/key/demo")


@pytest.mark.parametrize(
    "lines, reason",
    [
        ([], "the file is empty"),
        (["a letter"], "line 1 is not that of a recording"),
        ([STATUS], "line 1 is not that of a recording"),
        ([{**START, "version": 2}], "version 2 of recordings is not known"),
        ([{"recording": "cryptstand", "version": 1}], "names no crypt service"),
        ([{**START, "service": 7}], "names no crypt service"),
        ([{**START, "keyservers": None}], "no list of key servers"),
        ([{**START, "keyservers": "http://127.0.0.1:2"}], "no list of key servers"),
        ([{**START, "keyservers": [7]}], "no list of key servers"),
        (["[" * 100_000], "line 1 is not that of a recording"),
        ([START, '{"a":' * 100_000], "line 2 is not that of a recording"),
        ([START, {**STATUS, "request": "GET"}], "line 2 is not that of a recording"),
        ([START, {**STATUS, "request": {"body": 7}}], "line 2 is not that of a recording"),
        ([START, {**STATUS, "request": {"bodyBase64": "?"}}], "line 2 is not that of a recording"),
        ([START, {**STATUS, "request": {"bodyBase64": 7}}], "line 2 is not that of a recording"),
        ([START, {**STATUS, "target": 7}], "line 2 is not that of a recording"),
        ([START, {**STATUS, "method": None}], "line 2 is not that of a recording"),
        ([START, {**STATUS, "server": 0}], "line 2 is not that of a recording"),
        ([START, {**STATUS, "number": "7"}], "line 2 is not that of a recording"),
        ([START, line("0", "GET", "/status", "", "", status="abc")], "line 2 is not that of a recording"),
        ([START, line("0", "GET", "/status", "", "", status=7)], "line 2 is not that of a recording"),
        ([START, line("0", "GET", "/status", "", "", status=True)], "line 2 is not that of a recording"),
        ([START, line("0", "GET", "/status", "", "", isWhole="no")], "line 2 is not that of a recording"),
        ([START, line("0", "GET", "/status", "", "", headers=[["Date"]])], "line 2 is not that of a recording"),
        ([START, line("0", "GET", "/status", "", "", headers={"Date": "today"})], "line 2 is not that of a recording"),
        ([START, {}], "line 2 is not that of a recording"),
        ([START, json.dumps(STATUS)[:30], STATUS], "line 2 is not that of a recording"),
    ],
)
def test_what_is_no_recording_is_refused(tmp_path: Path, lines: Any, reason: str) -> None:
    with pytest.raises(NoRecording, match=reason):
        Replay(write(tmp_path / "file", *lines))


def test_a_file_is_opened_without_servers(tmp_path: Path) -> None:
    secret, opened = io.BytesIO(), io.BytesIO()
    with Environment(key_servers=2, arguments=["--record", str(tmp_path / "recorded")]) as environment:
        with cryptcli.Client(environment.service) as client:
            client.encrypt("demo", io.BytesIO(CONTENT), secret)
            there = client.decrypt("demo", io.BytesIO(secret.getvalue()), io.BytesIO())
            with pytest.raises(cryptcli.UnknownRoom) as failed_there:
                client.room("nowhere")
    replay = Replay(tmp_path / "recorded")
    with cryptcli.Client(replay.service, transport=replay) as client:
        here = client.decrypt("demo", io.BytesIO(secret.getvalue()), opened)
        with pytest.raises(cryptcli.UnknownRoom) as failed_here:
            client.room("nowhere")
    assert opened.getvalue() == CONTENT
    assert here.chain == there.chain
    assert str(failed_here.value) == str(failed_there.value)


def test_an_origin_is_refused_as_there(tmp_path: Path) -> None:
    """As in production: the file is intact, but the service does not know the certificate that signed it."""
    plain, secret, opened = (tmp_path / name for name in ("plain", "secret", "opened"))
    plain.write_bytes(CONTENT)
    with Environment(arguments=["--record", str(tmp_path / "recorded")]) as environment:
        with cryptcli.Client(environment.service) as client:
            client.encrypt("demo", plain, secret)
            environment.control("PUT", "/stand/v1/lists", {"integrity": "without-ours"})
            with pytest.raises(cryptcli.OriginNotProven) as there:
                client.decrypt("demo", secret, opened)
    replay = Replay(tmp_path / "recorded")
    with cryptcli.Client(replay.service, transport=replay) as client:
        with pytest.raises(cryptcli.OriginNotProven) as here:
            client.decrypt("demo", secret, opened)
    assert str(here.value) == str(there.value)
    assert here.value.report == there.value.report
    assert not opened.exists()


def test_operations_are_repeated_in_their_order(tmp_path: Path) -> None:
    """However often, and whichever key server the client chooses. Where they were recorded, it was one for each."""
    secret = io.BytesIO()

    def decrypt(service: str, **options: Any) -> None:
        with cryptcli.Client(service, **options) as client:
            client.decrypt("demo", io.BytesIO(secret.getvalue()), io.BytesIO())

    with Environment(key_servers=2, arguments=["--record", str(tmp_path / "recorded")]) as environment:
        with cryptcli.Client(environment.service) as client:
            client.encrypt("demo", io.BytesIO(CONTENT), secret)
        with environment.fault(0, "down"):
            decrypt(environment.service)
        environment.control("PUT", "/stand/v1/lists", {"integrity": "without-ours"})
        with environment.fault(1, "down"), pytest.raises(cryptcli.OriginNotProven):
            decrypt(environment.service)
    for _ in range(20):
        replay = Replay(tmp_path / "recorded")
        decrypt(replay.service, transport=replay)
        with pytest.raises(cryptcli.OriginNotProven):
            decrypt(replay.service, transport=replay)


def test_a_late_failure_is_replayed_alone(tmp_path: Path) -> None:
    secret = io.BytesIO()
    with Environment(arguments=["--record", str(tmp_path / "recorded")]) as environment:
        with cryptcli.Client(environment.service) as client:
            client.encrypt("demo", io.BytesIO(CONTENT), secret)
            client.decrypt("demo", io.BytesIO(secret.getvalue()), io.BytesIO())
            last = environment.control("GET", "/stand/v1/events?limit=1")["events"][0]["number"]
            environment.control("PUT", "/stand/v1/lists", {"integrity": "without-ours"})
            with pytest.raises(cryptcli.OriginNotProven):
                client.decrypt("demo", io.BytesIO(secret.getvalue()), io.BytesIO())
    replay = Replay(tmp_path / "recorded", after=last)
    with cryptcli.Client(replay.service, transport=replay) as client:
        with pytest.raises(cryptcli.OriginNotProven):
            client.decrypt("demo", io.BytesIO(secret.getvalue()), io.BytesIO())
    assert replay.unused == 0


def test_a_killed_program_leaves_whole_lines(tmp_path: Path) -> None:
    recorded = tmp_path / "recorded"
    script = tmp_path / "program"
    script.write_text(f'#!/bin/sh\necho $$ >{tmp_path}/process\nexec "$CRYPTSTAND" "$@"\n')
    script.chmod(0o700)
    with Environment(program=str(script), arguments=["--record", str(recorded)]) as environment:
        service = environment.service

        def ask() -> None:
            with cryptcli.Client(service) as client:
                with pytest.raises(cryptcli.Error):
                    while True:
                        client.room("demo")

        threads = [threading.Thread(target=ask) for _ in range(4)]
        for thread in threads:
            thread.start()
        deadline = time.monotonic() + 60
        while recorded.stat().st_size < 100_000 and time.monotonic() < deadline:
            time.sleep(0.01)
        os.kill(int((tmp_path / "process").read_text()), signal.SIGKILL)
        for thread in threads:
            thread.join()
    lines = recorded.read_bytes().split(b"\n")
    assert len(lines) > 50
    assert [json.loads(text)["target"] for text in lines[1:-1]] == ["/crypt/key/demo"] * (len(lines) - 2)
    assert Replay(recorded).unused >= len(lines) - 2
