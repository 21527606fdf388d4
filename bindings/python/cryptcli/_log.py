"""Log callables, which receive the messages of the library while it works."""

from __future__ import annotations

import enum
from typing import Any, Callable, Optional

from ._library import LogCallback
from ._operation import Operations


class LogLevel(enum.IntEnum):
    """What a log callable gets. A level of a newer library that this package does not know becomes DEBUG."""

    #: The reason of each failure, also of one after which a later attempt succeeds.
    ERROR = 1
    #: As well: a line for each request.
    REQUEST = 2
    #: As well: what a signature says, and the bodies of requests and responses.
    DEBUG = 3

    @classmethod
    def _missing_(cls, value: object) -> LogLevel:
        return cls.DEBUG


#: Gets the level and the message. If it raises an exception, the operation is cancelled and raises that.
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
