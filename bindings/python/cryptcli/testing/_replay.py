"""A transport that replays what cryptstand has recorded."""

from __future__ import annotations

import base64
import json
import threading
from dataclasses import dataclass
from typing import Any, Dict, List, Optional, Tuple, Type, TypeVar, Union

from .._arguments import AnyPath
from .._transport import Request, Response

_VERSION = 1
_Type = TypeVar("_Type")


class _Malformed(ValueError):
    """A member of a line is missing or has another type or value than recordings have."""


class NoRecording(ValueError):
    """A file is not a recording of a version that is understood."""


class NotRecorded(ConnectionError):
    """The recording has no response to a request. The message names the request and the next recorded exchange."""


@dataclass(frozen=True)
class _Question:
    """The properties by which a recorded response is found for a request."""

    at_key_server: bool
    method: str
    #: Without the query, which is a random number.
    path: str
    #: The type of a key server's command, also of that which a token is for.
    command: str

    def __str__(self) -> str:
        about = f" ({self.command})" if self.command else ""
        return f"{self.method} {self.path}{about} of {'a key server' if self.at_key_server else 'the crypt service'}"


@dataclass
class _Exchange:
    question: _Question
    #: As _compared() returns it.
    body: bytes
    response: Response
    whole: bool
    number: int
    used: bool = False


class Replay:
    """Responds to a client as the servers of a recording (cryptstand --record FILE) did.

        replay = Replay("failure.jsonl")
        with cryptcli.Client(replay.service, transport=replay) as client:
            client.decrypt("demo", "report.p7m", "report.pdf")  # fails as it did there

    A recorded exchange is a response to one request: to the same type of server, crypt service or key server, with the
    same method and path, and with the same type of command. Of several, the oldest whose request has the same body is
    taken first, otherwise the oldest. Each is used once; only the last response to a GET of a key server, which is its
    status or a list, is repeated. A client starts at a random key server, so the key servers share their responses, and
    the key server that a body names is not compared, nor are queries and headers. So the same calls in the same order,
    from the first one of the recording, meet the same responses.

    What a client computes itself from random numbers and its own clock is not in a recording. So opening, verifying
    and operations on keys replay to the same end. Protecting a file does not: its signature covers the time of signing.
    """

    def __init__(self, path: AnyPath, *, after: Optional[int] = None) -> None:
        """Reads the recording. Raises OSError, or NoRecording. A last line that is not whole is left out.

        after  only exchanges with greater numbers than this, for a failure late in a recording. The log of events has
               the same numbers; they begin at 1 with each start of the program, and this one counts in the last start.
               All exchanges of all starts if it is None
        """
        #: The URL of the crypt service that was recorded; a client needs it. That of the first start, unless `after`
        #: chose the last one.
        self.service = ""
        self.key_servers: Tuple[str, ...] = ()
        self._servers: List[Tuple[str, bool]] = []
        self._exchanges: List[_Exchange] = []
        self._lock = threading.Lock()
        self._read(path, after)

    @property
    def unused(self) -> int:
        """The number of recorded exchanges that were not replayed yet."""
        with self._lock:
            return sum(not exchange.used for exchange in self._exchanges)

    def __call__(self, request: Request) -> Response:
        question = self._ask(request)
        with self._lock:
            found = None if question is None else self._find(question, _compared(request.body))
            if found is None:
                wanted = f"{request.method} {request.url}, a server that it does not name"
                raise NotRecorded(self._explain_missing(wanted if question is None else str(question)))
            found.used = True
        if found.response.status == 0:
            raise ConnectionError("The recorded connection ended without a response")
        if not found.whole:
            raise ConnectionError("The recorded response was cut off")
        return found.response

    def _read(self, path: AnyPath, after: Optional[int]) -> None:
        torn: Optional[str] = None
        with open(path, "rb") as file:
            # Not splitlines(): a JSON string may contain what ends a line elsewhere.
            for number, text in enumerate(file, 1):
                line = _parse(text)
                if line is not None and "recording" in line:
                    if after is not None:  # numbers begin again with each start
                        self._servers, self._exchanges = [], []
                    self._start(line)
                    torn = None
                    continue
                if torn is not None:
                    break
                exchange = _read_exchange(line) if line is not None and self._servers else None
                # A line that is not whole is the last one, or the last one before the program was started again.
                if exchange is not None:
                    if after is None or exchange.number > after:
                        self._exchanges.append(exchange)
                elif not self._servers or text.endswith(b"\n"):
                    torn = f"line {number} is not that of a recording"
        if torn is not None or not self._servers:
            raise NoRecording(f"{path!s}: {torn or 'the file is empty'}")

    def _start(self, line: Dict[str, Any]) -> None:
        if line["recording"] != "cryptstand" or line.get("version") != _VERSION:
            raise NoRecording(f"version {line.get('version')} of recordings is not known")
        service, key_servers = line.get("service"), line.get("keyservers", [])
        if not isinstance(service, str) or not service:
            raise NoRecording("the recording names no crypt service")
        if not isinstance(key_servers, list) or not all(isinstance(url, str) and url for url in key_servers):
            raise NoRecording("the recording has no list of key servers")
        # A recording that was continued has several starts; the client needs one address that leads here.
        if not self._servers:
            self.service = service
            self.key_servers = tuple(key_servers)
        self._servers.append((service.rstrip("/"), False))
        self._servers += [(url.rstrip("/"), True) for url in key_servers]

    def _ask(self, request: Request) -> Optional[_Question]:
        for server, at_key_server in self._servers:
            target = request.url[len(server) :]
            if request.url.startswith(server) and target[:1] in ("", "/"):
                return _question(at_key_server, request.method, target, request.body)
        return None

    def _find(self, question: _Question, body: bytes) -> Optional[_Exchange]:
        matching = [exchange for exchange in self._exchanges if exchange.question == question]
        unused = [exchange for exchange in matching if not exchange.used]
        for exchange in unused:
            if exchange.body == body:
                return exchange
        if unused:
            return unused[0]
        # A client asks for status and lists as often as it likes.
        repeated = question.at_key_server and question.method == "GET"
        return matching[-1] if matching and repeated else None

    def _explain_missing(self, wanted: str) -> str:
        for exchange in self._exchanges:
            if not exchange.used:
                after = f"; the next exchange in it is number {exchange.number}, {exchange.question}"
                break
        else:
            after = ", and no other exchange"
        return f"The recording has no response left to {wanted}{after}"


