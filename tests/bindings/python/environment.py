"""The local test environment of the Python tests: one for all of them. Each test ends its faults and room options."""

from __future__ import annotations

import json
import urllib.request
from typing import Any, Dict

import cryptcli.testing

ROOM = "demo"
GROUP = "QOB.1.100.1"

# Without the proxy that the environment variables name: the servers are on this machine.
_OPENER = urllib.request.build_opener(urllib.request.ProxyHandler({}))


class Environment(cryptcli.testing.Environment):
    """A running cryptstand, with the controls that several tests need."""

    def set_fault(self, server: Any, name: str, **details: Any) -> None:
        """Sets a fault of "crypt", of the key server with an index, or of all "key servers"."""
        named = "all" if server == "key servers" else server
        self.control("POST", "/stand/v1/faults", {"server": named, "fault": name, **details})

    def make_room(self, room: str, **options: Any) -> None:
        """Adds the room or changes its options."""
        self.control("POST", "/stand/v1/rooms", {"room": room, **options})

    def set_lists(self, **lists: str) -> None:
        """Changes the lists of certificates that the servers hand out. A list that is not named is normal."""
        normal = {"certstore": None, "truststore": None, "integrity": "normal"}
        self.control("PUT", "/stand/v1/lists", {**normal, **lists})

    def room_key(self, room: str) -> Dict[str, Any]:
        """What the crypt service says about the room's key: "certificate", and "plain" for a plain key."""
        with _OPENER.open(self.service + "crypt/key/" + room, timeout=60) as response:
            result = json.load(response)
        assert isinstance(result, dict)
        return result

    def count_requests(self) -> int:
        """How many requests the servers have seen, also those that the log no longer keeps."""
        return int(self.control("GET", "/stand/v1/events?limit=1")["last"])

    def clear(self) -> None:
        """Ends all faults."""
        self.set_lists()
        self.control("DELETE", "/stand/v1/faults")
