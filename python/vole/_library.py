"""libvole.so.1 as ctypes sees it: what vole.h declares, in its order."""

from __future__ import annotations

import ctypes
import os
import types
from ctypes import POINTER, c_char_p, c_int, c_size_t, c_ssize_t, c_uint32, c_uint64, c_void_p
from typing import Any

OK = 0
LOAD_STRICT = 1
LOAD_THREADS = 2
SCAN_ALL_MATCHES = 1
SCAN_SHALLOW = 2
NO_OFFSET = 2**64 - 1
WORKER_MEMORY = 1 << 30
WORKER_GRACE_MS = 5000


class LoadProblemStruct(ctypes.Structure):
    # What may hold a NUL comes as an address with a length.
    _fields_ = [
        ("file", c_char_p),
        ("line", c_uint64),
        ("text", c_void_p),
        ("text_size", c_size_t),
        ("reason", c_char_p),
        ("fatal", c_int),
    ]


LOAD_PROBLEM_FN = ctypes.CFUNCTYPE(c_int, c_void_p, POINTER(LoadProblemStruct))


class LoadOptionsStruct(ctypes.Structure):
    _fields_ = [
        ("struct_size", c_size_t),
        ("flags", c_uint32),
        ("on_problem", LOAD_PROBLEM_FN),
        ("context", c_void_p),
    ]


class LimitsStruct(ctypes.Structure):
    _fields_ = [
        ("struct_size", c_size_t),
        ("max_content", c_uint64),
        ("max_member", c_uint64),
        ("max_total", c_uint64),
        ("max_members", c_uint64),
        ("max_depth", c_uint32),
        ("max_ratio", c_uint32),
        ("max_time_ms", c_uint64),
    ]


class IsolationStruct(ctypes.Structure):
    _fields_ = [
        ("struct_size", c_size_t),
        ("worker", c_char_p),
        ("max_memory", c_uint64),
        ("grace_ms", c_uint64),
        ("why", c_char_p),
        ("why_size", c_size_t),
    ]


class BytesStruct(ctypes.Structure):
    _fields_ = [("data", c_void_p), ("size", c_size_t)]


class PathStruct(ctypes.Structure):
    _fields_ = [("components", POINTER(BytesStruct)), ("count", c_size_t)]


class FindingStruct(ctypes.Structure):
    _fields_ = [
        ("name", c_char_p),
        ("kind", c_int),
        ("form", c_int),
        ("allowed", c_int),
        ("offset", c_uint64),
        ("member", PathStruct),
    ]


class ReasonStruct(ctypes.Structure):
    _fields_ = [("code", c_int), ("text", c_char_p), ("member", PathStruct)]


class CountersStruct(ctypes.Structure):
    _fields_ = [
        ("bytes_read", c_uint64),
        ("bytes_unpacked", c_uint64),
        ("members", c_uint64),
        ("deepest_level", c_uint64),
        ("time_us", c_uint64),
        ("findings", c_uint64),
        ("reasons", c_uint64),
    ]


class ContentStruct(ctypes.Structure):
    _fields_ = [
        ("form", c_int),
        ("size", c_uint64),
        ("packed_size", c_uint64),
        ("method", c_char_p),
        ("is_packed", c_int),
        ("checksum", c_int),
    ]


class EventStruct(ctypes.Structure):
    _fields_ = [
        ("type", c_int),
        ("member", PathStruct),
        ("size", c_uint64),
        ("finding", POINTER(FindingStruct)),
        ("reason", POINTER(ReasonStruct)),
        ("bytes_done", c_uint64),
        ("content", POINTER(ContentStruct)),
    ]


EVENT_FN = ctypes.CFUNCTYPE(c_int, c_void_p, POINTER(EventStruct))
READ_FN = ctypes.CFUNCTYPE(c_ssize_t, c_void_p, c_void_p, c_size_t)

