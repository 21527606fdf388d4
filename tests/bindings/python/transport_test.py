"""Transports of the application's own."""

from __future__ import annotations

import io
import threading
import urllib.error
import urllib.request
from pathlib import Path
from typing import Any, Callable, Dict, Iterator, List

import cryptcli
import pytest
from conftest import CONTENT, MakeClient
from environment import ROOM, Environment

OPENER = urllib.request.build_opener(urllib.request.ProxyHandler({}))


def send(request: cryptcli.Request) -> cryptcli.Response:
    """A transport as a program would write it with the standard library."""
    asked = urllib.request.Request(
        request.url, request.body or None, dict(request.headers), method=request.method
    )
    try:
        with OPENER.open(asked, timeout=request.timeout) as response:
            return cryptcli.Response(response.status, dict(response.headers.items()), response.read())
    except urllib.error.HTTPError as refusal:
        return cryptcli.Response(refusal.code, dict(refusal.headers.items()), refusal.read())


class Recorder:
    """Gives one result to each request."""

    def __init__(self, result: Callable[[], cryptcli.Response]) -> None:
        self.requests: List[cryptcli.Request] = []
        self._result = result

    def __call__(self, request: cryptcli.Request) -> cryptcli.Response:
        self.requests.append(request)
        return self._result()


def encrypt(client: cryptcli.Client) -> cryptcli.Report:
    return client.encrypt(ROOM, io.BytesIO(CONTENT), io.BytesIO())


def test_a_transport_carries_whole_operations(make_client: MakeClient, protected: Path) -> None:
    threads = set()

    def carry(request: cryptcli.Request) -> cryptcli.Response:
        threads.add(threading.get_ident())
        return send(request)

    target = io.BytesIO()
    report = make_client(transport=carry).decrypt(ROOM, protected, target)
    assert target.getvalue() == CONTENT
    assert report.origin is cryptcli.Origin.PROVEN
    assert len(threads) == 1


def test_the_request_has_credentials_and_timeouts(make_client: MakeClient) -> None:
    recorder = Recorder(lambda: cryptcli.Response(200, {}, b"{}"))
    client = make_client(
        service="https://crypt.example/api",
        transport=recorder,
        headers={"Authorization": "Bearer 7"},
        connect_timeout=1.5,
        timeout=2,
    )
    with pytest.raises(cryptcli.ServerError):
        encrypt(client)
    request = recorder.requests[0]
    assert (request.method, request.url) == ("GET", "https://crypt.example/api/crypt/key/demo")
    assert ("Authorization", "Bearer 7") in request.headers
    assert (request.connect_timeout, request.timeout) == (1.5, 2.0)
    assert request.body == b""


def test_credentials_are_kept_from_key_servers(environment: Environment, make_client: MakeClient) -> None:
    recorder = Recorder(lambda: cryptcli.Response(500))
    client = make_client(transport=recorder, headers={"Authorization": "Bearer 7"})
    with pytest.raises(cryptcli.Error):
        client.perform("GetAuditLog", {"keyserver": environment.key_servers, "group": "g"})
    assert recorder.requests
    for request in recorder.requests:
        assert not request.url.startswith(environment.service)
        assert "Bearer 7" not in dict(request.headers).values()


def test_an_os_error_is_a_failed_exchange(make_client: MakeClient) -> None:
    def fail() -> cryptcli.Response:
        raise ConnectionError("the cable is cut")

    with pytest.raises(cryptcli.Unreachable, match="the cable is cut") as caught:
        encrypt(make_client(transport=Recorder(fail)))
    assert isinstance(caught.value.__cause__, ConnectionError)
    assert caught.value.retryable is True


@pytest.mark.parametrize("failure", [TimeoutError("too slow"), urllib.error.URLError(TimeoutError("too slow"))])
def test_a_timeout_is_distinguished_from_a_broken_connection(make_client: MakeClient, failure: OSError) -> None:
    def fail() -> cryptcli.Response:
        raise failure

    with pytest.raises(cryptcli.Timeout, match="too slow"):
        encrypt(make_client(transport=Recorder(fail)))


def test_a_failed_exchange_leads_to_the_next_key_server(
    environment: Environment, make_client: MakeClient, protected: Path
) -> None:
    failed: Dict[str, int] = {}

    def carry(request: cryptcli.Request) -> cryptcli.Response:
        at_key_server = not request.url.startswith(environment.service)
        if at_key_server and not failed:
            failed[request.url] = 1
            raise ConnectionError("the cable is cut")
        return send(request)

    assert make_client(transport=carry).verify(ROOM, protected).origin is cryptcli.Origin.PROVEN
    assert failed


def test_any_other_exception_reaches_the_caller(make_client: MakeClient) -> None:
    def fail() -> cryptcli.Response:
        raise LookupError("a defect")

    recorder = Recorder(fail)
    with pytest.raises(LookupError, match="a defect"):
        encrypt(make_client(transport=recorder))
    assert len(recorder.requests) == 1


@pytest.mark.parametrize("status", [0, 7, 1000, -1, 2**32 + 200])
def test_an_invalid_status_is_an_error(make_client: MakeClient, status: int) -> None:
    with pytest.raises(cryptcli.Internal, match="response cannot be taken"):
        encrypt(make_client(transport=Recorder(lambda: cryptcli.Response(status))))


def test_a_header_with_a_nul_is_an_error(make_client: MakeClient) -> None:
    with pytest.raises(cryptcli.InvalidArgument, match="NUL"):
        encrypt(make_client(transport=Recorder(lambda: cryptcli.Response(200, {"Date": "a\0b"}))))


def test_a_result_that_is_no_response_is_an_error(make_client: MakeClient) -> None:
    nothing: Any = lambda request: None
    with pytest.raises(AttributeError):
        encrypt(make_client(transport=nothing))


def test_a_body_can_come_in_chunks(make_client: MakeClient, protected: Path) -> None:
    def carry(request: cryptcli.Request) -> cryptcli.Response:
        response = send(request)
        assert isinstance(response.body, bytes)
        return cryptcli.Response(response.status, response.headers, chunks(response.body))

    def chunks(body: bytes) -> Iterator[bytes]:
        for start in range(0, len(body), 7):
            yield body[start : start + 7]

    assert make_client(transport=carry).verify(ROOM, protected).origin is cryptcli.Origin.PROVEN
