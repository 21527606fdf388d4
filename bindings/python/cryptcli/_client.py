"""The client: options, operations on files and administration."""

from __future__ import annotations

import ctypes
import json
from types import TracebackType
from typing import Any, Dict, List, Mapping, NoReturn, Optional, Type

from . import _log, _transport
from ._arguments import AnyPath, encode, encode_optional_path, encode_path, milliseconds, require_callable
from ._errors import InvalidArgument, raise_error
from ._files import Source, Spool, Target
from ._functions import as_file, inspect_in, invoke
from ._library import lib
from ._log import Log, LogLevel
from ._operation import Cancellation, Operation, Operations, Progress, run_interruptibly
from ._report import Policy, Report, make_report
from ._transport import Transport


class Client:
    """Protects and opens files with the help of one crypt service.

        with cryptcli.Client("https://crypt.example.com/api") as client:
            client.encrypt("room-1", "report.pdf", "report.p7m")
            report = client.decrypt("room-1", "report.p7m", "report.pdf")

    A client is immutable and serves any number of threads at once; make one and keep it, since it keeps connections
    open. Operations release the interpreter lock, so threads are enough to use several cores.

    Callables (progress, log, transport) run while the caller waits. They run on its thread; for an operation of the
    main thread they run on a worker thread, so that Ctrl-C can cancel the operation. If a callable raises an exception,
    the operation is cancelled and raises it. Callables may not use the same client.

    Each process needs a client of its own: a client that was made before a fork refuses to work in the child process,
    and no client can be pickled.
    """

    def __init__(
        self,
        service: str,
        *,
        ca_file: Optional[AnyPath] = None,
        client_certificate: Optional[AnyPath] = None,
        client_key: Optional[AnyPath] = None,
        key_password_file: Optional[AnyPath] = None,
        proxy: Optional[str] = None,
        headers: Optional[Mapping[str, str]] = None,
        connect_timeout: Optional[float] = None,
        timeout: Optional[float] = None,
        temporary_directory: Optional[AnyPath] = None,
        log: Optional[Log] = None,
        log_level: LogLevel = LogLevel.REQUEST,
        reveal_secrets: bool = False,
        transport: Optional[Transport] = None,
    ) -> None:
        """Makes a client; sends nothing. Raises InvalidArgument for an option that cannot be used.

        service              base URL of the crypt service
        ca_file              PEM file of the certification authorities to trust in place of the system's
        client_certificate   PEM file of the client certificate
        client_key           PEM file of its key, unless the certificate's file holds it
        key_password_file    file whose first line is the key's password
        proxy                URL of a proxy for every request; the environment's proxy variables have no effect
        headers              headers for every request to the crypt service and to no other server: the place for
                             credentials
        connect_timeout      seconds that connecting to a server may take; 30 unless given
        timeout              seconds that one exchange with a server may take in all; 300 unless given
        temporary_directory  where temporary files with plain content lie, each in a directory for the owner alone;
                             TMPDIR or /tmp unless given
        log                  called with level and message, up to `log_level`
        reveal_secrets       whether bodies, which carry keys, tokens and passwords, are logged: the log is then as
                             secret as the keys themselves
        transport            takes the place of the built-in transport, whose options (ca_file, client_certificate,
                             proxy) then have no effect
        """
        require_callable(log, "The log")
        require_callable(transport, "The transport")
        if not isinstance(log_level, LogLevel):
            raise TypeError(f"log_level has to be a LogLevel, not {type(log_level).__name__}")
        self._temporary_directory = temporary_directory
        self._operations = Operations()
        # Kept here, since ctypes frees a callback that nobody refers to while the library may still call it.
        self._callbacks: List[Any] = []
        options = ctypes.c_void_p(lib.options_new())
        if not options:
            raise MemoryError
        try:
            _set_text(options, lib.options_set_service, encode(service, "The service"))
            _set_text(options, lib.options_set_ca_file, encode_optional_path(ca_file, "The CA file"))
            _set_text(
                options,
                lib.options_set_client_certificate,
                encode_optional_path(client_certificate, "The client certificate"),
                encode_optional_path(client_key, "The client key"),
                encode_optional_path(key_password_file, "The password file"),
            )
            _set_text(options, lib.options_set_proxy, None if proxy is None else encode(proxy, "The proxy"))
            for name, value in (headers or {}).items():
                _set_text(options, lib.options_add_header, encode(name, "A header"), encode(value, "A header"))
            lib.options_set_connect_timeout(options, milliseconds(connect_timeout, "The connect timeout"))
            lib.options_set_timeout(options, milliseconds(timeout, "The timeout"))
            _set_text(
                options,
                lib.options_set_temporary_directory,
                encode_optional_path(temporary_directory, "The temporary directory"),
            )
            self._set_callbacks(options, log, log_level, reveal_secrets, transport)
            self._handle = _make_client(options)
        finally:
            lib.options_free(options)

    def _set_callbacks(
        self,
        options: ctypes.c_void_p,
        log: Optional[Log],
        level: LogLevel,
        reveal_secrets: bool,
        transport: Optional[Transport],
    ) -> None:
        if log is not None:
            callback = _log.make_callback(log, self._operations)
            self._callbacks.append(callback)
            lib.options_set_log(options, level, callback, None, 1 if reveal_secrets else 0)
        if transport is not None:
            callback = _transport.make_callback(transport, self._operations)
            self._callbacks.append(callback)
            lib.options_set_transport(options, callback, None)

    def __enter__(self) -> Client:
        return self

    def __exit__(
        self,
        exception_type: Optional[Type[BaseException]],
        exception: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        self.close()

    def close(self) -> None:
        """Waits for operations that run on other threads, then closes connections. Later operations raise
        InvalidArgument. May be called again, but not from a callable of an operation."""
        self._operations.close(self._free)

    def __reduce__(self) -> NoReturn:
        raise TypeError("A client cannot be pickled: make one in each process")

    # An operation refers to its client, so none is in progress here and close() does not wait.
    def __del__(self) -> None:
        if hasattr(self, "_handle"):
            self.close()

    def _free(self) -> None:
        lib.client_free(self._handle)

    # ---- Files

    def encrypt(
        self,
        room: str,
        source: Source,
        target: Target,
        *,
        expected_room: Optional[str] = None,
        progress: Optional[Progress] = None,
        cancel: Optional[Cancellation] = None,
    ) -> Report:
        """Protects `source` for the room and puts the protected file at `target`.

        Makes the room's key if it has none. If several clients do so at the same time, all of them use the same key.

        source, target  a path, or a binary file object, which is read or written from its current position. A target by
                        path appears whole or not at all; a target object is written after everything else has
                        succeeded. An exception of an object's own methods reaches the caller.
        expected_room   the room as the crypt service spells it. If the service names another one, OriginNotProven is
                        raised, without a report, and the target is unchanged. Without it, any room that the service
                        names is accepted
        progress        called after each chunk with the bytes done and in all; False cancels
        cancel          cancels the operation from elsewhere
        """
        spool = Spool(self._temporary_directory, cancel)
        with spool.source(source) as read, spool.target(target) as written:
            return self._report(
                lib.encrypt,
                _room(room),
                as_file(read),
                as_file(written),
                expected_room=expected_room,
                progress=progress,
                cancel=cancel,
            )

    def decrypt(
        self,
        room: str,
        source: Source,
        target: Target,
        *,
        accept: Policy = Policy.PROVEN,
        expected_room: Optional[str] = None,
        progress: Optional[Progress] = None,
        cancel: Optional[Cancellation] = None,
    ) -> Report:
        """Opens the protected file `source` and delivers its content to `target` if `accept` admits its origin.

        Otherwise raises OriginNotProven with the report, and the target is unchanged. With `expected_room` the same
        happens, whatever `accept` is, if the crypt service names another room, or if an examined signer signed for
        another one. Without it, any room that the crypt service names is accepted. See encrypt for the other arguments.
        """
        spool = Spool(self._temporary_directory, cancel)
        with spool.source(source) as read, spool.target(target) as written:
            return self._report(
                lib.decrypt,
                _room(room),
                as_file(read),
                as_file(written),
                accept=accept,
                expected_room=expected_room,
                progress=progress,
                cancel=cancel,
            )

    def verify(
        self,
        room: str,
        source: Source,
        *,
        accept: Policy = Policy.PROVEN,
        expected_room: Optional[str] = None,
        progress: Optional[Progress] = None,
        cancel: Optional[Cancellation] = None,
    ) -> Report:
        """Does the same as decrypt, with the same report and exceptions, but delivers nothing."""
        with Spool(self._temporary_directory, cancel).source(source) as read:
            return self._report(
                lib.verify,
                _room(room),
                as_file(read),
                accept=accept,
                expected_room=expected_room,
                progress=progress,
                cancel=cancel,
            )

    def rekey(
        self,
        room: str,
        path: AnyPath,
        *,
        accept: Policy = Policy.PROVEN,
        expected_room: Optional[str] = None,
        progress: Optional[Progress] = None,
        cancel: Optional[Cancellation] = None,
    ) -> Report:
        """Opens the protected file at `path` and protects its content again with the room's present key, in place: at
        any moment it is either the old or the new file. If the crypt service names another room than `expected_room`
        for the new file, OriginNotProven is raised without a report, and the old file stays."""
        return self._report(
            lib.rekey,
            _room(room),
            encode_path(path, "The path"),
            accept=accept,
            expected_room=expected_room,
            progress=progress,
            cancel=cancel,
        )

    def inspect(self, source: Source) -> Dict[str, Any]:
        """What a protected file says about itself; asks no server and verifies nothing."""
        return inspect_in(source, self._temporary_directory)

    # ---- Administration

    def perform(
        self, operation: str, arguments: Mapping[str, Any], *, cancel: Optional[Cancellation] = None
    ) -> Dict[str, Any]:
        """Performs a named operation and returns its result; operations() has the names and the arguments.

        An unknown, missing or mistyped argument is InvalidArgument, before anything is sent. A file that the result
        names (GetAuditLog) belongs to the caller, who removes it. So do the private keys in the result of Decrypt:
        nothing overwrites Python's copies of them.
        """
        return self._call(
            lib.perform, encode(operation, "The operation"), _encode_json(arguments), cancel=cancel
        )

    def room(self, room: str, *, cancel: Optional[Cancellation] = None) -> Dict[str, Any]:
        """What the crypt service knows about a room. Changes nothing: no key is made. Fails like encrypt.

        room, group                their names, as the crypt service spells them
        keyType                    "wrapped"; "plain", where the service gives the private key to clients; or "none",
                                   where the first encrypt makes a key
        certificate                of the key: subject, issuer, serial, notBefore and notAfter; absent with "none"
        keyServers                 their URLs
        statusTimeout              seconds that a key server may take to respond to a probe; 0 for no limit of its own
        certificateAuthentication  whether key servers are probed before each command
        """
        return self._call(lib.room, _room(room), cancel=cancel)

    def check(self, room: Optional[str] = None, *, cancel: Optional[Cancellation] = None) -> Dict[str, Any]:
        """Asks the crypt service, and with a room each of its key servers, whether they work. Changes nothing.

        A server that does not work is a finding in the result, not an exception.

        ok        whether every finding is ok
        findings  for the service, the room and each key server: subject ("service", "room" or "key_server"), name,
                  ok, code (the name of a status), message and advice; of servers also httpStatus, tls, milliseconds,
                  and time and clockDifference (seconds ahead) where they show a clock
        room      as room() gives it; absent if no room was found
        """
        return self._call(lib.check, None if room is None else _room(room), cancel=cancel)

    # ---- Below

    def _report(self, function: Any, *arguments: Any, **options: Any) -> Report:
        return make_report(self._call(function, *arguments, **options))

    def _call(
        self,
        function: Any,
        *arguments: Any,
        accept: Policy = Policy.PROVEN,
        expected_room: Optional[str] = None,
        progress: Optional[Progress] = None,
        cancel: Optional[Cancellation] = None,
    ) -> Dict[str, Any]:
        require_callable(progress, "The progress")
        if not isinstance(accept, Policy):
            raise TypeError(f"accept has to be a Policy, not {type(accept).__name__}")
        expected = None if expected_room is None else encode(expected_room, "The expected room")
        operation = Operation(progress, cancel, accept, expected)

        def work() -> Dict[str, Any]:
            with self._operations.running(operation):
                return invoke(operation, function, self._handle, *arguments, operation.call)

        return run_interruptibly(operation, work)


def _room(room: str) -> bytes:
    return encode(room, "The room")


def _encode_json(arguments: Mapping[str, Any]) -> bytes:
    try:
        encoded = json.dumps(dict(arguments), ensure_ascii=False, allow_nan=False)
    except (TypeError, ValueError) as failure:
        raise InvalidArgument(f"The arguments are no JSON object: {failure}") from failure
    return encode(encoded, "An argument")


def _set_text(options: ctypes.c_void_p, setter: Any, *values: Optional[bytes]) -> None:
    error = ctypes.c_void_p()
    try:
        status = setter(options, *values, ctypes.byref(error))
        if status != 0:
            raise_error(status, error)
    finally:
        lib.error_free(error)


def _make_client(options: ctypes.c_void_p) -> ctypes.c_void_p:
    client = ctypes.c_void_p()
    error = ctypes.c_void_p()
    try:
        status = lib.client_new(options, ctypes.byref(client), ctypes.byref(error))
        if status != 0:
            raise_error(status, error)
    finally:
        lib.error_free(error)
    return client
