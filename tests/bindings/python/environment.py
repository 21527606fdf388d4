"""The local test environment as the Python tests use it: the program cryptstand and its control path."""

from __future__ import annotations

import json
import os
import subprocess
import time
import urllib.request
from pathlib import Path
from typing import Any, Dict, List

ROOM = "demo"
GROUP = "QOB.1.100.1"

# Whatever proxy the environment names, the servers are on this machine.
_OPENER = urllib.request.build_opener(urllib.request.ProxyHandler({}))
_START_SECONDS = 60


def fetch(url: str, body: Any = None) -> Dict[str, Any]:
    """The JSON object at the URL; with a body, of a POST."""
    data = None if body is None else json.dumps(body).encode()
    request = urllib.request.Request(url, data, {"Content-Type": "application/json"})
    with _OPENER.open(request, timeout=60) as response:
        result = json.load(response)
    assert isinstance(result, dict)
    return result


class Environment:
    """A running cryptstand, with its folder below `folder`."""

    def __init__(self, folder: Path) -> None:
        urls = folder / "urls.json"
        self._log = open(folder / "stand.log", "wb")
        self._process = subprocess.Popen(
            [os.environ["CRYPTSTAND"], "--dir", folder / "stand", "--url-file", urls],
            stdout=self._log,
            stderr=self._log,
        )
        deadline = time.monotonic() + _START_SECONDS
        while not urls.exists():
            if self._process.poll() is not None or time.monotonic() > deadline:
                self.stop()
                raise RuntimeError((folder / "stand.log").read_text())
            time.sleep(0.05)
        found = json.loads(urls.read_text())
        self.service: str = found["service"]
        self.key_servers: List[str] = found["keyservers"]
        self._servers = ["crypt", *range(len(self.key_servers))]

    def stop(self) -> None:
        self._process.terminate()
        self._process.wait()
        self._log.close()

    def fault(self, server: Any, name: str, **details: Any) -> None:
        """Gives a fault to "crypt", to the key server with an index, or to "key servers", that is all of them."""
        for one in range(len(self.key_servers)) if server == "key servers" else [server]:
            fetch(self.service + "stand/fault", {"server": one, "fault": name, **details})

    def room(self, room: str, **options: Any) -> None:
        """Adds the room or changes its options."""
        fetch(self.service + "stand/room", {"room": room, **options})

    def lists(self, **lists: str) -> None:
        """Changes the lists of certificates that the servers give out; what is not named is normal."""
        fetch(self.service + "stand/lists", lists)

    def room_key(self, room: str) -> Dict[str, Any]:
        """What the crypt service says about the room's key: "certificate", and "plain" for a plain key."""
        return fetch(self.service + "crypt/key/" + room)

    def requests(self) -> int:
        """How many requests the servers have seen."""
        return len(fetch(self.service + "stand/events")["events"])

    def clear(self) -> None:
        """Ends all faults."""
        self.lists()
        for server in self._servers:
            self.fault(server, "none")
