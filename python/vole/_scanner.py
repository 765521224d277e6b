"""Scanners, and what a scan may cost."""

from __future__ import annotations

import contextlib
import ctypes
import io
import operator
import os
from collections.abc import Callable, Iterator
from dataclasses import dataclass, fields
from typing import TYPE_CHECKING, Any

from ._buffers import bytes_in
from ._callbacks import Caught, Stream
from ._errors import ErrorCode, ScannerBusyError, error_of
from ._library import (
    EVENT_FN,
    LIBRARY,
    OK,
    SCAN_ALL_MATCHES,
    SCAN_SHALLOW,
    WORKER_GRACE_MS,
    WORKER_MEMORY,
    IsolationStruct,
    LimitsStruct,
    c_string,
    text_of,
)
from ._owned import Owned
from ._results import Copier, Event, Outcome, Result
from ._signatures import Signatures

if TYPE_CHECKING:
    from _typeshed import ReadableBuffer, StrOrBytesPath

    from ._callbacks import Readable


@dataclass(frozen=True, slots=True)
class Limits:
    """What one scan may cost. None and 0 are no limit, everywhere; what is given up for one is a reason."""

    max_content: int | None = 2147483648
    """Bytes of the content that is scanned itself."""
    max_member: int | None = 268435456
    """Bytes of one archive member, unpacked."""
    max_total: int | None = 2147483648
    """Bytes unpacked in one scan."""
    max_members: int | None = 20000
    """Archive members in one scan, at all levels."""
    max_depth: int | None = 32
    """Levels of archives that are opened within each other."""
    max_ratio: int | None = None
    """Unpacked to packed size of one member."""
    max_time_ms: int | None = 120000
    """Milliseconds that one scan may take."""

    def _struct(self) -> LimitsStruct:
        struct = LimitsStruct(struct_size=ctypes.sizeof(LimitsStruct))
        for field in fields(self):
            limit = operator.index(getattr(self, field.name) or 0)
            setattr(struct, field.name, limit)
            if getattr(struct, field.name) != limit:  # ctypes keeps the bits that fit.
                raise ValueError(f"{field.name} cannot be {limit}")
        return struct


