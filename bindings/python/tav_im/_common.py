"""What both clients have in common."""

from __future__ import annotations

from typing import Any, Callable, Dict, Mapping, Optional

from ._receiver import Receiver
from ._values import Event, Json, Message, Name, checked, handler_of

Handler = Callable[[Message], None]


class Common:
    """What waits for nothing, and the functions for pushes."""

    def __init__(self, name: str) -> None:
        self._handlers: Dict[Name, Handler] = {}
        self._receiver = Receiver(name, self._take)

    def on(self, name: Name, handler: Optional[Handler]) -> None:
        """Has `handler` called with each push of this class or code; None ends that.

        `Client` calls it on its own thread, where calls that wait must not be made, `AsyncClient` in its loop.
        """
        if handler is None:
            self._handlers.pop(name, None)
        else:
            self._handlers[name] = handler

    @property
    def connected(self) -> bool:
        return bool(self.execute({"@type": "state"})["connected"])

    def state(self) -> Json:
        return self.execute({"@type": "state"})

    def statistics(self) -> Json:
        return self.execute({"@type": "statistics"})

    def execute(self, request: Mapping[str, Any]) -> Json:
        """The answer of a request that needs no waiting."""
        return checked(self._receiver.execute(request))

    def _take(self, said: Json) -> None:
        """Called on the receiver's thread with each event."""
        self._tell(said)

    def _tell(self, said: Json) -> None:
        """Hands an event to whoever it is for."""
        event = Event(said["@type"], said)
        handler = handler_of(self._handlers, said) if event.type == "push" else None
        if handler is None:
            self._keep(event)
        else:
            handler(event.message)

    def _keep(self, event: Event) -> None:
        raise NotImplementedError
