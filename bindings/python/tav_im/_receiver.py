"""The thread that receives for a client and hands each text to whom it is for."""

from __future__ import annotations

import itertools
import json
import logging
import threading
from typing import Any, Callable, Dict, Mapping, Optional

from . import _library
from ._values import Error, Json, encoded

Taker = Callable[[Json], None]

_log = logging.getLogger("tav_im")

_CLOSED = {"code": 3, "name": "closed", "text": "the client has ended"}


class Receiver:
    """One client of the library.  `on_event` and the takers of answers are called on the receiver's thread."""

    def __init__(self, name: str, on_event: Taker) -> None:
        self._handle = _library.create(name)
        self._on_event = on_event
        self._numbers = itertools.count(1)
        self._takers: Dict[int, Taker] = {}
        self._lock = threading.Lock()
        self._thread = threading.Thread(target=self._run, name=f"tav_im {name}".strip(), daemon=True)
        self._thread.start()

    def ask(self, request: Mapping[str, Any], taker: Taker) -> int:
        """Sends a request; its answer goes to `taker`, once."""
        number = next(self._numbers)
        text = encoded({**request, "@extra": number})
        with self._lock:
            self._takers[number] = taker
        if not _library.send(self._handle, text):
            with self._lock:
                self._takers.pop(number, None)
            raise Error(_CLOSED)
        return number

    def forget(self, number: int) -> None:
        """Nobody waits for this answer any more."""
        with self._lock:
            self._takers.pop(number, None)

    def execute(self, request: Mapping[str, Any]) -> Json:
        answer: Json = json.loads(_library.execute(self._handle, encoded(request)))
        return answer

    def is_here(self) -> bool:
        """Whether this is the receiver's thread, which must not wait for an answer."""
        return threading.current_thread() is self._thread

    def end(self) -> None:
        """Ends the client; returns when the last answer has been handed out."""
        _library.destroy(self._handle)
        if not self.is_here():
            self._thread.join()

    def _run(self) -> None:
        closed = False
        while not closed:
            text = _library.receive(self._handle, 3600.0)
            if text is not None:
                said: Json = json.loads(text)
                closed = said["@type"] == "closed"
                self._hand_out(said)

    def _hand_out(self, said: Json) -> None:
        taker: Optional[Taker] = self._on_event
        if "@extra" in said:
            with self._lock:
                taker = self._takers.pop(said["@extra"], None)
        elif said["@type"] == "error":
            taker = None
        if taker is not None:
            try:
                taker(said)
            except Exception:
                _log.exception("raised by a function of the application")
