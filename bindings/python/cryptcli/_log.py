"""Log callables, which get what the library reports while it works."""

from __future__ import annotations

import enum
from typing import Any, Callable, Optional

from ._library import LogCallback
from ._operation import Operations


class LogLevel(enum.IntEnum):
    """What a log callable gets. A level of a newer library that this package does not know becomes DEBUG."""

    #: Reasons of failures, those that a later attempt makes good included.
    ERROR = 1
    #: And a line for each request.
    REQUEST = 2
    #: And what an operation finds, and bodies of requests and responses.
    DEBUG = 3

    @classmethod
    def _missing_(cls, value: object) -> LogLevel:
        return cls.DEBUG


#: Gets the level and the message. What it raises ends the operation and comes out of it.
Log = Callable[[LogLevel, str], object]


def make_callback(log: Log, operations: Operations) -> Any:
    """The C callback for a log of the client whose operations these are."""

    def write(_context: Optional[int], level: int, message: bytes) -> None:
        try:
            log(LogLevel(level), message.decode("utf-8", "replace"))
        except BaseException as exception:
            operation = operations.current()
            if operation is None:
                raise
            operation.stop(exception)

    return LogCallback(write)
