"""The five C functions."""

from __future__ import annotations

import ctypes
import ctypes.util
import os
from pathlib import Path
from typing import Optional

_NAME = "libtav_im_json.so"


def _load() -> ctypes.CDLL:
    given = os.environ.get("TAV_IM_JSON_LIBRARY")
    if given:
        return ctypes.CDLL(given)
    # A wheel has the libraries beside this file; else they are where the system has them.
    for beside in sorted(Path(__file__).parent.glob(_NAME + "*")):
        return ctypes.CDLL(str(beside))
    for name in (_NAME + ".1", _NAME, ctypes.util.find_library("tav_im_json")):
        if name:
            try:
                return ctypes.CDLL(name)
            except OSError:
                continue
    raise ImportError(
        _NAME + " was not found: install it, or name it in the environment variable TAV_IM_JSON_LIBRARY"
    )


_functions = _load()
_functions.tav_json_create.argtypes = [ctypes.c_char_p]
_functions.tav_json_create.restype = ctypes.c_void_p
_functions.tav_json_send.argtypes = [ctypes.c_void_p, ctypes.c_char_p]
_functions.tav_json_send.restype = ctypes.c_int
_functions.tav_json_receive.argtypes = [ctypes.c_void_p, ctypes.c_double]
_functions.tav_json_receive.restype = ctypes.c_char_p
_functions.tav_json_execute.argtypes = [ctypes.c_void_p, ctypes.c_char_p]
_functions.tav_json_execute.restype = ctypes.c_char_p
_functions.tav_json_destroy.argtypes = [ctypes.c_void_p]
_functions.tav_json_destroy.restype = None


def create(name: str) -> int:
    handle: Optional[int] = _functions.tav_json_create(name.encode("utf-8"))
    if not handle:
        raise OSError("the system has no memory, descriptor or thread for a client")
    return handle


def send(handle: int, request: bytes) -> bool:
    return bool(_functions.tav_json_send(handle, request) == 0)


def receive(handle: int, seconds: float) -> Optional[bytes]:
    text: Optional[bytes] = _functions.tav_json_receive(handle, seconds)
    return text


def execute(handle: Optional[int], request: bytes) -> bytes:
    text: Optional[bytes] = _functions.tav_json_execute(handle, request)
    if text is None:
        raise MemoryError
    return text


def destroy(handle: int) -> None:
    _functions.tav_json_destroy(handle)
