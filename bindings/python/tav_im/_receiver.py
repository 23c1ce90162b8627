"""The thread that receives for a client and hands each text to whom it is for."""

from __future__ import annotations

import itertools
import json
import logging
import re
import threading
import time
import warnings
import weakref
from typing import Any, Callable, Dict, Mapping, Optional

from . import _library
from ._values import Error, Json, encoded

Taker = Callable[[Json], None]

_log = logging.getLogger("tav_im")

_CLOSED = {"code": 3, "name": "closed", "text": "the client has ended"}
_CANCELLED = {"@type": "error", "code": 14, "name": "cancelled", "text": "the client has ended"}

_HEAD = re.compile(rb'\{"@type":"(\w+)"(?:,"@extra":(\d+))?')
_CODE = re.compile(rb'"code":(\d+)')


class Receiver:
    """One client of the library.  `on_event` and the takers of answers are called on the receiver's thread.

    The thread does not hold the object that `on_event` is a method of: who drops it unclosed ends the client.
    """

    def __init__(self, name: str, on_event: Taker) -> None:
        self._handle = _library.create(name)
        self._numbers = itertools.count(1)
        self._hands = _Hands(self._handle, weakref.WeakMethod(on_event))
        self._thread = threading.Thread(target=self._hands.run, name=f"tav_im {name}".strip(), daemon=True)
        self._dropped = weakref.finalize(self, _end_dropped, self._handle, name)
        self._dropped.atexit = False
        self._thread.start()

    def ask(self, request: Mapping[str, Any], taker: Taker) -> int:
        """Sends a request; its answer goes to `taker`, once."""
        number = next(self._numbers)
        text = encoded({**request, "@extra": number})
        self._hands.expect(number, taker)
        if not _library.send(self._handle, text):
            self._hands.forget(number)
            raise Error(_CLOSED)
        return number

    def forget(self, number: int) -> None:
        """Nobody waits for this answer any more."""
        self._hands.forget(number)

    def execute(self, request: Mapping[str, Any]) -> Json:
        answer: Json = json.loads(_library.execute(self._handle, encoded(request)))
        return answer

    def is_here(self) -> bool:
        """Whether this is the receiver's thread, which must not wait for an answer."""
        return threading.current_thread() is self._thread

    def end(self) -> None:
        """Ends the client; returns when the last answer has been handed out."""
        self._dropped.detach()
        _library.destroy(self._handle)
        if not self.is_here():
            self._thread.join()


def _end_dropped(handle: int, name: str) -> None:
    _library.destroy(handle)
    warnings.warn(f"the client {name!r} was dropped and not closed", ResourceWarning, stacklevel=2)


class _Hands:
    """What the receiving thread works on."""

    def __init__(self, handle: int, on_event: "weakref.WeakMethod[Taker]") -> None:
        self._handle = handle
        self._on_event = on_event
        self._takers: Dict[int, Taker] = {}
        self._lock = threading.Lock()

    def expect(self, number: int, taker: Taker) -> None:
        with self._lock:
            self._takers[number] = taker

    def forget(self, number: int) -> None:
        with self._lock:
            self._takers.pop(number, None)

    def run(self) -> None:
        try:
            self._receive_all()
        finally:
            # Whatever has ended it: who asks from here on is told, and who waits too.
            _library.destroy(self._handle)
            with self._lock:
                left = list(self._takers)
            for number in left:
                self._hand_out({**_CANCELLED, "@extra": number})
            self._hand_out({"@type": "closed"})

    def _receive_all(self) -> None:
        patience = 3600.0
        while True:
            begun = time.monotonic()
            text = _library.receive(self._handle, patience)
            if text is not None:
                said = _read(text)
                if said["@type"] == "closed":
                    return
                self._hand_out(said)
            elif time.monotonic() - begun < patience / 2:
                # The library knows the client no more, so nothing else will come.
                return

    def _hand_out(self, said: Json) -> None:
        taker: Optional[Taker] = None
        if "@extra" in said:
            with self._lock:
                taker = self._takers.pop(said["@extra"], None)
        elif said["@type"] != "error":
            taker = self._on_event()
        if taker is not None:
            try:
                taker(said)
            except BaseException:
                # Of these too, such as SystemExit, nobody else would hear on this thread.
                _log.exception("raised by a function of the application")


def _read(text: bytes) -> Json:
    """What the library said; of a text that Python can't read, what its beginning says."""
    try:
        said: Json = json.loads(text)
        return said
    except (RecursionError, ValueError) as error:
        bad: Json = {"code": 102, "name": "bad_reply", "text": f"Python can't read this: {error}"}
    head = _HEAD.match(text)
    if head is None:
        return {"@type": "error", **bad}
    if head.group(2) is not None:
        return {"@type": "error", "@extra": int(head.group(2)), **bad}
    code = _CODE.search(text)
    return {"@type": head.group(1).decode(), **bad, "code": int(code.group(1)) if code else 0}
