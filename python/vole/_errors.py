"""What goes wrong, as exceptions: one for each error of the library, and kin of Python's own where there is such."""

from __future__ import annotations

import enum
import errno
from typing import TYPE_CHECKING, Any, ClassVar

from ._library import LIBRARY, text_of

if TYPE_CHECKING:
    from ._results import Problem, Result


class ErrorCode(enum.IntEnum):
    """The library's own numbers."""

    ARGUMENT = 1
    MEMORY = 2
    NOT_FOUND = 3
    PERMISSION = 4
    NOT_FILE = 5
    IO = 6
    SIGNATURES = 7
    BUSY = 8
    INTERNAL = 9
    WORKER = 10
    ISOLATION = 11


class VoleError(Exception):
    """Any error of the engine. A scan's one has its result: outcome "failed", and the text."""

    code: ClassVar[ErrorCode] = ErrorCode.INTERNAL
    result: Result | None = None


class ArgumentError(VoleError, ValueError):
    """Something that the library does not take."""

    code = ErrorCode.ARGUMENT


class ClosedError(ArgumentError):
    """The set or the scanner was closed."""


class OutOfMemoryError(VoleError, MemoryError):
    code = ErrorCode.MEMORY


class NotFoundError(VoleError, FileNotFoundError):
    """There is nothing of that name."""

    code = ErrorCode.NOT_FOUND


class AccessError(VoleError, PermissionError):
    """It may not be read."""

    code = ErrorCode.PERMISSION


class NotFileError(VoleError, OSError):
    """A folder, FIFO or device. What can be read of one, scan_file() reads."""

    code = ErrorCode.NOT_FILE


class ReadError(VoleError, OSError):
    """It could not be opened or read for another reason."""

    code = ErrorCode.IO


class SignaturesError(VoleError, ValueError):
    """The set cannot be used: `problem` is why, if it is a line or a file."""

    code = ErrorCode.SIGNATURES
    problem: Problem | None = None


class ScannerBusyError(VoleError, RuntimeError):
    """The scanner is in the middle of a scan. Each thread needs a scanner of its own."""

    code = ErrorCode.BUSY


class InternalError(VoleError, RuntimeError):
    """A fault in the library."""


class WorkerLostError(VoleError, RuntimeError):
    """The worker of an isolated scanner was lost over this content. The scanner's next scan has another one."""

    code = ErrorCode.WORKER


class IsolationError(VoleError, RuntimeError):
    """No worker can be started, or be kept from what it may not do."""

    code = ErrorCode.ISOLATION


_CLASSES: dict[int, type[VoleError]] = {
    kind.code: kind
    for kind in (
        ArgumentError,
        OutOfMemoryError,
        NotFoundError,
        AccessError,
        NotFileError,
        ReadError,
        SignaturesError,
        ScannerBusyError,
        InternalError,
        WorkerLostError,
        IsolationError,
    )
}
_SYSTEM_ERRORS = {
    ErrorCode.NOT_FOUND: errno.ENOENT,
    ErrorCode.PERMISSION: errno.EACCES,
    ErrorCode.NOT_FILE: errno.EINVAL,
    ErrorCode.IO: errno.EIO,
}


def error_of(code: int, text: str = "", filename: Any = None) -> VoleError:
    """The exception for what a function of the library returned. A number from a later version is an internal one."""
    kind = _CLASSES.get(code, InternalError)
    text = text or text_of(LIBRARY.vole_error_text(code))
    if not issubclass(kind, OSError):
        return kind(text)
    return kind(_SYSTEM_ERRORS[kind.code], text, *([] if filename is None else [filename]))
