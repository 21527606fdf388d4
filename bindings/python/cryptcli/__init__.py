"""End-to-end protection of stored files.

A file of a *room* is signed with its group's integrity key and encrypted for the room's key. Private keys stay on the
key servers; a *crypt service* says which room key and which key servers are to be used. Decryption delivers only
content that provably comes from the room's group, unless a weaker Policy is named.

    with cryptcli.Client("https://crypt.example.com/api") as client:
        client.encrypt("room-1", "report.pdf", "report.p7m")
        client.decrypt("room-1", "report.p7m", "report.pdf")
"""

from ._arguments import AnyPath
from ._client import Client
from ._errors import (
    Attempt,
    Cancelled,
    Conflict,
    Damaged,
    Error,
    Internal,
    InvalidArgument,
    IOFailure,
    KeyRefused,
    NoSpace,
    NotProtected,
    OriginNotProven,
    ServerError,
    Status,
    Timeout,
    Unauthorised,
    UnknownRoom,
    Unreachable,
)
from ._files import Readable, Source, Target, Writable
from ._functions import build_info, inspect, operations, version
from ._log import Log, LogLevel
from ._operation import Cancellation, Progress
from ._report import Origin, Policy, Report
from ._transport import Request, Response, Transport
from ._version import __version__

__all__ = [
    "AnyPath",
    "Attempt",
    "Cancellation",
    "Cancelled",
    "Client",
    "Conflict",
    "Damaged",
    "Error",
    "IOFailure",
    "Internal",
    "InvalidArgument",
    "KeyRefused",
    "Log",
    "LogLevel",
    "NoSpace",
    "NotProtected",
    "Origin",
    "OriginNotProven",
    "Policy",
    "Progress",
    "Readable",
    "Report",
    "Request",
    "Response",
    "ServerError",
    "Source",
    "Status",
    "Target",
    "Timeout",
    "Transport",
    "Unauthorised",
    "UnknownRoom",
    "Unreachable",
    "Writable",
    "__version__",
    "build_info",
    "inspect",
    "operations",
    "version",
]
