"""What has come and nobody has taken yet, up to a bound."""

from __future__ import annotations

import asyncio
import queue
from collections import deque
from typing import TYPE_CHECKING, Deque

from ._values import Event

if TYPE_CHECKING:
    ThreadQueue = queue.Queue[Event]
    LoopQueue = asyncio.Queue[Event]
else:
    ThreadQueue = queue.Queue
    LoopQueue = asyncio.Queue


class Backlog:
    """Events in their order.  Of more than `most` the oldest go, and one that counts them stands in their place."""

    def __init__(self, most: int) -> None:
        if most < 1:
            raise ValueError("most_waiting has to be 1 at least")
        self._most = most
        self._events: Deque[Event] = deque()
        self._dropped = 0

    def put(self, event: Event) -> None:
        if len(self._events) >= self._most:
            self._events.popleft()
            self._dropped += 1
        self._events.append(event)

    def get(self) -> Event:
        if self._dropped:
            count, self._dropped = self._dropped, 0
            return Event("dropped", {"@type": "dropped", "count": count})
        return self._events.popleft()

    def __len__(self) -> int:
        return len(self._events) + (1 if self._dropped else 0)


class EventQueue(ThreadQueue):
    """A backlog for threads."""

    def __init__(self, most: int) -> None:
        self._backlog = Backlog(most)
        super().__init__()

    def _qsize(self) -> int:
        return len(self._backlog)

    def _put(self, item: Event) -> None:
        self._backlog.put(item)

    def _get(self) -> Event:
        return self._backlog.get()


class AsyncEventQueue(LoopQueue):
    """A backlog for a loop."""

    def __init__(self, most: int) -> None:
        self._backlog = Backlog(most)
        super().__init__()

    def qsize(self) -> int:
        return len(self._backlog)

    def empty(self) -> bool:
        return not self._backlog

    def _put(self, item: Event) -> None:
        self._backlog.put(item)

    def _get(self) -> Event:
        return self._backlog.get()
