"""A transport that replays what cryptstand has recorded."""

from __future__ import annotations

import base64
import json
import threading
from dataclasses import dataclass
from typing import Any, Dict, List, Optional, Tuple, Union

from .._arguments import AnyPath
from .._transport import Request, Response

_VERSION = 1


class NoRecording(ValueError):
    """A file is not a recording of a version that is understood."""


class NotRecorded(ConnectionError):
    """A request has no response in the recording. The message names it, and what would have come next."""


@dataclass(frozen=True)
class _Question:
    """What decides whether a recorded response fits a request."""

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
    same method and path, and with the same type of command. Of several, one whose request has the same body is taken
    first, otherwise the oldest. Each is used once; only the last response to a GET of a key server, which is its
    status or a list, is repeated. A client starts at a random key server, so the key servers share their responses.

    What a client computes itself from random numbers and its own clock is not in a recording. So opening, verifying
    and operations on keys replay to the same end. Protecting a file does not: its signature covers the time of signing.
    """

    def __init__(self, path: AnyPath) -> None:
        """Reads the recording. Raises OSError, or NoRecording. A last line that is not whole is left out."""
        #: The URL of the crypt service that was recorded; a client needs it.
        self.service = ""
        self.key_servers: Tuple[str, ...] = ()
        self._servers: List[Tuple[str, bool]] = []
        self._exchanges: List[_Exchange] = []
        self._lock = threading.Lock()
        self._read(path)

    @property
    def unused(self) -> int:
        """How many exchanges no request has asked for yet."""
        with self._lock:
            return sum(not exchange.used for exchange in self._exchanges)

    def __call__(self, request: Request) -> Response:
        question = self._ask(request)
        with self._lock:
            found = None if question is None else self._find(question, request.body)
            if found is None:
                wanted = f"{request.method} {request.url}, a server that it does not name"
                raise NotRecorded(self._explain_missing(wanted if question is None else str(question)))
            found.used = True
        if found.response.status == 0:
            raise ConnectionError("The recorded connection ended without a response")
        if not found.whole:
            raise ConnectionError("The recorded response was cut off")
        return found.response

    def _read(self, path: AnyPath) -> None:
        torn: Optional[str] = None
        with open(path, "rb") as file:
            # Not splitlines(): a JSON string may contain what ends a line elsewhere.
            for number, text in enumerate(file, 1):
                line = _parse(text)
                if line is not None and "recording" in line:
                    self._start(line)
                    torn = None
                    continue
                if torn is not None:
                    break
                exchange = _read_exchange(line) if line is not None and self._servers else None
                # A line that is not whole is the last one, or the last one before the program was started again.
                if exchange is not None:
                    self._exchanges.append(exchange)
                elif not self._servers or text.endswith(b"\n"):
                    torn = f"line {number} is not that of a recording"
        if torn is not None or not self._servers:
            raise NoRecording(f"{path!s}: {torn or 'the file is empty'}")

    def _start(self, line: Dict[str, Any]) -> None:
        if line["recording"] != "cryptstand" or line.get("version") != _VERSION:
            raise NoRecording(f"version {line.get('version')} of recordings is not known")
        if not line.get("service"):
            raise NoRecording("the recording names no crypt service")
        # A recording that was continued has several starts; the client needs one address that leads here.
        if not self._servers:
            self.service = line["service"]
            self.key_servers = tuple(line.get("keyservers", ()))
        self._servers.append((line["service"].rstrip("/"), False))
        self._servers += [(url.rstrip("/"), True) for url in line.get("keyservers", ())]

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
    except ValueError:
        return None
    return value if isinstance(value, dict) else None


def _body(message: Dict[str, Any]) -> bytes:
    if "bodyBase64" in message:
        return base64.b64decode(message["bodyBase64"])
    return str(message.get("body", "")).encode()


def _question(at_key_server: bool, method: str, target: str, body: bytes) -> _Question:
    # A command names itself in its payload, a request for a token names the command that the token is for.
    members = _parse(body) or {}
    payload = members.get("payload")
    command = payload.get("type") if isinstance(payload, dict) else members.get("operation")
    return _Question(at_key_server, method, target.partition("?")[0], str(command or ""))


def _read_exchange(line: Dict[str, Any]) -> Optional[_Exchange]:
    try:
        request, response = line["request"], line["response"]
        body = _body(request)
        return _Exchange(
            question=_question(line["server"] != "crypt", line["method"], line["target"], body),
            body=body,
            response=Response(response["status"], dict(response.get("headers", ())), _body(response)),
            whole=response.get("isWhole", True),
            number=line["number"],
        )
    except (KeyError, TypeError, ValueError):
        return None
