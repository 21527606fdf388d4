"""What an operation on a file found out: where its content comes from, and for whom it is protected."""

from __future__ import annotations

import enum
from dataclasses import dataclass
from typing import Any, Dict, Optional, Tuple


class _Named(enum.IntEnum):
    """Numbers that are shown as the library's names ("signature_only"), by format() too: enumerations of different
    versions of Python differ in that."""

    def __str__(self) -> str:
        return self.name.lower()

    def __format__(self, format_spec: str) -> str:
        return format(str(self), format_spec)


class Origin(_Named):
    """What is known about where the content of a protected file comes from, from the weakest to the strongest.

    A value of a newer library that this package does not know becomes UNPROVEN.
    """

    #: No signature.
    UNSIGNED = 0
    #: The signature holds; a check of the signer failed.
    UNPROVEN = 1
    #: The signature holds; no signer was examined, since the room's key came in the clear: anybody can have signed.
    SIGNATURE_ONLY = 2
    #: Signer and chain are valid, for another room or group than the crypt service named.
    OTHER_ROOM = 3
    #: Signer and chain are valid, for the room and group that the crypt service named.
    PROVEN = 4

    @classmethod
    def _missing_(cls, value: object) -> Origin:
        return cls.UNPROVEN

    @classmethod
    def from_name(cls, name: str) -> Origin:
        """The origin with the library's name ("signature_only"); UNPROVEN for an unknown one."""
        return cls.__members__.get(name.upper(), cls.UNPROVEN)


class Policy(_Named):
    """The weakest origin whose content is delivered. Anything but PROVEN delivers what others may have made."""

    #: Proven alone: the default.
    PROVEN = 0
    #: Also content that was signed for another room or group.
    ANY_SIGNER = 1
    #: Also content whose signer was not examined.
    SIGNATURE_ONLY = 2
    #: Also unproven and unsigned content.
    ANYTHING = 3


@dataclass(frozen=True)
class Report:
    """What an operation on a file found out. Strings are empty where nothing is known."""

    #: None after encrypt, which examines no signature.
    origin: Optional[Origin]
    #: Why the origin is not proven.
    reason: str
    #: What the signature names.
    signed_group: str
    signed_room: str
    signed_room_url: str
    #: Subjects of the signer's chain, from the signer up.
    chain: Tuple[str, ...]
    #: What the crypt service named for this file.
    service_group: str
    service_room: str
    #: Whether the crypt service handed out the room's private key in the clear.
    is_plain_key: bool
    #: Bytes of the content: read by encrypt, delivered by decrypt, checked by verify.
    size: int


def make_report(facts: Dict[str, Any]) -> Report:
    """The report from its JSON object."""
    return Report(
        origin=Origin.from_name(facts["origin"]) if "origin" in facts else None,
        reason=facts.get("reason", ""),
        signed_group=facts.get("signedGroup", ""),
        signed_room=facts.get("signedRoom", ""),
        signed_room_url=facts.get("signedRoomUrl", ""),
        chain=tuple(facts.get("chain", ())),
        service_group=facts.get("serviceGroup", ""),
        service_room=facts.get("serviceRoom", ""),
        is_plain_key=facts.get("plainKey", False),
        size=facts.get("bytes", 0),
    )
