"""The local test environment as the Python tests use it: the program cryptstand and its control interface."""

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


def fetch(url: str) -> Dict[str, Any]:
    """The JSON object at the URL."""
    return send(urllib.request.Request(url))


def send(request: urllib.request.Request) -> Dict[str, Any]:
    """The JSON object in the response."""
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
        self._token: str = found["token"]

    def stop(self) -> None:
        self._process.terminate()
        self._process.wait()
        self._log.close()

    def _change(self, method: str, resource: str, body: Any = None) -> None:
        headers = {"Content-Type": "application/json", "Authorization": "Bearer " + self._token}
        data = None if body is None else json.dumps(body).encode()
        send(urllib.request.Request(self.service + "stand/v1/" + resource, data, headers, method=method))

    def fault(self, server: Any, name: str, **details: Any) -> None:
        """Gives a fault to "crypt", to the key server with an index, or to "key servers", that is all of them."""
        named = "all" if server == "key servers" else server
        self._change("POST", "faults", {"server": named, "fault": name, **details})

    def room(self, room: str, **options: Any) -> None:
        """Adds the room or changes its options."""
        self._change("POST", "rooms", {"room": room, **options})

    def lists(self, **lists: str) -> None:
        """Changes the lists of certificates that the servers give out; what is not named is normal."""
        self._change("PUT", "lists", {"certstore": None, "truststore": None, "integrity": "normal", **lists})

    def room_key(self, room: str) -> Dict[str, Any]:
        """What the crypt service says about the room's key: "certificate", and "plain" for a plain key."""
        return fetch(self.service + "crypt/key/" + room)

    def requests(self) -> int:
        """How many requests the servers have seen, also those that the log no longer keeps."""
        return int(fetch(self.service + "stand/v1/events?limit=1")["last"])

    def clear(self) -> None:
        """Ends all faults."""
        self.lists()
        self._change("DELETE", "faults")
