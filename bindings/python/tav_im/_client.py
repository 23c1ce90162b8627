"""The client for programs that wait."""

from __future__ import annotations

import queue
from types import TracebackType
from typing import Any, Callable, Dict, Iterator, List, Mapping, Optional, Type, Union

from ._receiver import Receiver
from ._values import Error, Event, Json, Keeper, Message, Name, checked, connect_request, message_members
from ._values import message_of, milliseconds

Handler = Callable[[Message], None]


class Client:
    """A client whose calls wait for their answers.

    Every method may be called from any thread.  Pushes that `on` has a function for are handed to it on the
    client's own thread, where calls that wait must not be made; all else waits in `events`.
    """

    def __init__(self, name: str = "") -> None:
        self._events: "queue.SimpleQueue[Event]" = queue.SimpleQueue()
        self._handlers: Dict[Name, Handler] = {}
        self._receiver = Receiver(name, self._take)

    def __enter__(self) -> "Client":
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], value: Optional[BaseException], where: Optional[TracebackType]
    ) -> None:
        self.close()

    def close(self) -> None:
        """Ends the client; requests under way fail with "cancelled"."""
        self._receiver.end()

    def connect(
        self,
        host: str,
        port: Union[int, str],
        *,
        ca: Optional[str] = None,
        template: Optional[str] = None,
        template_file: Optional[str] = None,
        time_limit: float = 30.0,
        heartbeat: bool = True,
        policy: Optional[Mapping[str, Any]] = None,
        limits: Optional[Mapping[str, Any]] = None,
        proxy: Optional[Mapping[str, Any]] = None,
        keeper: Optional[Keeper] = None,
        **more: Any,
    ) -> None:
        """Connects, in place of any connection there is.  docs/c.md lists what policy, limits and proxy hold.

        With a keeper the connection is made again whenever it ends, and what is sent meanwhile waits for it.
        """
        self.ask(
            connect_request(
                host, port, ca, template, template_file, time_limit, heartbeat, policy, limits, proxy, keeper, more
            )
        )

    def reconnect(self, time_limit: float = 30.0) -> None:
        """Connects again as the last `connect` did."""
        self.ask({"@type": "reconnect", "time_limit_ms": milliseconds(time_limit)})

    def disconnect(self) -> None:
        self.ask({"@type": "disconnect"})

    def send(self, name: Name, message: Union[Mapping[str, Any], str], **more: Any) -> None:
        """Sends a message and waits for nothing but that it was taken."""
        self.ask({"@type": "send", **message_members(name, message), **more})

    def request(
        self,
        name: Name,
        message: Union[Mapping[str, Any], str],
        reply: Name,
        time_limit: float = 30.0,
        safe_to_repeat: bool = False,
        **more: Any,
    ) -> Message:
        """Sends a message and gives its reply.

        One that is safe to repeat goes out again if a connection that is kept ended ahead of the reply.
        """
        limit = milliseconds(time_limit)
        if safe_to_repeat:
            more["safe_to_repeat"] = True
        members = message_members(name, message)
        return message_of(
            self.ask({"@type": "request", **members, "reply": reply, "time_limit_ms": limit, **more})
        )

    def on(self, name: Name, handler: Optional[Handler]) -> None:
        """Has `handler` called with each push of this class or code; None ends that."""
        if handler is None:
            self._handlers.pop(name, None)
        else:
            self._handlers[name] = handler

    def next_event(self, timeout: Optional[float] = None) -> Optional[Event]:
        """The next event that no handler took; None if none came in time."""
        try:
            return self._events.get(timeout=timeout)
        except queue.Empty:
            return None

    def events(self) -> Iterator[Event]:
        """The events that no handler takes, until the client is closed."""
        while True:
            event = self._events.get()
            if event.type == "closed":
                return
            yield event

    @property
    def connected(self) -> bool:
        return bool(self.execute({"@type": "state"})["connected"])

    def state(self) -> Json:
        return self.execute({"@type": "state"})

    def statistics(self) -> Json:
        return self.execute({"@type": "statistics"})

    def ask(self, request: Mapping[str, Any]) -> Json:
        """Sends a request as docs/c.md lists them, and gives its answer or raises Error."""
        if self._receiver.is_here():
            raise RuntimeError("a handler must not wait: this thread brings the answer")
        answers: "queue.SimpleQueue[Json]" = queue.SimpleQueue()
        self._receiver.ask(request, answers.put)
        return checked(answers.get())

    def execute(self, request: Mapping[str, Any]) -> Json:
        """The answer of a request that needs no waiting."""
        return checked(self._receiver.execute(request))

    def _take(self, said: Json) -> None:
        event = Event(said["@type"], said)
        handler: Optional[Handler] = None
        if event.type == "push":
            handler = self._handlers.get(said.get("class", "")) or self._handlers.get(said["code"])
        if handler is None:
            self._events.put(event)
        else:
            handler(event.message)


__all__: List[str] = ["Client", "Error", "Handler"]
