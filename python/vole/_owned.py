"""What objects have in common that own something of the library's."""

from __future__ import annotations

import threading
import weakref
from collections.abc import Callable
from types import TracebackType
from typing import Any, TypeVar

from ._errors import ClosedError

_Self = TypeVar("_Self", bound="Owned")


class Owned:
    """A handle that is given back once: by close(), or when nobody has the object any more. Any thread may use it; a
    signal handler, too, as the lock lets its own thread in again."""

    def __init__(self, handle: Any, release: Callable[[Any], None]) -> None:
        self._lock = threading.RLock()
        self._value = handle
        self._release = weakref.finalize(self, release, handle)
        # At the end of the process another thread may be in the middle of a scan.
        self._release.atexit = False

    @property
    def closed(self) -> bool:
        return not self._release.alive

    def close(self) -> None:
        """Gives the library's part back; again, it does nothing."""
        with self._lock:
            self._release()

    def __enter__(self: _Self) -> _Self:
        with self._lock:
            self._open()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, traceback: TracebackType | None
    ) -> None:
        self.close()

    def _open(self) -> Any:
        """The handle, if there is one; for a caller that holds the lock as long as it uses it."""
        if self.closed:
            raise ClosedError(f"the {type(self).__name__} is closed")
        return self._value
