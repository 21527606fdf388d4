"""The program cryptstand as a child process in a private directory."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
import tempfile
import time
from pathlib import Path
from types import TracebackType
from typing import Any, Dict, Optional, Sequence, Tuple, Type

# Names the program when a test does not.
VARIABLE = "CRYPTSTAND"
_STOP_SECONDS = 10


class NotStarted(Exception):
    """The program did not start, or is not running. The message includes what it wrote to standard error."""


class Environment:
    """A crypt service and key servers on free ports of this machine, with keys of their own.

        with Environment(rooms=["demo", "other"]) as environment:
            ...

    Used by one thread at a time. What it starts ends with `stop`, and so does the private directory.
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

    def start(self) -> Environment:
        """Starts the program and waits until all servers respond. A running one is stopped first."""
        self.stop()
        self._directory = Path(tempfile.mkdtemp(prefix="cryptstand-"))
        try:
            self._found = self._run(self._directory)
        except BaseException:
            self.stop()
            raise
        return self

    def stop(self) -> None:
        """Stops the program and removes its directory. Does nothing if it is not running."""
        process, self._process = self._process, None
        directory, self._directory = self._directory, None
        self._found = {}
        if process is not None:
            process.terminate()
            try:
                process.wait(_STOP_SECONDS)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        if directory is not None:
            shutil.rmtree(directory, ignore_errors=True)

    def __enter__(self) -> Environment:
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
    def directory(self) -> Path:
        """The private directory, where a test may keep files until `stop`."""
        self._member("service")
        assert self._directory is not None
        return self._directory

    def _member(self, name: str) -> Any:
        if not self._found:
            raise NotStarted("The test environment is not running")
        return self._found[name]

    def _run(self, directory: Path) -> Dict[str, Any]:
        urls = directory / "urls.json"
        command = [self._program, "--dir", str(directory / "state"), "--url-file", str(urls), *self._arguments]
        deadline = time.monotonic() + self._start_timeout
        with open(directory / "output", "wb") as output, open(directory / "errors", "wb") as errors:
            try:
                self._process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output, stderr=errors)
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
