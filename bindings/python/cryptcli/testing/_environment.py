"""The program cryptstand as a child process in a private directory, and its control interface."""

from __future__ import annotations

import contextlib
import json
import os
import shutil
import ssl
import subprocess
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request
from pathlib import Path
from types import TracebackType
from typing import Any, Dict, Iterator, List, Optional, Sequence, Tuple, Type, TypeVar, Union

# Names the program when a test does not.
VARIABLE = "CRYPTSTAND"
_STOP_SECONDS = 10
_CONTROL_SECONDS = 60

#: A server as the control interface names it: "crypt", the index of a key server, its URL, or "all" key servers.
Server = Union[str, int]

_Self = TypeVar("_Self", bound="Environment")  # a subclass starts as itself


class NotStarted(Exception):
    """The program did not start, or is not running. The message includes what it wrote to standard error."""


class ControlError(Exception):
    """The control interface refused a request.

    status   the HTTP status
    member   the member of the request that is wrong; empty if none is
    allowed  what it may be, where that can be listed
    """

    def __init__(self, message: str, *, status: int, member: str = "", allowed: Sequence[str] = ()) -> None:
        super().__init__(message)
        self.status = status
        self.member = member
        self.allowed = tuple(allowed)


class Environment:
    """A crypt service and key servers on free ports of this machine, with keys of their own.

        with Environment(rooms=["demo", "other"]) as environment:
            ...

    Used by one thread at a time. `stop` ends the program and removes its private directory.
    """

    def __init__(
        self,
        *,
        program: Optional[str] = None,
        key_servers: int = 3,
        rooms: Sequence[str] = ("demo",),
        arguments: Sequence[str] = (),
        start_timeout: float = 60,
    ) -> None:
        """Starts nothing yet.

        program        the program; unless given, what the variable CRYPTSTAND says, or cryptstand in PATH
        rooms          identifiers of the rooms; further ones can be made later
        arguments      further options of the program (cryptstand --help)
        start_timeout  seconds until all servers have to respond; the keys of a new environment take a moment
        """
        self._program = program or os.environ.get(VARIABLE) or "cryptstand"
        self._arguments = ["--key-servers", str(key_servers)]
        for room in rooms:
            self._arguments += ["--room", room]
        self._arguments += arguments
        self._start_timeout = start_timeout
        self._process: Optional[subprocess.Popen[bytes]] = None
        self._directory: Optional[Path] = None
        self._found: Dict[str, Any] = {}
        self._restarted = False

    def start(self: _Self) -> _Self:
        """Starts the program and waits until all servers respond. A running one is stopped first."""
        self.stop()
        self._restarted = False
        self._directory = Path(tempfile.mkdtemp(prefix="cryptstand-"))
        try:
            self._found = self._run(self._directory)
        except BaseException:
            self.stop()
            raise
        return self

    def stop(self) -> None:
        """Stops the program and removes its directory. Does nothing if it is not running."""
        self._end_program()
        directory, self._directory = self._directory, None
        if directory is not None:
            shutil.rmtree(directory, ignore_errors=True)

    def crash(self) -> None:
        """Kills the program: no server responds until `restart` or `start`. Keeps its directory."""
        self._member("service")
        if self._process is not None:
            self._process.kill()
            self._process.wait()

    def restart(self) -> None:
        """Ends the program and starts it again with the same rooms, groups and keys, as after an outage.

        The servers get other ports unless `arguments` has --port. From then on, `reset` goes back to the state after
        this restart; for that of a new environment, `start`.
        """
        directory = self.directory
        self._end_program()
        self._restarted = True
        with contextlib.suppress(FileNotFoundError):  # the program has removed it, unless it crashed
            (directory / "urls.json").unlink()
        try:
            self._found = self._run(directory)
        except BaseException:
            self.stop()
            raise

    def __enter__(self: _Self) -> _Self:
        return self if self.running else self.start()

    def __exit__(
        self,
        exception_type: Optional[Type[BaseException]],
        exception: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        self.stop()

    @property
    def running(self) -> bool:
        return self._process is not None and self._process.poll() is None

    @property
    def restarted(self) -> bool:
        """Whether `restart` was called since `start`, so that `reset` does not bring back the state after `start`."""
        return self._restarted

    @property
    def service(self) -> str:
        """The base URL of the crypt service."""
        return str(self._member("service"))

    @property
    def key_servers(self) -> Tuple[str, ...]:
        """The URLs of the key servers."""
        return tuple(self._member("keyservers"))

    @property
    def rooms(self) -> Tuple[str, ...]:
        """The rooms that were there after the start."""
        return tuple(self._member("rooms"))

    @property
    def room(self) -> str:
        """The first room."""
        return self.rooms[0]

    @property
    def tls(self) -> Dict[str, Path]:
        """With --tls, arguments of Client: `Client(environment.service, **environment.tls)`. Otherwise empty.

        `ca_file`, and with --client-ca make also `client_certificate` and `client_key`.
        """
        self._member("service")
        names = {"ca_file": "caFile", "client_certificate": "clientCertificate", "client_key": "clientKey"}
        return {name: Path(self._found[member]) for name, member in names.items() if member in self._found}

    @property
    def directory(self) -> Path:
        """The private directory, where a test may keep files until `stop`."""
        self._member("service")
        assert self._directory is not None
        return self._directory

    def control(self, method: str, path: str, body: Any = None) -> Any:
        """Sends a request to the control interface, which `control("GET", "/stand/")` describes, and returns the JSON.

            environment.control("PUT", "/stand/v1/clocks", {"server": "crypt", "seconds": 86400})

        Raises ControlError if it is refused, and OSError if there is no response.
        """
        data = None if body is None else json.dumps(body).encode()
        headers = {"Content-Type": "application/json", "Authorization": f"Bearer {self._member('token')}"}
        request = urllib.request.Request(self.service.rstrip("/") + path, data, headers, method=method)
        try:
            with self._opener().open(request, timeout=_CONTROL_SECONDS) as response:
                return json.load(response)
        except urllib.error.HTTPError as refusal:
            raise _read_refusal(refusal) from None

    def reset(self) -> None:
        """Brings back the state after the start: no faults, the first rooms without keys, clocks and lists in order.

        After `restart` that is the state after the restart: rooms, keys and options from before it stay.
        """
        self.control("POST", "/stand/v1/reset", {})

    def server_down(self, server: Server) -> None:
        """Closes a key server's socket: connections are refused until `server_up`."""
        self.control("POST", "/stand/v1/faults", {"server": server, "fault": "down"})

    def server_up(self, server: Server) -> None:
        """Brings a server up and ends all of its faults."""
        self.control("DELETE", "/stand/v1/faults?" + urllib.parse.urlencode({"server": server}))

    @contextlib.contextmanager
    def fault(self, server: Server, fault: str, **members: Any) -> Iterator[None]:
        """Sets a fault for the time of a block.

            with environment.fault("all", "bad-signature", operation="signRequest"):
                ...

        members  further members of the fault: operation, uses, number, text, probability. All faults and their members
                 are listed by `control("GET", "/stand/v1/faults")`
        """
        made = self.control("POST", "/stand/v1/faults", {"server": server, "fault": fault, **members})
        process = self._process
        try:
            yield
        finally:
            # A program that has ended took its faults with it; the next one gives their identifiers to others.
            is_same = self._process is process and self.running
            for number in _identifiers(made) if is_same else []:
                with contextlib.suppress(ControlError):  # a fault that was used up is gone
                    self.control("DELETE", f"/stand/v1/faults/{number}")

    def _end_program(self) -> None:
        process, self._process = self._process, None
        self._found = {}
        if process is None:
            return
        if process.stdin is not None:
            process.stdin.close()
        process.terminate()
        try:
            process.wait(_STOP_SECONDS)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()

    def _opener(self) -> urllib.request.OpenerDirector:
        # Without the proxy that environment variables name: the servers are on this machine.
        handlers: List[urllib.request.BaseHandler] = [urllib.request.ProxyHandler({})]
        if self._found.get("caFile"):
            trusted = ssl.create_default_context(cafile=self._found["caFile"])
            if self._found.get("clientCertificate"):
                trusted.load_cert_chain(self._found["clientCertificate"], self._found["clientKey"])
            handlers.append(urllib.request.HTTPSHandler(context=trusted))
        return urllib.request.build_opener(*handlers)

    def _member(self, name: str) -> Any:
        if not self._found:
            raise NotStarted("The test environment is not running")
        return self._found[name]

    def _run(self, directory: Path) -> Dict[str, Any]:
        urls = directory / "urls.json"
        command = [self._program, "--dir", str(directory / "state"), "--url-file", str(urls), "--stop-at-eof"]
        command += self._arguments
        deadline = time.monotonic() + self._start_timeout
        with open(directory / "output", "wb") as output, open(directory / "errors", "wb") as errors:
            try:
                # The pipe closes when this process ends, even by a crash, and then the program ends as well.
                self._process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=output, stderr=errors)
            except OSError as failure:
                raise NotStarted(f"{self._program} cannot be started: {failure.strerror}") from failure
        # The program renames the finished file to its name, so it is whole as soon as it exists.
        while not urls.exists():
            running = self.running
            if not running or time.monotonic() > deadline:
                reason = "is not ready in time" if running else "ended before it was ready"
                written = (directory / "errors").read_text(errors="replace")
                raise NotStarted(f"{self._program} {reason}: {written}")
            time.sleep(0.02)
        found = json.loads(urls.read_text())
        assert isinstance(found, dict)
        return found


def _read_refusal(refusal: urllib.error.HTTPError) -> ControlError:
    text = refusal.read().decode("utf-8", "replace")
    try:
        error = json.loads(text)["error"]
        return ControlError(
            error["message"],
            status=refusal.code,
            member=error.get("member") or "",
            allowed=error.get("allowed") or (),
        )
    except (ValueError, KeyError, TypeError):
        return ControlError(text or str(refusal), status=refusal.code)


def _identifiers(made: Dict[str, Any]) -> List[int]:
    """Of the faults that a request has set: one, or one for each server."""
    return list(made["ids"]) if "ids" in made else [made["id"]]
