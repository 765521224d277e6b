"""How Python's functions are called from C, through which no exception passes."""

from __future__ import annotations

import contextlib
import ctypes
import signal
from collections.abc import Callable, Iterator
from types import FrameType
from typing import TYPE_CHECKING, Any, Protocol

from ._library import READ_FN

if TYPE_CHECKING:

    class Readable(Protocol):
        """What scan_file() needs at least of a file."""

        def read(self, size: int, /) -> Any: ...


class Caught:
    """Keeps the first exception, until the call that it belongs to is over."""

    def __init__(self) -> None:
        self._error: BaseException | None = None

    def run(self, failed: int, function: Callable[..., int], *arguments: Any) -> int:
        """What the function answers; `failed` if it, or one before it, raised something."""
        if self._error is not None:
            return failed
        try:
            return function(*arguments)
        except BaseException as error:
            self._error = error
            return failed

    @contextlib.contextmanager
    def signals(self) -> Iterator[None]:
        """Keeps what Python's signal handlers raise meanwhile, and raises it in the end. They run when a callback is
        entered, before it can catch anything: ctypes would drop the exception, and answer the library with whatever is
        in a register."""
        active = True

        def keeping(handler: Callable[[int, FrameType | None], Any]) -> Callable[[int, FrameType | None], None]:
            def handle(number: int, frame: FrameType | None) -> None:
                try:
                    handler(number, frame)
                except BaseException as error:
                    if not active:
                        raise
                    self._error = self._error or error

            return handle

        replaced = []
        with contextlib.suppress(ValueError):  # Handlers are set, and run, in the main thread only.
            for number in signal.valid_signals():
                if callable(handler := signal.getsignal(number)):
                    kept = keeping(handler)
                    signal.signal(number, kept)
                    replaced.append((number, handler, kept))
        try:
            yield
        finally:
            active = False
            for number, handler, kept in replaced:
                if signal.getsignal(number) is kept:  # A handler may have set another one.
                    signal.signal(number, handler)
            self.reraise()

    def reraise(self) -> None:
        error, self._error = self._error, None
        if error is not None:
            try:
                raise error
            finally:
                del error  # Its traceback leads here: no circle shall keep it.


class Stream:
    """The library's side of a file object that is read to its end."""

    def __init__(self, file: Readable, caught: Caught) -> None:
        if not callable(getattr(file, "read", None)):
            raise TypeError(f"a binary file is required, not {type(file).__name__!r}")
        self._file = file
        self._ended, self._size = False, 0
        self.function = READ_FN(lambda _, buffer, size: caught.run(-1, self._read, buffer, size))

    def _read(self, buffer: int, size: int) -> int:
        piece = self._file.read(size)
        if piece is None:
            raise BlockingIOError("the file has nothing to read yet; a blocking one is required")
        if not isinstance(piece, (bytes, bytearray, memoryview)):
            raise TypeError(f"a binary file is required; this one reads {type(piece).__name__!r}")
        piece = bytes(piece)
        if len(piece) > size:
            raise ValueError("the file read more than it was asked for")
        ctypes.memmove(buffer, piece, len(piece))
        self._ended = not piece
        self._size += len(piece)
        return len(piece)

    def was_read(self, size: int) -> bool:
        """Whether the library has so many bytes of the file, and they are all."""
        return self._ended and self._size == size
