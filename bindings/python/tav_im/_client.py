"""The client for programs that wait."""

from __future__ import annotations

import queue
from types import TracebackType
from typing import Any, Iterator, List, Mapping, Optional, Type, Union

from ._backlog import EventQueue
from ._common import Common, Handler
from ._values import Error, Event, Json, Keeper, Limits, Message, Name, Policy, Proxy, checked
from ._values import connect_request, milliseconds, reply_of, request_request, send_request
from ._values import with_extra_of


class Client(Common):
    """A client whose calls wait for their answers.

    Every method may be called from any thread.  Pushes that `on` has a function for are handed to it on the
    client's own thread, where calls that wait must not be made; all else waits in `events`.

    Of the events that nobody takes the last `most_waiting` are kept: an event "dropped" with their `count` stands
    in the place of older ones.
    """

    def __init__(self, name: str = "", *, most_waiting: int = 10000) -> None:
        self._events = EventQueue(most_waiting)
        super().__init__(name)

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
        host: Optional[str] = None,
        port: Optional[Union[int, str]] = None,
        *,
        ca: Optional[str] = None,
        template: Optional[str] = None,
        template_file: Optional[str] = None,
        time_limit: Optional[float] = 30.0,
        heartbeat: bool = True,
        policy: Optional[Policy] = None,
        limits: Optional[Limits] = None,
        proxy: Optional[Proxy] = None,
        cipher: Optional[str] = None,
        server_name: Optional[str] = None,
        keeper: Optional[Keeper] = None,
    ) -> None:
        """Connects, in place of any connection there is.  docs/c.md lists what policy, limits and proxy hold.

        With a keeper the connection is made again whenever it ends, and what is sent meanwhile waits for it.  The
        call returns then once the first attempts are over, also if there is no connection yet: `connected` tells.
        Where the keeper has gateways, host and port may be left out.
        """
        more = {
            "ca": ca,
            "template": template,
            "template_file": template_file,
            "heartbeat": heartbeat,
            "policy": policy,
            "limits": limits,
            "proxy": proxy,
            "cipher": cipher,
            "server_name": server_name,
            "keeper": keeper,
        }
        self.ask(connect_request(host, port, time_limit, more))

    def reconnect(self, time_limit: Optional[float] = 30.0) -> None:
        """Connects again as the last `connect` did."""
        self.ask({"@type": "reconnect", "time_limit_ms": milliseconds(time_limit)})

    def disconnect(self) -> None:
        self.ask({"@type": "disconnect"})

    def send(
        self,
        name: Name,
        message: Union[Mapping[str, Any], str],
        *,
        receipt: bool = False,
        time_limit: Optional[float] = 30.0,
        safe_to_repeat: bool = False,
        target: Optional[str] = None,
        grey: Optional[bool] = None,
        version: Optional[int] = None,
    ) -> None:
        """Sends a message; waits for nothing but that it was taken, or for the peer's receipt if one is wanted."""
        more = {"target": target, "grey": grey, "version": version}
        self.ask(send_request(name, message, receipt, time_limit, safe_to_repeat, more))

    def request(
        self,
        name: Name,
        message: Union[Mapping[str, Any], str],
        reply: Name,
        time_limit: Optional[float] = 30.0,
        safe_to_repeat: bool = False,
        *,
        grey: Optional[bool] = None,
        version: Optional[int] = None,
    ) -> Message:
        """Sends a message and gives its reply.

        One that is safe to repeat goes out again if a connection that is kept ended ahead of the reply.
        """
        more = {"grey": grey, "version": version}
        return reply_of(
            self.ask(request_request(name, message, reply, time_limit, safe_to_repeat, more))
        )

    def next_event(self, timeout: Optional[float] = None) -> Optional[Event]:
        """The next event that no handler took; None if none came in time.  The last one, "closed", stays."""
        try:
            event = self._events.get(timeout=timeout)
        except queue.Empty:
            return None
        if event.type == "closed":
            self._events.put(event)
        return event

    def events(self) -> Iterator[Event]:
        """The events that no handler takes, until the client is closed."""
        while True:
            event = self.next_event()
            if event is None or event.type == "closed":
                return
            yield event

    def messages(self) -> Iterator[Message]:
        """The pushes among the events, until the client is closed."""
        for event in self.events():
            if event.type == "push":
                yield event.message

    def ask(self, request: Mapping[str, Any]) -> Json:
        """Sends a request as docs/c.md lists them, and gives its answer or raises Error."""
        if self._receiver.is_here():
            raise RuntimeError("a handler must not wait: this thread brings the answer")
        answers: "queue.SimpleQueue[Json]" = queue.SimpleQueue()
        self._receiver.ask(request, answers.put)
        return checked(with_extra_of(request, answers.get()))

    def _keep(self, event: Event) -> None:
        self._events.put(event)


__all__: List[str] = ["Client", "Error", "Handler"]
