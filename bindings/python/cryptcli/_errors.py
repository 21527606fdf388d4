"""The exceptions of the package: one type for each family of failures, all below Error.

The C library decides which family a failure belongs to, its message and whether it is worth another attempt; this
module gives that a Python form.
"""

from __future__ import annotations

import ctypes
import enum
import json
from dataclasses import dataclass
from typing import Any, Dict, NoReturn, Optional, Tuple, Type

from ._library import lib
from ._report import Report


class Status(enum.IntEnum):
    """How an operation ended. A number of a newer library that this package does not know becomes INTERNAL."""

    OK = 0
    INTERNAL = 1
    INVALID_ARGUMENT = 2
    UNREACHABLE = 3
    TIMEOUT = 4
    UNAUTHORISED = 5
    UNKNOWN_ROOM = 6
    KEY_REFUSED = 7
    NOT_PROTECTED = 8
    DAMAGED = 9
    ORIGIN_NOT_PROVEN = 10
    NO_SPACE = 11
    IO = 12
    CONFLICT = 13
    CANCELLED = 14
    SERVER_ERROR = 15

    @classmethod
    def _missing_(cls, value: object) -> Status:
        return cls.INTERNAL

    @classmethod
    def from_name(cls, name: str) -> Status:
        """The status with the library's name ("origin_not_proven"); INTERNAL for an unknown one."""
        return cls.__members__.get(name.upper(), cls.INTERNAL)


@dataclass(frozen=True)
class Attempt:
    """A key server that failed during an operation: its URL, and why it failed."""

    server: str
    code: Status
    message: str


class Error(Exception):
    """An operation failed. `str()` gives the message.

    Every failure of the library is of one of the types below; a type of its own means that a program can react to it.
    Can be pickled, so it reaches the caller from another process.

    code        the Status; the stable way to distinguish failures
    message     for people
    retryable   whether the same call may succeed later without anything being changed
    http_status the HTTP status of the exchange that failed last; 0 where there was no response
    url         the URL of that exchange, without its query; empty where none failed
    attempts    the key servers that failed, in the order in which they were asked
    """

    code: Status = Status.INTERNAL

    def __init__(
        self,
        message: str,
        *,
        retryable: bool = False,
        http_status: int = 0,
        url: str = "",
        attempts: Tuple[Attempt, ...] = (),
    ) -> None:
        super().__init__(message)
        self.message = message
        self.retryable = retryable
        self.http_status = http_status
        self.url = url
        self.attempts = attempts


class Internal(Error):
    """A failure without a type of its own, such as an allocation failure, or one with a code that is not known here."""

    code = Status.INTERNAL


class InvalidArgument(Error, ValueError):
    """An argument is wrong; nothing was done. Raised for a string with a NUL character or a lone surrogate as well."""

    code = Status.INVALID_ARGUMENT


class Unreachable(Error):
    """A server could not be reached, or its certificate is not trusted."""

    code = Status.UNREACHABLE


class Timeout(Error):
    """A server did not respond in time."""

    code = Status.TIMEOUT


class Unauthorised(Error):
    """A server refused the caller, or gave no authorization token."""

    code = Status.UNAUTHORISED


class UnknownRoom(Error):
    """The crypt service does not know the room, or has no key of it for this file."""

    code = Status.UNKNOWN_ROOM


class KeyRefused(Error):
    """The crypt service does not hand out the room's key at present."""

    code = Status.KEY_REFUSED


class NotProtected(Error):
    """The source is not a protected file."""

    code = Status.NOT_PROTECTED


class Damaged(Error):
    """The content or its signature is not what was protected. No policy delivers it."""

    code = Status.DAMAGED


class OriginNotProven(Error):
    """The content is intact, but the policy does not accept its origin, or the room is not the expected one.

    Nothing was delivered.

    report  what is known about the origin, with the reason; None if a file was to be made for another room
    """

    code = Status.ORIGIN_NOT_PROVEN
    report: Optional[Report] = None


class NoSpace(Error):
    """The file system is full, or a quota or size limit is reached."""

    code = Status.NO_SPACE


class IOFailure(Error):
    """A file cannot be read or written."""

    code = Status.IO


class Conflict(Error):
    """Other clients kept making the room's first key at the same time."""

    code = Status.CONFLICT


class Cancelled(Error):
    """The operation was cancelled, by a Cancellation or by a progress callable. The target is unchanged."""

    code = Status.CANCELLED


class ServerError(Error):
    """A server reported an error, or its response is not valid."""

    code = Status.SERVER_ERROR


_TYPES: Dict[Status, Type[Error]] = {
    family.code: family
    for family in (
        Internal,
        InvalidArgument,
        Unreachable,
        Timeout,
        Unauthorised,
        UnknownRoom,
        KeyRefused,
        NotProtected,
        Damaged,
        OriginNotProven,
        NoSpace,
        IOFailure,
        Conflict,
        Cancelled,
        ServerError,
    )
}


def make_error(status: int, facts: Dict[str, Any], report: Optional[Report] = None) -> Error:
    """The exception for a status and the error's JSON object. A member that is missing has its default value."""
    made = _TYPES.get(Status(status), Internal)(
        facts.get("message", ""),
        retryable=facts.get("retryable", False),
        http_status=facts.get("httpStatus", 0),
        url=facts.get("url", ""),
        attempts=tuple(
            Attempt(entry["server"], Status.from_name(entry["code"]), entry["message"])
            for entry in facts.get("attempts", ())
        ),
    )
    if isinstance(made, OriginNotProven):
        made.report = report
    return made


def raise_error(status: int, error: ctypes.c_void_p, report: Optional[Report] = None) -> NoReturn:
    """Raises the exception for what the library stored in `error`, which stays the caller's."""
    raise make_error(status, json.loads(lib.error_json(error)), report)
