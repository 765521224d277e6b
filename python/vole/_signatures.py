"""Sets of signatures."""

from __future__ import annotations

import ctypes
import os
from collections.abc import Callable
from typing import TYPE_CHECKING, Any

from ._callbacks import Caught
from ._errors import SignaturesError, error_of
from ._library import LIBRARY, LOAD_PROBLEM_FN, LOAD_STRICT, LOAD_THREADS, OK, LoadOptionsStruct, c_string
from ._owned import Owned
from ._results import Problem, problem_of

if TYPE_CHECKING:
    from _typeshed import StrOrBytesPath


class Signatures(Owned):
    """A set of signatures with its list of false alarms, loaded from a folder or from a file that save() wrote. It does
    not change, and any number of scanners and threads may use it at once. Scanners hold what they need of it: it may be
    closed before them.

    A record that cannot be used is left out and told as a Problem; `strict` makes any of them a SignaturesError, once
    all files were looked at. What `on_problem` raises ends the load, and is raised by it. `threads` lets the load use a
    second processor; the set is the same."""

    def __init__(
        self,
        directory: StrOrBytesPath,
        *,
        strict: bool = False,
        threads: bool = False,
        on_problem: Callable[[Problem], object] | None = None,
    ) -> None:
        flags = (LOAD_STRICT if strict else 0) | (LOAD_THREADS if threads else 0)
        super().__init__(_load(directory, flags, on_problem), LIBRARY.vole_signatures_unref)

    @property
    def count(self) -> int:
        """Records in the set. A folder without any makes an empty set, and no error."""
        return int(self._ask(LIBRARY.vole_signatures_count))

    @property
    def memory(self) -> int:
        """Bytes of memory that it takes."""
        return int(self._ask(LIBRARY.vole_signatures_memory))

    @property
    def id(self) -> str:
        """32 hexadecimal digits, the same on every machine for the same records and false alarms in the same order."""
        return bytes(self._ask(LIBRARY.vole_signatures_id)).decode("ascii")

    def is_false_alarm(self, name: str) -> bool:
        """Whether the name is on the set's list of false alarms, ignoring ASCII letter case."""
        wanted = c_string(name.encode("utf-8", "surrogateescape"))
        return bool(self._ask(LIBRARY.vole_signatures_is_false_alarm, wanted))

    def save(self, path: StrOrBytesPath) -> None:
        """Writes the set to a file that loads at once and whose memory all processes share that do so. It replaces what
        has that name only when all of it is on the disk."""
        name = c_string(os.fsencode(path))
        with self._lock:
            held = LIBRARY.vole_signatures_ref(self._open())  # Others may use the set meanwhile, and close it.
        try:
            code = LIBRARY.vole_signatures_save(held, name)
        finally:
            LIBRARY.vole_signatures_unref(held)
        if code != OK:
            raise error_of(code, filename=path)

    def __repr__(self) -> str:
        with self._lock:
            return "<vole.Signatures, closed>" if self.closed else f"<vole.Signatures, {self.count} records, {self.id}>"

    def _ask(self, function: Callable[..., Any], *arguments: Any) -> Any:
        with self._lock:
            return function(self._open(), *arguments)


def _load(path: StrOrBytesPath, flags: int, on_problem: Callable[[Problem], object] | None) -> Any:
    caught = Caught()
    fatal: list[Problem] = []

    def note(struct: Any) -> int:
        problem = problem_of(struct.contents)
        if (problem.fatal or flags & LOAD_STRICT) and not fatal:
            fatal.append(problem)
        if on_problem is not None:
            on_problem(problem)
        return 0

    function = LOAD_PROBLEM_FN(lambda _, struct: caught.run(1, note, struct))
    size = ctypes.sizeof(LoadOptionsStruct)
    options = LoadOptionsStruct(size, flags, function, None)
    handle = ctypes.c_void_p()
    name = c_string(os.fsencode(path))
    with caught.signals():
        code = LIBRARY.vole_signatures_load(name, ctypes.byref(options), ctypes.byref(handle))
    caught.reraise()
    if code == OK:
        return handle
    error = error_of(code, str(fatal[0]) if fatal else "", path)
    if isinstance(error, SignaturesError) and fatal:
        error.problem = fatal[0]
    raise error
