"""Loads the C library and declares its functions; every other module calls it through `lib`.

The functions are called through CDLL, which releases the interpreter lock for the time of the call. Strings that the
library lends come back as bytes, which ctypes copies.
"""

from __future__ import annotations

import ctypes
import os
from ctypes import CFUNCTYPE, POINTER, c_char_p, c_int32, c_size_t, c_uint32, c_void_p
from typing import Any, Dict, Sequence, Tuple

# The number is that of the stable ABI.
SONAME = "libcryptcli-c.so.1"
VARIABLE = "CRYPTCLI_LIBRARY"


class File(ctypes.Structure):
    """A source or target, passed by value. The package passes paths alone."""

    _fields_ = [("path", c_char_p), ("descriptor", c_int32)]


LogCallback = CFUNCTYPE(None, c_void_p, c_int32, c_char_p)
ProgressCallback = CFUNCTYPE(c_int32, c_void_p, ctypes.c_uint64, ctypes.c_uint64)
TransportCallback = CFUNCTYPE(c_int32, c_void_p, c_void_p, c_void_p)

_Object = c_void_p  # an opaque handle
_Place = POINTER(c_void_p)  # where the library stores a new object
_Out = (_Object, _Place, _Place)  # call, report, error

# Name, without the common prefix, to result and arguments.
_FUNCTIONS: Dict[str, Tuple[Any, Sequence[Any]]] = {
    "version": (c_char_p, ()),
    "build_info": (c_char_p, ()),
    "operations": (c_char_p, ()),
    "options_new": (_Object, ()),
    "options_free": (None, (_Object,)),
    "options_set_service": (c_int32, (_Object, c_char_p, _Place)),
    "options_set_ca_file": (c_int32, (_Object, c_char_p, _Place)),
    "options_set_client_certificate": (c_int32, (_Object, c_char_p, c_char_p, c_char_p, _Place)),
    "options_set_proxy": (c_int32, (_Object, c_char_p, _Place)),
    "options_add_header": (c_int32, (_Object, c_char_p, c_char_p, _Place)),
    "options_set_connect_timeout": (None, (_Object, c_uint32)),
    "options_set_timeout": (None, (_Object, c_uint32)),
    "options_set_temporary_directory": (c_int32, (_Object, c_char_p, _Place)),
    "options_set_log": (None, (_Object, c_int32, LogCallback, c_void_p, c_int32)),
    "options_set_transport": (None, (_Object, TransportCallback, c_void_p)),
    "request_method": (c_char_p, (_Object,)),
    "request_url": (c_char_p, (_Object,)),
    "request_header_count": (c_size_t, (_Object,)),
    "request_header_name": (c_char_p, (_Object, c_size_t)),
    "request_header_value": (c_char_p, (_Object, c_size_t)),
    "request_body": (c_void_p, (_Object, POINTER(c_size_t))),
    "request_connect_timeout": (c_uint32, (_Object,)),
    "request_timeout": (c_uint32, (_Object,)),
    "response_set_status": (c_int32, (_Object, c_uint32)),
    "response_add_header": (c_int32, (_Object, c_char_p, c_char_p)),
    "response_append_body": (c_int32, (_Object, c_char_p, c_size_t)),
    "response_set_error": (c_int32, (_Object, c_char_p)),
    "response_set_error_code": (c_int32, (_Object, c_int32)),
    "client_new": (c_int32, (_Object, _Place, _Place)),
    "client_free": (None, (_Object,)),
    "call_new": (_Object, ()),
    "call_free": (None, (_Object,)),
    "call_set_accept": (c_int32, (_Object, c_int32, _Place)),
    "call_set_expected_room": (c_int32, (_Object, c_char_p, _Place)),
    "call_set_progress": (None, (_Object, ProgressCallback, c_void_p)),
    "call_cancel": (None, (_Object,)),
    "encrypt": (c_int32, (_Object, c_char_p, File, File, *_Out)),
    "decrypt": (c_int32, (_Object, c_char_p, File, File, *_Out)),
    "verify": (c_int32, (_Object, c_char_p, File, *_Out)),
    "rekey": (c_int32, (_Object, c_char_p, c_char_p, *_Out)),
    "inspect": (c_int32, (File, _Place, _Place)),
    "perform": (c_int32, (_Object, c_char_p, c_char_p, *_Out)),
    "room": (c_int32, (_Object, c_char_p, *_Out)),
    "check": (c_int32, (_Object, c_char_p, *_Out)),
    "report_json": (c_char_p, (_Object,)),
    "report_free": (None, (_Object,)),
    "error_json": (c_char_p, (_Object,)),
    "error_free": (None, (_Object,)),
}


class Library:
    """The functions of the C library, each an attribute with its name without the prefix."""

    def __init__(self, path: str) -> None:
        loaded = ctypes.CDLL(path)
        for name, (result, arguments) in _FUNCTIONS.items():
            function = getattr(loaded, "cryptcli_" + name)
            function.restype = result
            function.argtypes = list(arguments)
            setattr(self, name, function)

    def __getattr__(self, name: str) -> Any:
        """Only reached for a function that is not declared; its presence makes the others known to checkers."""
        raise AttributeError(f"No function cryptcli_{name} is declared")


def load() -> Library:
    """The library that the environment names, or else the one that the system's loader finds."""
    named = os.environ.get(VARIABLE)
    try:
        return Library(named or SONAME)
    except OSError as failure:
        raise ImportError(
            f"cryptcli needs the C library {SONAME}: {failure}. Install it, or name its file in {VARIABLE}.",
            name="cryptcli",
            path=named,
        ) from failure
    except AttributeError as failure:
        raise ImportError(
            f"The C library {named or SONAME} is too old for this package: {failure}", name="cryptcli", path=named
        ) from failure


lib = load()
