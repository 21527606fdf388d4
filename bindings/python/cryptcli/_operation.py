"""What surrounds one call of the library: its call object, progress, cancellation and the exceptions of callables.

An exception cannot pass through the library. It is kept, the operation is cancelled, and it is raised when the library
has returned.
"""

from __future__ import annotations

import contextvars
import ctypes
import os
import threading
from concurrent.futures import Future
from contextlib import contextmanager
from typing import Any, Callable, Dict, Iterator, Optional, Set, TypeVar

from ._errors import InvalidArgument, raise_error
from ._library import ProgressCallback, lib
from ._report import Policy

#: Gets the bytes done and the bytes in all; a result of False cancels the operation.
Progress = Callable[[int, int], Optional[bool]]

Result = TypeVar("Result")


class Cancellation:
    """Cancels operations, from any thread and from a signal handler.

    One object may be given to any number of operations. It stays cancelled: an operation that gets it later ends at
    once. Each of them raises Cancelled and leaves its target unchanged, unless it was delivered before.
    """

    def __init__(self) -> None:
        # A signal handler may run in the middle of any of these methods, on the same thread.
        self._lock = threading.RLock()
        self._calls: Set[int] = set()
        self._cancelled = False

    @property
    def cancelled(self) -> bool:
        """Whether cancel() was called."""
        return self._cancelled

    def cancel(self) -> None:
        """Cancels every operation that was given this object, and those that get it later.

        An exchange with a server that is in progress ends soon.
        """
        with self._lock:
            self._cancelled = True
            for call in self._calls:
                lib.call_cancel(call)

    def _attach(self, call: int) -> None:
        with self._lock:
            self._calls.add(call)
            if self._cancelled:
                lib.call_cancel(call)

    def _detach(self, call: int) -> None:
        with self._lock:
            self._calls.discard(call)


class Operation:
    """One operation. Owns the library's call object until free()."""

    def __init__(
        self,
        progress: Optional[Progress],
        cancel: Optional[Cancellation],
        accept: Policy,
        expected_room: Optional[bytes],
    ) -> None:
        #: What a callable or a signal handler raised first, to be raised when the library has returned.
        self.exception: Optional[BaseException] = None
        #: The latest failure of the transport, which becomes the cause of the library's error.
        self.transport_failure: Optional[OSError] = None
        self._lock = threading.Lock()  # the call object may be cancelled from one thread and freed on another
        self._progress = progress
        self._cancel = cancel
        self.call: Optional[int] = lib.call_new()
        if self.call is None:
            raise MemoryError
        # Kept as long as the library may call it.
        self._callback: Any = None
        if progress is not None:
            self._callback = ProgressCallback(self._on_progress)
            lib.call_set_progress(self.call, self._callback, None)
        self._set(lib.call_set_accept, accept)
        self._set(lib.call_set_expected_room, expected_room)
        if cancel is not None:
            cancel._attach(self.call)

    def free(self) -> None:
        """Frees the call object, after the library has returned."""
        if self.call is not None and self._cancel is not None:
            self._cancel._detach(self.call)
        with self._lock:
            lib.call_free(self.call)
            self.call = None
        self._callback = None  # it refers to this object, which would live until it is collected

    def stop(self, exception: BaseException) -> None:
        """Cancels the operation for an exception that its caller gets. Without effect after free()."""
        if self.exception is None:
            self.exception = exception
        with self._lock:
            lib.call_cancel(self.call)

    def _set(self, setter: Any, value: Any) -> None:
        error = ctypes.c_void_p()
        status = setter(self.call, value, ctypes.byref(error))
        if status == 0:
            return
        try:
            raise_error(status, error)
        finally:
            lib.error_free(error)
            lib.call_free(self.call)

    def _on_progress(self, _context: Optional[int], done: int, total: int) -> int:
        try:
            return 0 if self._progress is not None and self._progress(done, total) is False else 1
        except BaseException as exception:
            self.stop(exception)
            return 0


class Operations:
    """The operations that run with one client, by thread: at most one on each.

    Closing waits for them, since the library's client must not be freed while one runs.
    """

    def __init__(self) -> None:
        self._changed = threading.Condition()
        self._running: Dict[int, Operation] = {}
        self._closed = False
        self._freed = False
        self._process = os.getpid()

    def current(self) -> Optional[Operation]:
        """The operation that runs on this thread."""
        return self._running.get(threading.get_ident())

    @contextmanager
    def running(self, operation: Operation) -> Iterator[None]:
        """Runs an operation on this thread, and frees it."""
        thread = threading.get_ident()
        entered = False
        try:
            if self._is_inherited():
                raise InvalidArgument("The client was made in another process")
            with self._changed:
                if self._closed:
                    raise InvalidArgument("The client is closed")
                if thread in self._running:
                    raise InvalidArgument("A callable of an operation has to use another client")
                entered = True
                self._running[thread] = operation
            yield
        finally:
            operation.free()
            if entered:
                with self._changed:
                    self._running.pop(thread, None)
                    self._changed.notify_all()

    def close(self, free: Callable[[], None]) -> None:
        """Admits no further operation, waits until none runs and calls `free`. Later calls do nothing."""
        if self._is_inherited():
            return
        with self._changed:
            if threading.get_ident() in self._running:
                raise InvalidArgument("A callable of an operation cannot close its client")
            self._closed = True
            self._changed.wait_for(lambda: not self._running)
            if not self._freed:
                self._freed = True
                free()

    # A fork copies the client without the threads that may hold its locks, and shares its connections: using or closing
    # them here would disturb those of the process that made it.
    def _is_inherited(self) -> bool:
        return os.getpid() != self._process


def run_interruptibly(operation: Operation, work: Callable[[], Result]) -> Result:
    """Runs `work`, which frees the operation, and cancels it when a signal handler raises, as that of Ctrl-C does.

    The interpreter runs signal handlers on the main thread alone, and not while that is inside the library, where it
    may wait for a server for minutes. So the main thread waits, and another one works.
    """
    if threading.current_thread() is not threading.main_thread():
        return work()
    future: Future[Result] = Future()

    def run() -> None:
        try:
            future.set_result(work())
        except BaseException as exception:
            future.set_exception(exception)

    context = contextvars.copy_context()
    try:
        threading.Thread(target=context.run, args=(run,), name="cryptcli", daemon=True).start()
    except RuntimeError:  # no further thread can be started: the interpreter is ending, or a limit is reached
        return work()
    except BaseException as exception:  # the thread may run already: it ends on its own
        operation.stop(exception)
        raise
    interruption: Optional[BaseException] = None
    while True:
        # Signal handlers may raise again while an earlier exception is handled. So the cancellation is inside the block
        # as well, and this loop always waits for the thread: until it ends, it uses the client and the target.
        try:
            while not future.done():
                if interruption is not None:
                    operation.stop(interruption)
                future.exception()  # waits; the exception of the work is returned, not raised
            break
        except BaseException as exception:
            interruption = interruption or exception
    if interruption is not None:
        raise interruption
    return future.result()