class Scanner(Owned):
    """Scans one content after another; cheap to make and to keep. Each thread needs one of its own: a second scan at
    the same time, and close() during one, raise ScannerBusyError. Only cancel() and rearm() are for any thread.

    `shallow` scans read archives by their formats' rules only; others look for members wherever some unpacker may find
    them.

    An `isolated` scanner has its contents looked at in a process that can do nothing else: whatever they do to the
    engine costs that one scan, a WorkerLostError. It takes some milliseconds to make. IsolationError where the system
    does not allow it.

    `on_event` is called on the scanning thread with what happens. It may not use the scanner, except to cancel it.
    What it raises ends the scan, and is raised by it; so is what signal handlers raise, Ctrl-C's for example, which run
    when a callback is called or the scan is over."""

    def __init__(
        self,
        signatures: Signatures,
        limits: Limits | None = None,
        *,
        all_matches: bool = False,
        shallow: bool = False,
        isolated: bool = False,
        on_event: Callable[[Event], object] | None = None,
    ) -> None:
        if not isinstance(signatures, Signatures):
            raise TypeError(f"a set of signatures is required, not {type(signatures).__name__!r}")
        if not isinstance(limits, (Limits, type(None))):
            raise TypeError(f"limits are required, not {type(limits).__name__!r}")
        if on_event is not None and not callable(on_event):
            raise TypeError("on_event cannot be called")
        self.signatures = signatures
        self.limits = limits if limits is not None else Limits()
        self.all_matches = all_matches
        self.shallow = shallow
        self.isolated = isolated
        self._on_event = on_event
        self._scanning = False
        super().__init__(self._made(), LIBRARY.vole_scanner_free)
        flags = (SCAN_ALL_MATCHES if all_matches else 0) | (SCAN_SHALLOW if shallow else 0)
        self._check(LIBRARY.vole_scanner_set_flags(self._value, flags))

    def scan_path(self, path: StrOrBytesPath) -> Result:
        """A regular file; links are followed. Folders, FIFOs and devices are a NotFileError, and never block."""
        return self._scan(Caught(), LIBRARY.vole_scan_path, c_string(os.fsencode(path)), filename=path)

    def scan_file(self, file: Readable) -> Result:
        """A binary file object. One that can seek is scanned as a whole, wherever its position, which stays where it
        is; any other from where it is to its end. A real file is read by the library itself."""
        descriptor = _descriptor_of(file)
        caught = Caught()
        if descriptor is not None:
            return self._scan(caught, LIBRARY.vole_scan_fd, descriptor)
        stream = Stream(file, caught)
        with _from_the_start(file), caught.signals():
            result = self._scan(caught, LIBRARY.vole_scan_stream, stream.function, None)
        if result.outcome is not Outcome.INCOMPLETE and not stream.was_read(result.counters.bytes_read):
            # The interpreter could not even call the function, for want of memory or stack.
            raise error_of(ErrorCode.IO, "the stream could not be read")
        return result

    def scan_bytes(self, data: ReadableBuffer) -> Result:
        """Any buffer object, in place. Nobody may change its bytes meanwhile."""
        with bytes_in(data) as (address, size):
            return self._scan(Caught(), LIBRARY.vole_scan_buffer, address, size)

    def cancel(self) -> None:
        """Ends the scan under way as soon as possible, with ReasonCode.CANCELLED, and every later one at once, until
        rearm(). A read() of a file object that blocks is waited for."""
        with self._lock:
            LIBRARY.vole_scanner_cancel(self._open())

    def rearm(self) -> None:
        """Lets the scanner scan again after cancel()."""
        with self._lock:
            LIBRARY.vole_scanner_rearm(self._open())

    def close(self) -> None:
        with self._lock:
            if self._scanning:
                raise ScannerBusyError("the scanner cannot be closed in the middle of a scan")
            super().close()

    def __repr__(self) -> str:
        state = "closed" if self.closed else "scanning" if self._scanning else "idle"
        return f"<vole.Scanner, {state}>"

    def _made(self) -> Any:
        handle = ctypes.c_void_p()
        limits = self.limits._struct()
        why = ctypes.create_string_buffer(512)
        with self.signatures._lock:
            signatures = self.signatures._open()
            if self.isolated:
                isolation = IsolationStruct(
                    ctypes.sizeof(IsolationStruct),
                    None,
                    WORKER_MEMORY,
                    WORKER_GRACE_MS,
                    ctypes.addressof(why),
                    len(why),
                )
                code = LIBRARY.vole_isolated_scanner_new(
                    signatures, ctypes.byref(limits), ctypes.byref(isolation), ctypes.byref(handle)
                )
            else:
                code = LIBRARY.vole_scanner_new(signatures, ctypes.byref(limits), ctypes.byref(handle))
        self._check(code, text_of(why.value))
        return handle

    @staticmethod
    def _check(code: int, text: str = "") -> None:
        if code != OK:
            raise error_of(code, text)

    def _scan(self, caught: Caught, function: Callable[..., int], *arguments: Any, filename: Any = None) -> Result:
        with self._turn() as handle, self._told(handle, caught):
            code = function(handle, *arguments, None)
            caught.reraise()
            result = Copier().result(LIBRARY.vole_scanner_result(handle))
        if code == OK:
            return result
        error = error_of(code, result.error_text, filename)
        error.result = result
        raise error

    @contextlib.contextmanager
    def _turn(self) -> Iterator[Any]:
        """Keeps the scanner for one scan, in which it cannot be closed."""
        with self._lock:
            handle = self._open()
            if self._scanning:
                raise ScannerBusyError("the scanner is in the middle of a scan; each thread needs one of its own")
            self._scanning = True
        try:
            yield handle
        finally:
            self._scanning = False

    @contextlib.contextmanager
    def _told(self, handle: Any, caught: Caught) -> Iterator[None]:
        """Has the callback told of the events of one scan."""
        if self._on_event is None:
            yield
            return
        callback = self._on_event

        def tell(event: Any) -> int:
            callback(Copier().event(event.contents))
            return 0

        function = EVENT_FN(lambda _, event: caught.run(1, tell, event))
        self._check(LIBRARY.vole_scanner_set_events(handle, function, None))
        try:
            with caught.signals():
                yield
        finally:
            LIBRARY.vole_scanner_set_events(handle, EVENT_FN(0), None)


def _descriptor_of(file: Any) -> int | None:
    """The descriptor of which reading gives what reading the object gives. Others have one, too: that of a file that
    is unpacked, for example, is not what its reader sees."""
    raw = file.raw if type(file) in (io.BufferedReader, io.BufferedRandom) else file
    if type(raw) is not io.FileIO or not raw.readable() or not raw.seekable():
        return None
    file.flush()
    return raw.fileno()


@contextlib.contextmanager
def _from_the_start(file: Any) -> Iterator[None]:
    seekable = getattr(file, "seekable", None)
    if seekable is None or not seekable():
        yield
        return
    position = file.tell()
    file.seek(0)
    try:
        yield
    finally:
        file.seek(position)
