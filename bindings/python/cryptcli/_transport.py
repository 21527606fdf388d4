"""A transport of the application's own: a callable that gets a Request and returns a Response."""

from __future__ import annotations

import ctypes
import socket
from dataclasses import dataclass, field
from typing import Any, Callable, Iterable, Mapping, Tuple, Union

from ._arguments import encode
from ._errors import Internal, Status
from ._library import TransportCallback, lib
from ._operation import Operations


@dataclass(frozen=True)
class Request:
    """One HTTP request that a transport carries out."""

    method: str
    url: str
    #: Names and values, in their order.
    headers: Tuple[Tuple[str, str], ...]
    body: bytes
    #: Seconds that connecting, and the whole exchange, may take.
    connect_timeout: float
    timeout: float


@dataclass(frozen=True)
class Response:
    """What came back: the HTTP status, whatever it is, the headers and the body."""

    status: int
    headers: Mapping[str, str] = field(default_factory=dict)
    #: Bytes, or chunks of them: an audit log can be larger than memory.
    body: Union[bytes, Iterable[bytes]] = b""


#: Carries out a request and blocks until that has ended; called on many threads at once. It must not follow
#: redirects, and should keep to the timeouts: nothing cancels it while it blocks. An OSError, which the standard
#: library's clients raise, means that there was no exchange: the library then tries the next server, if there is one.
#: A TimeoutError becomes Timeout, any other OSError becomes Unreachable. Any other exception cancels the operation,
#: which raises it.
Transport = Callable[[Request], Response]


def make_callback(transport: Transport, operations: Operations) -> Any:
    """The C callback for a transport of the client whose operations these are."""

    def send(_context: int, request: int, response: int) -> int:
        operation = operations.current()
        try:
            result = _fill(response, transport(_read(request)))
            if operation is not None:
                operation.transport_failure = None
            return result
        except OSError as failure:
            if operation is not None:
                operation.transport_failure = failure
            lib.response_set_error(response, _message(failure))
            if _is_timeout(failure):
                lib.response_set_error_code(response, Status.TIMEOUT)
        except BaseException as exception:
            if operation is None:
                raise
            operation.stop(exception)
        return -1

    return TransportCallback(send)


def _is_timeout(failure: OSError) -> bool:
    # socket.timeout is a class of its own before Python 3.10, and urllib wraps it.
    return any(isinstance(cause, (TimeoutError, socket.timeout)) for cause in (failure, getattr(failure, "reason", None)))


def _message(failure: OSError) -> bytes:
    message = str(failure) or type(failure).__name__
    return message.replace("\0", " ").encode("utf-8", "replace")


def _read(request: int) -> Request:
    size = ctypes.c_size_t()
    body = lib.request_body(request, ctypes.byref(size))
    return Request(
        method=lib.request_method(request).decode(),
        url=lib.request_url(request).decode("utf-8", "replace"),
        headers=tuple(
            (
                lib.request_header_name(request, index).decode("utf-8", "replace"),
                lib.request_header_value(request, index).decode("utf-8", "replace"),
            )
            for index in range(lib.request_header_count(request))
        ),
        body=ctypes.string_at(body, size.value) if body else b"",
        connect_timeout=lib.request_connect_timeout(request) / 1000,
        timeout=lib.request_timeout(request) / 1000,
    )


def _fill(target: int, response: Response) -> int:
    # ctypes would drop the upper bits of a number that is too large, and could make a valid status of it.
    status = response.status if 0 < response.status < 1000 else 0
    results = [lib.response_set_status(target, status)]
    for name, value in response.headers.items():
        results.append(lib.response_add_header(target, encode(name, "A header"), encode(value, "A header")))
    body = response.body
    for chunk in (body,) if isinstance(body, (bytes, bytearray, memoryview)) else body:
        copy = bytes(chunk)
        results.append(lib.response_append_body(target, copy, len(copy)))
    if any(results):
        raise Internal("The transport's response cannot be taken: an invalid status, or too large a body")
    return 0