# What each function returns, and what it takes. Enumerations are ints; handles are addresses.
_FUNCTIONS: dict[str, tuple[Any, list[Any]]] = {
    "vole_error_text": (c_char_p, [c_int]),
    "vole_version": (c_char_p, []),
    "vole_signatures_load": (c_int, [c_char_p, POINTER(LoadOptionsStruct), POINTER(c_void_p)]),
    "vole_signatures_save": (c_int, [c_void_p, c_char_p]),
    "vole_signatures_ref": (c_void_p, [c_void_p]),
    "vole_signatures_unref": (None, [c_void_p]),
    "vole_signatures_count": (c_uint64, [c_void_p]),
    "vole_signatures_memory": (c_uint64, [c_void_p]),
    "vole_signatures_id": (c_char_p, [c_void_p]),
    "vole_signatures_is_false_alarm": (c_int, [c_void_p, c_char_p]),
    "vole_scanner_new": (c_int, [c_void_p, POINTER(LimitsStruct), POINTER(c_void_p)]),
    "vole_isolated_scanner_new": (
        c_int,
        [c_void_p, POINTER(LimitsStruct), POINTER(IsolationStruct), POINTER(c_void_p)],
    ),
    "vole_scanner_free": (None, [c_void_p]),
    "vole_scanner_set_flags": (c_int, [c_void_p, c_uint32]),
    "vole_scanner_cancel": (None, [c_void_p]),
    "vole_scanner_rearm": (None, [c_void_p]),
    "vole_scanner_result": (c_void_p, [c_void_p]),
    "vole_result_outcome": (c_int, [c_void_p]),
    "vole_result_error_text": (c_char_p, [c_void_p]),
    "vole_result_finding_count": (c_size_t, [c_void_p]),
    "vole_result_finding": (POINTER(FindingStruct), [c_void_p, c_size_t]),
    "vole_result_reason_count": (c_size_t, [c_void_p]),
    "vole_result_reason": (POINTER(ReasonStruct), [c_void_p, c_size_t]),
    "vole_result_counters": (POINTER(CountersStruct), [c_void_p]),
    "vole_scanner_set_events": (c_int, [c_void_p, EVENT_FN, c_void_p]),
    "vole_scan_path": (c_int, [c_void_p, c_char_p, c_void_p]),
    "vole_scan_fd": (c_int, [c_void_p, c_int, c_void_p]),
    "vole_scan_buffer": (c_int, [c_void_p, c_void_p, c_size_t, c_void_p]),
    "vole_scan_stream": (c_int, [c_void_p, READ_FN, c_void_p, c_void_p]),
}
# These may take long, and release the interpreter's lock. For the others, getting it back would be most of the work.
_LONG = {
    "vole_signatures_load",
    "vole_signatures_save",
    "vole_signatures_unref",
    "vole_isolated_scanner_new",
    "vole_scanner_free",
    "vole_scan_path",
    "vole_scan_fd",
    "vole_scan_buffer",
    "vole_scan_stream",
}


def _load() -> types.SimpleNamespace:
    name = os.environ.get("VOLE_LIBRARY") or "libvole.so.1"
    functions = types.SimpleNamespace()
    try:
        releasing, keeping = ctypes.CDLL(name), ctypes.PyDLL(name)
        for function, (result, arguments) in _FUNCTIONS.items():
            prototype = getattr(releasing if function in _LONG else keeping, function)
            prototype.restype, prototype.argtypes = result, arguments
            setattr(functions, function, prototype)
    except (OSError, AttributeError) as error:
        raise ImportError(f"the Vole Engine's library cannot be used: {error}", name="vole", path=name) from error
    return functions


LIBRARY = _load()


def bytes_at(address: int | None, size: int) -> bytes:
    """A copy of the bytes there."""
    return ctypes.string_at(address, size) if address else b""


def text_of(text: bytes | None) -> str:
    """A text for people."""
    return (text or b"").decode("utf-8", "backslashreplace")


def name_of(name: bytes | None) -> str:
    """A name of which bytes that are no UTF-8 can be had back."""
    return (name or b"").decode("utf-8", "surrogateescape")


def c_string(text: bytes) -> bytes:
    """The text, which C will see all of."""
    if b"\0" in text:
        raise ValueError("embedded null byte")
    return text
