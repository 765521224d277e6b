"""Where the bytes of a buffer object are. ctypes itself tells it of writable ones only."""

from __future__ import annotations

import contextlib
import ctypes
from collections.abc import Iterator
from ctypes import POINTER, byref, c_char_p, c_int, c_ssize_t, c_void_p, py_object
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from _typeshed import ReadableBuffer


class _PyBuffer(ctypes.Structure):
    """Py_buffer, of CPython's stable interface."""

    _fields_ = [
        ("buf", c_void_p),
        ("obj", c_void_p),
        ("len", c_ssize_t),
        ("itemsize", c_ssize_t),
        ("readonly", c_int),
        ("ndim", c_int),
        ("format", c_char_p),
        ("shape", c_void_p),
        ("strides", c_void_p),
        ("suboffsets", c_void_p),
        ("internal", c_void_p),
    ]


# Not ctypes.pythonapi, whose prototypes other modules set, too.
_PYTHON = ctypes.PyDLL(None)
_get, _release = _PYTHON.PyObject_GetBuffer, _PYTHON.PyBuffer_Release
_get.argtypes, _get.restype = [py_object, POINTER(_PyBuffer), c_int], c_int
_release.argtypes, _release.restype = [POINTER(_PyBuffer)], None
_SIMPLE = 0  # All bytes in one piece, to be read only.


@contextlib.contextmanager
def bytes_in(data: ReadableBuffer) -> Iterator[tuple[int | None, int]]:
    """Address and number of the bytes, which stay there meanwhile. What is not in one piece is copied into one."""
    view = _PyBuffer()
    try:
        _get(data, byref(view), _SIMPLE)
    except (BufferError, ValueError):
        _get(memoryview(data).tobytes(), byref(view), _SIMPLE)
    try:
        yield view.buf, view.len
    finally:
        _release(byref(view))
