"""Turns arguments into what the C library takes. A value that it cannot express is refused, never truncated."""

from __future__ import annotations

import math
import os
from typing import Any, Optional, Union

from ._errors import InvalidArgument

#: A path, as the functions of the os module take it.
AnyPath = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]

_MOST_MILLISECONDS = 0xFFFFFFFF


def encode(value: str, what: str) -> bytes:
    """UTF-8. `what` names the argument; its value, which may be a secret, is not quoted."""
    if not isinstance(value, str):
        raise TypeError(f"{what} has to be a str, not {type(value).__name__}")
    try:
        encoded = value.encode("utf-8")
    except UnicodeEncodeError:
        # Without the cause, which quotes the value.
        raise InvalidArgument(f"{what} is no valid Unicode") from None
    return _without_nul(encoded, what)


def encode_path(path: AnyPath, what: str) -> bytes:
    """The path as the system takes it."""
    try:
        encoded = os.fsencode(path)
    except UnicodeEncodeError:
        raise InvalidArgument(f"{what} is no valid path") from None
    return _without_nul(encoded, what)


def encode_optional_path(path: Optional[AnyPath], what: str) -> Optional[bytes]:
    """The same for a path that may be left out."""
    return None if path is None else encode_path(path, what)


def milliseconds(seconds: Optional[float], what: str) -> int:
    """The time in milliseconds, at least one; for None 0, which means the library's default."""
    if seconds is None:
        return 0
    if not (math.isfinite(seconds) and 0 < seconds <= _MOST_MILLISECONDS / 1000):
        raise InvalidArgument(f"{what} has to be a positive number of seconds, at most {_MOST_MILLISECONDS // 1000}")
    return max(1, round(seconds * 1000))


def require_callable(value: Any, what: str) -> None:
    """Refuses a value that cannot be called here, rather than in the middle of an operation."""
    if value is not None and not callable(value):
        raise TypeError(f"{what} has to be callable, not {type(value).__name__}")


def _without_nul(encoded: bytes, what: str) -> bytes:
    if b"\0" in encoded:
        raise InvalidArgument(f"{what} contains a NUL character")
    return encoded