def _parse(text: Union[bytes, str]) -> Optional[Dict[str, Any]]:
    try:
        value = json.loads(text)
    except (ValueError, RecursionError):  # the latter from a line that is nested thousands of levels deep
        return None
    return value if isinstance(value, dict) else None


def _member(line: Dict[str, Any], name: str, wanted: Type[_Type], *default: _Type) -> _Type:
    """A member of exactly that type: to isinstance() a bool is an integer. Raises _Malformed."""
    value = line.get(name, *default)
    if type(value) is not wanted:
        raise _Malformed(name)
    return value


def _body(message: Dict[str, Any]) -> bytes:
    if "bodyBase64" in message:
        return base64.b64decode(_member(message, "bodyBase64", str), validate=True)
    return _member(message, "body", str, "").encode()


def _headers(message: Dict[str, Any]) -> Dict[str, str]:
    headers = _member(message, "headers", list, [])
    for header in headers:
        if type(header) is not list or len(header) != 2 or not all(type(text) is str for text in header):
            raise _Malformed("headers")
    return dict(headers)


def _status(response: Dict[str, Any]) -> int:
    status = _member(response, "status", int)
    # 0 is a connection that ended without a response.
    if status != 0 and not 100 <= status <= 999:
        raise _Malformed("status")
    return status


def _question(at_key_server: bool, method: str, target: str, body: bytes) -> _Question:
    # A command names itself in its payload, a request for a token names the command that the token is for.
    members = _parse(body) or {}
    payload = members.get("payload")
    command = payload.get("type") if isinstance(payload, dict) else members.get("operation")
    return _Question(at_key_server, method, target.partition("?")[0], str(command or ""))


def _compared(body: bytes) -> bytes:
    """A request's body without the URL of the key server in it. The client has chosen that at random: a request that is
    sent again must not look like another one."""
    members = _parse(body)
    if members is None or "keyserver" not in members:
        return body
    return json.dumps({**members, "keyserver": ""}).encode()


def _read_exchange(line: Dict[str, Any]) -> Optional[_Exchange]:
    try:
        request, response = _member(line, "request", dict), _member(line, "response", dict)
        body, at_key_server = _body(request), _member(line, "server", str) != "crypt"
        return _Exchange(
            question=_question(at_key_server, _member(line, "method", str), _member(line, "target", str), body),
            body=_compared(body),
            response=Response(_status(response), _headers(response), _body(response)),
            whole=_member(response, "isWhole", bool, True),
            number=_member(line, "number", int),
        )
    except ValueError:
        return None
