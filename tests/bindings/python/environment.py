"""The local test environment as the Python tests use it: one for all of them, which each leaves as it was."""

from __future__ import annotations

import json
import urllib.request
from typing import Any, Dict

import cryptcli.testing

ROOM = "demo"
GROUP = "QOB.1.100.1"

# Whatever proxy the environment names, the servers are on this machine.
_OPENER = urllib.request.build_opener(urllib.request.ProxyHandler({}))


class Environment(cryptcli.testing.Environment):
    """A running cryptstand, with what more than one test asks of it."""

    def set_fault(self, server: Any, name: str, **details: Any) -> None:
        """Gives a fault to "crypt", to the key server with an index, or to "key servers", that is all of them."""
        named = "all" if server == "key servers" else server
        self.control("POST", "/stand/v1/faults", {"server": named, "fault": name, **details})

    def make_room(self, room: str, **options: Any) -> None:
        """Adds the room or changes its options."""
        self.control("POST", "/stand/v1/rooms", {"room": room, **options})

    def set_lists(self, **lists: str) -> None:
        """Changes the lists of certificates that the servers give out; what is not named is normal."""
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
