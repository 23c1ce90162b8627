"""The client for asyncio."""

from __future__ import annotations

import asyncio
from types import TracebackType
from typing import Any, AsyncIterator, List, Mapping, Optional, Type, Union

from ._backlog import AsyncEventQueue
from ._common import Common
from ._values import Event, Json, Keeper, Limits, Message, Name, Policy, Proxy, checked
from ._values import connect_request, milliseconds, reply_of, request_request, send_request
from ._values import with_extra_of


class AsyncClient(Common):
    """A client for one event loop: the one that runs where it is made.  No call blocks the loop.

    A task that is cancelled while it waits for an answer gives the answer up; the request itself goes on.

    Of the events that nobody takes the last `most_waiting` are kept: an event "dropped" with their `count` stands
    in the place of older ones.
    """

    def __init__(self, name: str = "", *, most_waiting: int = 10000) -> None:
        self._loop = asyncio.get_running_loop()
        self._events = AsyncEventQueue(most_waiting)
        super().__init__(name)

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
        await self.ask(connect_request(host, port, time_limit, more))

    async def reconnect(self, time_limit: Optional[float] = 30.0) -> None:
        """Connects again as the last `connect` did."""
        await self.ask({"@type": "reconnect", "time_limit_ms": milliseconds(time_limit)})

    async def disconnect(self) -> None:
        await self.ask({"@type": "disconnect"})

    async def send(
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
        await self.ask(send_request(name, message, receipt, time_limit, safe_to_repeat, more))

    async def request(
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
            await self.ask(request_request(name, message, reply, time_limit, safe_to_repeat, more))
        )

    async def next_event(self, timeout: Optional[float] = None) -> Optional[Event]:
        """The next event that no handler took; None if none came in time.  The last one, "closed", stays."""
        try:
            event = await asyncio.wait_for(self._events.get(), timeout)
        except asyncio.TimeoutError:
            return None
        if event.type == "closed":
            self._events.put_nowait(event)
        return event

    async def events(self) -> AsyncIterator[Event]:
        """The events that no handler takes, until the client is closed."""
        while True:
            event = await self.next_event()
            if event is None or event.type == "closed":
                return
            yield event

    async def messages(self) -> AsyncIterator[Message]:
        """The pushes among the events, until the client is closed."""
        async for event in self.events():
            if event.type == "push":
                yield event.message

    async def ask(self, request: Mapping[str, Any]) -> Json:
        """Sends a request as docs/c.md lists them, and gives its answer or raises Error."""
        answered: "asyncio.Future[Json]" = self._loop.create_future()

        def settle(answer: Json) -> None:
            if not answered.done():
                answered.set_result(answer)

        number = self._receiver.ask(request, lambda answer: self._call(settle, answer))
        try:
            return checked(with_extra_of(request, await answered))
        finally:
            self._receiver.forget(number)

    def _take(self, said: Json) -> None:
        self._call(self._tell, said)

    def _keep(self, event: Event) -> None:
        self._events.put_nowait(event)

    def _call(self, function: Any, value: Any) -> None:
        try:
            self._loop.call_soon_threadsafe(function, value)
        except RuntimeError:
            # The loop has been closed: nobody is left to be told.
            pass


__all__: List[str] = ["AsyncClient"]
