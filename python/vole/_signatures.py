"""Sets of signatures."""

from __future__ import annotations

import ctypes
import os
from collections.abc import Callable
from typing import TYPE_CHECKING, Any

from ._callbacks import Caught
from ._errors import SignaturesError, error_of
from ._library import LIBRARY, LOAD_PROBLEM_FN, LOAD_STRICT, OK, LoadOptionsStruct, c_string
from ._owned import Owned
from ._results import Problem, problem_of

if TYPE_CHECKING:
    from _typeshed import StrOrBytesPath


class Signatures(Owned):
    """A set of signatures with its list of false alarms, loaded from a folder. It does not change, and any number of
    scanners and threads may use it at once. Scanners hold what they need of it: it may be closed before them.

    A record that cannot be used is left out and told as a Problem; `strict` makes any of them a SignaturesError, once
    all files were looked at. What `on_problem` raises ends the load, and is raised by it."""

    def __init__(
        self,
        directory: StrOrBytesPath,
        *,
        strict: bool = False,
        on_problem: Callable[[Problem], object] | None = None,
    ) -> None:
        super().__init__(_load(directory, strict, on_problem), LIBRARY.vole_signatures_unref)

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

    def __repr__(self) -> str:
        with self._lock:
            return "<vole.Signatures, closed>" if self.closed else f"<vole.Signatures, {self.count} records, {self.id}>"

    def _ask(self, function: Callable[..., Any], *arguments: Any) -> Any:
        with self._lock:
            return function(self._open(), *arguments)


def _load(directory: StrOrBytesPath, strict: bool, on_problem: Callable[[Problem], object] | None) -> Any:
    caught = Caught()
    fatal: list[Problem] = []

    def note(struct: Any) -> int:
        problem = problem_of(struct.contents)
        if (problem.fatal or strict) and not fatal:
            fatal.append(problem)
        if on_problem is not None:
            on_problem(problem)
        return 0

    function = LOAD_PROBLEM_FN(lambda _, struct: caught.run(1, note, struct))
    size = ctypes.sizeof(LoadOptionsStruct)
    options = LoadOptionsStruct(size, LOAD_STRICT if strict else 0, function, None)
    handle = ctypes.c_void_p()
    path = c_string(os.fsencode(directory))
    with caught.signals():
        code = LIBRARY.vole_signatures_load(path, ctypes.byref(options), ctypes.byref(handle))
    caught.reraise()
    if code == OK:
        return handle
    error = error_of(code, str(fatal[0]) if fatal else "", directory)
    if isinstance(error, SignaturesError) and fatal:
        error.problem = fatal[0]
    raise error
