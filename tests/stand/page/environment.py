"""The local test environment and the command, as somebody runs them who has the page open."""

from __future__ import annotations

import os
import random
import socket
import subprocess
import urllib.error
import urllib.request
from pathlib import Path
from typing import Any, Optional

import cryptcli.testing

# Whatever proxy the environment names, the servers are on this machine.
_OPENER = urllib.request.build_opener(urllib.request.ProxyHandler({}))


def free_port() -> int:
    """A port that is free and has three free ones after it, below those that systems give to clients."""
    for port in random.sample(range(15000, 30000, 4), 100):
        try:
            for one in range(port, port + 4):
                with socket.socket() as probe:
                    probe.bind(("127.0.0.1", one))
            return port
        except OSError:
            continue
    raise RuntimeError("no free ports")


class Environment(cryptcli.testing.Environment):
    """A running cryptstand with its page."""

    @property
    def token(self) -> str:
        return str(self._member("token"))

    @property
    def page(self) -> str:
        """The address of the page, with the token, as the program prints it."""
        return str(self._member("page"))

    @property
    def proxy(self) -> str:
        """The URL of the proxy that --proxy starts."""
        return str(self._member("proxy"))

    def call(self, method: str, path: str, body: Optional[Any] = None) -> Any:
        """Asks the control interface, past the page."""
        return self.control(method, "/stand/v1/" + path, body)

    def get(self, path: str) -> None:
        """Asks the crypt service, whatever it responds."""
        try:
            _OPENER.open(self.service + path, timeout=60).close()
        except urllib.error.HTTPError:
            pass


class Command:
    """Runs cryptcli in a folder with a file to protect."""

    def __init__(self, environment: Environment, folder: Path) -> None:
        self._service = environment.service
        self.folder = folder
        (folder / "plain").write_bytes(b"the plain bytes of a file")

    def run(self, verb: str, source: str, target: str, room: str, *options: str) -> subprocess.CompletedProcess[str]:
        arguments = ["--service", self._service, "--room", room, "--force", *options]
        return subprocess.run(
            [os.environ["CRYPTCLI"], verb, *arguments, self.folder / source, self.folder / target],
            capture_output=True,
            text=True,
            timeout=60,
            check=False,
        )

    def protect(self, room: str = "demo", *options: str) -> subprocess.CompletedProcess[str]:
        return self.run("encrypt", "plain", "protected.p7m", room, *options)

    def open(self, room: str = "demo", *options: str) -> subprocess.CompletedProcess[str]:
        return self.run("decrypt", "protected.p7m", "opened", room, *options)

    def meets(self, reason: str, verb: str, source: str, target: str, room: str = "demo") -> bool:
        """Whether the trace gives this reason, with which the command may have ended or not: a client has its own
        means against some faults."""
        arguments = ["--service", self._service, "--room", room, "--force", "--trace", "1"]
        command = [os.environ["CRYPTCLI"], verb, *arguments, self.folder / source, self.folder / target]
        with subprocess.Popen(command, stderr=subprocess.PIPE, stdout=subprocess.DEVNULL, text=True) as process:
            assert process.stderr is not None
            found = any(reason in line for line in process.stderr)
            process.terminate()
        return found
