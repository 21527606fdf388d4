"""Sources and targets: paths, and binary file objects of any type.

The library works on paths. The content of a file object goes through a private temporary file: read whole before the
operation, or written to the object after the operation has succeeded. Its descriptor, if there is one, is not used: an
object may have read ahead of it or keep unwritten bytes, or, as a decompressor does, have other content than its
descriptor.
"""

from __future__ import annotations

import errno
import io
import os
import tempfile
from contextlib import contextmanager
from typing import Iterator, Optional, Protocol, Union, cast

from ._arguments import AnyPath, encode_path
from ._errors import Cancelled, Error, IOFailure, NoSpace
from ._operation import Cancellation

_CHUNK = 256 * 1024


class Readable(Protocol):
    """A binary file object to read from."""

    def read(self, size: int, /) -> Optional[bytes]:
        """At most `size` bytes; none at the end."""


class Writable(Protocol):
    """A binary file object to write to. If it has a flush(), that is called at the end."""

    def write(self, data: bytes, /) -> Optional[int]:
        """Writes bytes and returns how many, or None for all."""


#: A path, or a binary file object that is read from its current position to its end.
Source = Union[AnyPath, Readable]
#: A path, or a binary file object that is written to from its current position.
Target = Union[AnyPath, Writable]


class Spool:
    """Gives sources and targets of one operation a path that the library can use.

    File objects get one in `directory`, or in the default one; the file is removed at the end of the block.
    """

    def __init__(self, directory: Optional[AnyPath], cancel: Optional[Cancellation]) -> None:
        # The same default as in the library. tempfile would fall back to the working directory, which may be shared.
        self._directory = (os.environ.get("TMPDIR") or "/tmp") if directory is None else os.fsdecode(directory)
        self._cancel = cancel

    @contextmanager
    def source(self, source: Source) -> Iterator[bytes]:
        """The path of the source, or of a copy of what a file object still has to read."""
        if _is_path(source):
            yield encode_path(cast(AnyPath, source), "The source")
            return
        if not callable(getattr(source, "read", None)):
            raise TypeError(f"The source has to be a path or a binary file object, not {type(source).__name__}")
        with self._private_path() as path:
            self._fill(path, cast(Readable, source))
            yield os.fsencode(path)

    @contextmanager
    def target(self, target: Target) -> Iterator[bytes]:
        """The path of the target, or one whose content the object gets once the block has succeeded."""
        if _is_path(target):
            yield encode_path(cast(AnyPath, target), "The target")
            return
        if not callable(getattr(target, "write", None)):
            raise TypeError(f"The target has to be a path or a binary file object, not {type(target).__name__}")
        if isinstance(target, io.TextIOBase):
            raise TypeError("The target has to be open in binary mode")
        with self._private_path() as path:
            yield os.fsencode(path)
            _deliver(path, cast(Writable, target))

    @contextmanager
    def _private_path(self) -> Iterator[str]:
        try:
            directory = tempfile.TemporaryDirectory(prefix="cryptcli-", dir=self._directory)
        except OSError as failure:
            raise _storage_error("Could not create a temporary directory", failure) from failure
        with directory:
            yield os.path.join(directory.name, "content")

    # An exception of the object's own read reaches the caller unchanged: it is the caller's code.
    def _fill(self, path: str, source: Readable) -> None:
        with _create(path) as file:
            for chunk in self._chunks(source):
                try:
                    _write_all(file, chunk)
                except OSError as failure:
                    raise _storage_error("Could not copy the source", failure) from failure

    def _chunks(self, source: Readable) -> Iterator[bytes]:
        while True:
            if self._cancel is not None and self._cancel.cancelled:
                raise Cancelled("The operation was cancelled")
            chunk = source.read(_CHUNK)
            if chunk is None:
                raise BlockingIOError(errno.EAGAIN, "The source has no bytes at present")
            if not isinstance(chunk, (bytes, bytearray, memoryview)):
                raise TypeError("The source has to be open in binary mode")
            if not chunk:
                return
            yield bytes(chunk)


def _create(path: str) -> io.FileIO:
    try:
        return io.FileIO(path, "x")
    except OSError as failure:
        raise _storage_error("Could not create a temporary file", failure) from failure


def _is_path(value: object) -> bool:
    return isinstance(value, (str, bytes, os.PathLike))


def _storage_error(what: str, failure: OSError) -> Error:
    family = NoSpace if failure.errno in (errno.ENOSPC, errno.EDQUOT, errno.EFBIG) else IOFailure
    return family(f"{what}: {failure.strerror or failure}")


def _deliver(path: str, target: Writable) -> None:
    with open(path, "rb", buffering=0) as file:
        while True:
            chunk = file.read(_CHUNK)
            if not chunk:
                break
            _write_all(target, chunk)
    flush = getattr(target, "flush", None)
    if callable(flush):
        flush()


# A raw file object may write fewer bytes than it gets.
def _write_all(target: Writable, data: bytes) -> None:
    while data:
        written = target.write(data)
        if written is None:
            if isinstance(target, io.RawIOBase):
                raise BlockingIOError(errno.EAGAIN, "The target takes no bytes at present")
            return
        data = data[written:]
