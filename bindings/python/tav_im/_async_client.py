"""The client for asyncio."""

from __future__ import annotations

import asyncio
from types import TracebackType
from typing import Any, AsyncIterator, List, Mapping, Optional, Type, Union

from ._receiver import Receiver
from ._values import Event, Json, Keeper, Message, Name, checked, connect_request, message_members
from ._values import message_of, milliseconds


class AsyncClient:
    """A client for one event loop: the one that runs where it is made.  No call blocks the loop.

    A task that is cancelled while it waits for an answer gives the answer up; the request itself goes on.
    """

    def __init__(self, name: str = "") -> None:
        self._loop = asyncio.get_running_loop()
        self._events: "asyncio.Queue[Event]" = asyncio.Queue()
        self._receiver = Receiver(name, self._take)

    async def __aenter__(self) -> "AsyncClient":
        return self

    async def __aexit__(
        self, kind: Optional[Type[BaseException]], value: Optional[BaseException], where: Optional[TracebackType]
    ) -> None:
        await self.close()

    async def close(self) -> None:
        """Ends the client; requests under way fail with "cancelled"."""
        await self._loop.run_in_executor(None, self._receiver.end)

    async def connect(
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
        await self.ask(
            connect_request(
                host, port, ca, template, template_file, time_limit, heartbeat, policy, limits, proxy, keeper, more
            )
        )

    async def reconnect(self, time_limit: float = 30.0) -> None:
        """Connects again as the last `connect` did."""
        await self.ask({"@type": "reconnect", "time_limit_ms": milliseconds(time_limit)})

    async def disconnect(self) -> None:
        await self.ask({"@type": "disconnect"})

    async def send(self, name: Name, message: Union[Mapping[str, Any], str], **more: Any) -> None:
        """Sends a message and waits for nothing but that it was taken."""
        await self.ask({"@type": "send", **message_members(name, message), **more})

    async def request(
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
            await self.ask({"@type": "request", **members, "reply": reply, "time_limit_ms": limit, **more})
        )

    async def next_event(self) -> Event:
        return await self._events.get()

    async def events(self) -> AsyncIterator[Event]:
        """The events, until the client is closed."""
        while True:
            event = await self._events.get()
            if event.type == "closed":
                return
            yield event

    async def messages(self) -> AsyncIterator[Message]:
        """The pushes among the events, until the client is closed."""
        async for event in self.events():
            if event.type == "push":
                yield event.message

    @property
    def connected(self) -> bool:
        return bool(self.execute({"@type": "state"})["connected"])

    def state(self) -> Json:
        return self.execute({"@type": "state"})

    def statistics(self) -> Json:
        return self.execute({"@type": "statistics"})

    async def ask(self, request: Mapping[str, Any]) -> Json:
        """Sends a request as docs/c.md lists them, and gives its answer or raises Error."""
        answered: "asyncio.Future[Json]" = self._loop.create_future()

        def settle(answer: Json) -> None:
            if not answered.done():
                answered.set_result(answer)

        number = self._receiver.ask(request, lambda answer: self._call(settle, answer))
        try:
            return checked(await answered)
        finally:
            self._receiver.forget(number)

    def execute(self, request: Mapping[str, Any]) -> Json:
        """The answer of a request that needs no waiting."""
        return checked(self._receiver.execute(request))

    def _take(self, said: Json) -> None:
        self._call(self._events.put_nowait, Event(said["@type"], said))

    def _call(self, function: Any, value: Any) -> None:
        try:
            self._loop.call_soon_threadsafe(function, value)
        except RuntimeError:
            # The loop has been closed: nobody is left to be told.
            pass


__all__: List[str] = ["AsyncClient"]
