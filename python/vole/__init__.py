"""Scans files, bytes and streams for known signatures with the Vole Engine (libvole.so.1).

    with vole.Signatures("/var/lib/vole") as signatures, vole.Scanner(signatures) as scanner:
        result = scanner.scan_path("suspect.zip")

A result is only "clean" if all was seen; whatever was not is one of its reasons. Scans release the interpreter's lock:
threads with a scanner each run side by side."""

from ._errors import (
    AccessError,
    ArgumentError,
    ClosedError,
    ErrorCode,
    InternalError,
    IsolationError,
    NotFileError,
    NotFoundError,
    OutOfMemoryError,
    ReadError,
    ScannerBusyError,
    SignaturesError,
    VoleError,
    WorkerLostError,
)
from ._library import LIBRARY as _LIBRARY
from ._library import text_of as _text_of
from ._results import (
    Counters,
    Event,
    EventType,
    Finding,
    Form,
    Kind,
    MemberPath,
    Outcome,
    Problem,
    Reason,
    ReasonCode,
    Result,
    shown_path,
)
from ._scanner import Limits, Scanner
from ._signatures import Signatures

__version__ = "1.0.0.223"

__all__ = [
    "AccessError",
    "ArgumentError",
    "ClosedError",
    "Counters",
    "ErrorCode",
    "Event",
    "EventType",
    "Finding",
    "Form",
    "InternalError",
    "IsolationError",
    "Kind",
    "Limits",
    "MemberPath",
    "NotFileError",
    "NotFoundError",
    "Outcome",
    "OutOfMemoryError",
    "Problem",
    "ReadError",
    "Reason",
    "ReasonCode",
    "Result",
    "Scanner",
    "ScannerBusyError",
    "Signatures",
    "SignaturesError",
    "VoleError",
    "WorkerLostError",
    "engine_version",
    "shown_path",
]


def engine_version() -> str:
    """The version of the library that was found: "1.0.0.223" and the like."""
    return _text_of(_LIBRARY.vole_version())
