"""What needs no client, and the one way in which the package calls a function that gives a report or an error."""

from __future__ import annotations

import ctypes
import json
from typing import Any, Dict, List, Optional, cast

from ._arguments import AnyPath
from ._errors import make_error
from ._files import Source, Spool
from ._library import File, lib
from ._operation import Operation
from ._report import make_report


def inspect(source: Source) -> Dict[str, Any]:
    """What a protected file says about itself, without a client: its type, size, recipients or signers. Asks no server
    and verifies nothing."""
    return inspect_in(source, None)


def operations() -> List[Dict[str, Any]]:
    """The operations of Client.perform: each with its name, what it does and its arguments."""
    return cast(List[Dict[str, Any]], json.loads(lib.operations()))


def version() -> str:
    """The version of the C library."""
    return cast(bytes, lib.version()).decode()


def build_info() -> Dict[str, str]:
    """What the C library was built and runs with, such as its transport's libraries and their versions."""
    return cast(Dict[str, str], json.loads(lib.build_info()))


def inspect_in(source: Source, temporary_directory: Optional[AnyPath]) -> Dict[str, Any]:
    """The same with the directory for the copy of a file object."""
    with Spool(temporary_directory, None).source(source) as path:
        return invoke(None, lib.inspect, as_file(path))


def invoke(operation: Optional[Operation], function: Any, *arguments: Any) -> Dict[str, Any]:
    """Calls the function, whose last two arguments, for report and error, are added here, and gives the report's JSON
    object."""
    report = ctypes.c_void_p()
    error = ctypes.c_void_p()
    try:
        status = function(*arguments, ctypes.byref(report), ctypes.byref(error))
        facts = cast(Dict[str, Any], json.loads(lib.report_json(report)))
        # What a callable raised says more than the failure that it caused.
        if operation is not None and operation.exception is not None:
            raise operation.exception
        if status != 0:
            failure = make_error(status, json.loads(lib.error_json(error)), make_report(facts) if report else None)
            raise failure from (operation.transport_failure if operation is not None else None)
        return facts
    finally:
        lib.report_free(report)
        lib.error_free(error)


def as_file(path: bytes) -> File:
    """The library's form of a source or target."""
    return File(path, -1)
