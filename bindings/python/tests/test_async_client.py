import asyncio
import gc
import threading
import unittest

import tav_im

from .rig import DEEP, LIMIT, TEMPLATE, Gateway, deep_body


class AsyncClientTest(unittest.IsolatedAsyncioTestCase):
    gateway: Gateway

    @classmethod
    def setUpClass(cls) -> None:
        cls.gateway = Gateway("--ask-affirm")

    @classmethod
    def tearDownClass(cls) -> None:
        cls.gateway.stop()

    async def connected(self) -> tav_im.AsyncClient:
        client = tav_im.AsyncClient("test")
        self.addAsyncCleanup(client.close)
        await self.gateway.connect_async(client)
        return client

    async def next(self, client: tav_im.AsyncClient, kind: str) -> tav_im.Event:
        while True:
            event = await client.next_event(LIMIT)
            self.assertIsNotNone(event, kind)
            if event is not None and event.type == kind:
                return event

    async def test_many_requests_wait_at_once(self) -> None:
        client = await self.connected()
        asked = [client.request("Say", {"text": str(i)}, reply="Said", time_limit=LIMIT) for i in range(50)]
        replies = await asyncio.gather(*asked)
        self.assertEqual([reply["text"] for reply in replies], [str(i) for i in range(50)])

    async def test_messages_come_until_the_client_is_closed(self) -> None:
        ann = await self.connected()
        bob = await self.connected()
        await bob.request("Say", {"text": "here"}, reply="Said", time_limit=LIMIT)

        async def listen() -> list[str]:
            return [message["text"] async for message in bob.messages()]

        listening = asyncio.ensure_future(listen())
        for text in ("a", "b", "c"):
            await ann.request("Say", {"text": text}, reply="Said", time_limit=LIMIT)
        # What the gateway passes on comes to bob ahead of the answer to what he asks next.
        await bob.request("Say", {"text": "last"}, reply="Said", time_limit=LIMIT)
        await bob.close()
        self.assertEqual(await asyncio.wait_for(listening, LIMIT), ["a", "b", "c"])

    async def test_events_that_nobody_takes_are_bounded(self) -> None:
        with self.assertRaises(ValueError):
            tav_im.AsyncClient(most_waiting=0)
        bob = tav_im.AsyncClient("bob", most_waiting=4)
        self.addAsyncCleanup(bob.close)
        await self.gateway.connect_async(bob)
        ann = await self.connected()
        await bob.request("Say", {"text": "here"}, reply="Said", time_limit=LIMIT)
        for number in range(20):
            await ann.request("Say", {"text": str(number)}, reply="Said", time_limit=LIMIT)
        await bob.request("Say", {"text": "last"}, reply="Said", time_limit=LIMIT)
        dropped = await bob.next_event(LIMIT)
        self.assertIsNotNone(dropped)
        if dropped is not None:
            self.assertEqual((dropped.type, dropped.data["count"]), ("dropped", 17))
        texts = []
        for _ in range(4):
            event = await bob.next_event(LIMIT)
            if event is not None:
                texts.append(event.message["text"])
        self.assertEqual(texts, ["16", "17", "18", "19"])

    async def test_connections_and_breaks_are_events(self) -> None:
        client = await self.connected()
        await self.next(client, "connected")
        with self.assertRaises(tav_im.Error) as caught:
            await client.request("CloseMe", {"text": ""}, reply="Said", time_limit=LIMIT)
        self.assertEqual(caught.exception.name, "closed_by_peer")
        self.assertEqual((await self.next(client, "disconnected")).data["name"], "closed_by_peer")
        self.assertFalse(client.connected)
        await client.reconnect(LIMIT)
        self.assertTrue(client.connected)
        await client.disconnect()
        self.assertEqual(client.statistics()["connects_up"], 2)

    async def test_a_task_that_is_cancelled_gives_its_answer_up(self) -> None:
        client = await self.connected()
        task = asyncio.ensure_future(client.request("Say", {"text": "a"}, reply="Said", time_limit=LIMIT))
        await asyncio.sleep(0)
        task.cancel()
        with self.assertRaises(asyncio.CancelledError):
            await task
        reply = await client.request("Say", {"text": "b"}, reply="Said", time_limit=LIMIT)
        self.assertEqual(reply["text"], "b")

    async def test_errors_are_raised(self) -> None:
        client = await self.connected()
        with self.assertRaises(tav_im.Error) as caught:
            await client.send("Say", {"text": 1})
        self.assertEqual(caught.exception.field, "message.text")

    async def test_the_end_is_told_to_everyone_who_listens(self) -> None:
        client = tav_im.AsyncClient()

        async def listen() -> list[str]:
            return [event.type async for event in client.events()]

        listening = [asyncio.ensure_future(listen()) for _ in range(2)]
        await client.close()
        for each in listening:
            self.assertEqual(await asyncio.wait_for(each, LIMIT), [])
        self.assertEqual(await asyncio.wait_for(listen(), LIMIT), [])
        last = await client.next_event(LIMIT)
        assert last is not None
        self.assertEqual(last.type, "closed")

    async def test_pushes_go_to_a_function(self) -> None:
        client = await self.connected()
        heard: "asyncio.Queue[str]" = asyncio.Queue()
        client.on("Pushed", lambda message: heard.put_nowait(message["text"]))
        await client.request("PushMe", {"text": "a"}, reply="Pushing", time_limit=LIMIT)
        self.assertEqual(await asyncio.wait_for(heard.get(), LIMIT), "a")

    async def test_a_reply_that_can_not_be_read_is_an_error(self) -> None:
        client = tav_im.AsyncClient()
        self.addAsyncCleanup(client.close)
        template = TEMPLATE + "Strict:object(__class__(Strict) __code__(3004) [1]text:string() [9]more:string())\n"
        template += "Loose:object(__class__(Loose) __code__(3003) [1]text:string())"
        gate = self.gateway
        await client.connect("127.0.0.1", gate.port, ca=gate.ca, template=template, time_limit=LIMIT)
        with self.assertRaises(tav_im.Error) as caught:
            await client.request("Loose", {"text": "a"}, reply="Strict", time_limit=LIMIT)
        self.assertEqual((caught.exception.name, caught.exception.code), ("bad_reply", 102))

    async def test_a_message_that_is_nested_too_deep_costs_itself_alone(self) -> None:
        gate = self.gateway
        bob = tav_im.AsyncClient("bob")
        self.addAsyncCleanup(bob.close)
        await bob.connect("127.0.0.1", gate.port, ca=gate.ca, template=DEEP, time_limit=LIMIT)
        ann = await self.connected()
        await bob.request("Deep", {}, reply="Deeper", time_limit=LIMIT)
        body = deep_body(5000)
        await ann.send(0x3001, body)
        push = (await self.next(bob, "push")).message
        assert push.error is not None
        self.assertEqual((push.error.name, push.body), ("bad_reply", body))
        with self.assertRaises(tav_im.Error) as caught:
            await bob.request("Deep", body, reply="Deeper", time_limit=LIMIT)
        self.assertEqual(caught.exception.name, "bad_reply")
        reply = await bob.request("Deep", {}, reply="Deeper", time_limit=LIMIT)
        self.assertEqual(reply.fields, {})

    async def test_a_client_that_was_dropped_ends(self) -> None:
        before = threading.active_count()
        with self.assertWarns(ResourceWarning):
            tav_im.AsyncClient("dropped")
            gc.collect()
        loop = asyncio.get_running_loop()
        until = loop.time() + LIMIT
        while threading.active_count() > before and loop.time() < until:
            await asyncio.sleep(0.01)
        self.assertLessEqual(threading.active_count(), before)

    async def test_no_event_in_time_is_none(self) -> None:
        client = tav_im.AsyncClient()
        self.addAsyncCleanup(client.close)
        self.assertIsNone(await client.next_event(0.01))

    async def test_close_ends_what_waits(self) -> None:
        silent = Gateway("--silence")
        self.addCleanup(silent.stop)
        async with tav_im.AsyncClient() as client:
            await silent.connect_async(client)
            task = asyncio.ensure_future(client.request("Say", {"text": "a"}, reply="Said", time_limit=60))
            await asyncio.sleep(0)
        with self.assertRaises(tav_im.Error) as caught:
            await asyncio.wait_for(task, LIMIT)
        self.assertEqual(caught.exception.name, "cancelled")


if __name__ == "__main__":
    unittest.main()
