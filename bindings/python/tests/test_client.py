import gc
import json
import math
import os
import threading
import time
import unittest
from typing import List
from unittest import mock

import tav_im
from tav_im import _library

from .rig import DEEP, LIMIT, TEMPLATE, Gateway, deep_body


class ClientTest(unittest.TestCase):
    gateway: Gateway

    @classmethod
    def setUpClass(cls) -> None:
        cls.gateway = Gateway("--ask-affirm")

    @classmethod
    def tearDownClass(cls) -> None:
        cls.gateway.stop()

    def connected(self) -> tav_im.Client:
        client = tav_im.Client("test")
        self.addCleanup(client.close)
        self.gateway.connect(client)
        return client

    def next(self, client: tav_im.Client, kind: str) -> tav_im.Event:
        while True:
            event = client.next_event(LIMIT)
            self.assertIsNotNone(event, kind)
            if event is not None and event.type == kind:
                return event

    def test_a_request_gets_its_reply(self) -> None:
        client = self.connected()
        fields = {"text": "h\u00e9llo \U0001f600 \"\\ \n", "votes": {'a"b': "1"}}
        reply = client.request("Say", fields, reply="Said", time_limit=LIMIT)
        self.assertEqual(reply.class_name, "Said")
        self.assertEqual(reply.fields, fields)
        self.assertEqual(reply["text"], fields["text"])
        self.assertIsNone(reply.get("mood"))

    def test_a_connection_tells_what_was_negotiated(self) -> None:
        client = self.connected()
        event = self.next(client, "connected")
        self.assertTrue(event.data["tls"]["verified"])
        self.assertTrue(client.connected)
        self.assertEqual(client.state()["remote"], f"127.0.0.1:{self.gateway.port}")
        client.disconnect()
        self.assertEqual(self.next(client, "disconnected").data["name"], "cancelled")
        self.assertFalse(client.connected)
        client.reconnect(LIMIT)
        self.assertTrue(client.connected)

    def test_pushes_come_as_events_or_to_a_function(self) -> None:
        ann = self.connected()
        bob = self.connected()
        # Whoever has got a reply is known to the gateway, which passes messages on to him.
        bob.request("Say", {"text": "here"}, reply="Said", time_limit=LIMIT)
        ann.send("Say", {"text": "one"})
        self.assertEqual(self.next(bob, "push").message["text"], "one")
        heard: List[tav_im.Message] = []
        came = threading.Event()

        def hear(message: tav_im.Message) -> None:
            heard.append(message)
            came.set()

        bob.on("Say", hear)
        ann.send("Say", {"text": "two"})
        self.assertTrue(came.wait(LIMIT))
        self.assertEqual(heard[0]["text"], "two")
        bob.on("Say", None)
        ann.send(0x3001, {"text": "three"})
        self.assertEqual(self.next(bob, "push").message["text"], "three")

    def test_events_that_nobody_takes_are_bounded(self) -> None:
        with self.assertRaisesRegex(ValueError, "^most_waiting has to be 1 at least$"):
            tav_im.Client(most_waiting=0)
        bob = tav_im.Client("bob", most_waiting=4)
        self.addCleanup(bob.close)
        self.gateway.connect(bob)
        ann = self.connected()
        bob.request("Say", {"text": "here"}, reply="Said", time_limit=LIMIT)
        for number in range(20):
            ann.request("Say", {"text": str(number)}, reply="Said", time_limit=LIMIT)
        # What the gateway passes on comes to bob ahead of the answer to what he asks next.
        bob.request("Say", {"text": "last"}, reply="Said", time_limit=LIMIT)
        dropped = bob.next_event(0)
        self.assertIsNotNone(dropped)
        if dropped is not None:
            # One more is "connected".
            self.assertEqual((dropped.type, dropped.data["count"]), ("dropped", 17))
        bob.close()
        left = list(bob.events())
        self.assertEqual(left[0].type, "dropped")
        self.assertEqual([event.message["text"] for event in left if event.type == "push"], ["18", "19"])
        self.assertEqual(left[-1].type, "disconnected")

    def test_events_end_with_the_client(self) -> None:
        client = self.connected()
        seen: List[str] = []
        listener = threading.Thread(target=lambda: seen.extend(event.type for event in client.events()))
        listener.start()
        client.close()
        listener.join(LIMIT)
        self.assertFalse(listener.is_alive())
        self.assertEqual(seen, ["connected", "disconnected"])

    def test_the_end_is_told_to_everyone_who_listens(self) -> None:
        client = tav_im.Client()
        listeners = [threading.Thread(target=lambda: list(client.events()), daemon=True) for _ in range(2)]
        for each in listeners:
            each.start()
        client.close()
        for each in listeners:
            each.join(LIMIT)
            self.assertFalse(each.is_alive())
        again = threading.Thread(target=lambda: list(client.messages()), daemon=True)
        again.start()
        again.join(LIMIT)
        self.assertFalse(again.is_alive())
        self.assertEqual(self.next(client, "closed").type, "closed")

    def test_many_clients_that_end_at_once_all_end(self) -> None:
        clients = [tav_im.Client(str(number)) for number in range(40)]
        names: List[str] = []

        def ask(client: tav_im.Client) -> None:
            try:
                client.connect(keeper={"gateways": [{"host": "127.0.0.1", "port": self.gateway.port}]})
            except tav_im.Error as error:
                names.append(error.name)

        threads = [threading.Thread(target=ask, args=(client,), daemon=True) for client in clients]
        threads += [threading.Thread(target=client.close, daemon=True) for client in clients]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(LIMIT)
            self.assertFalse(thread.is_alive())
        self.assertLessEqual(set(names), {"cancelled", "closed", "certificate_refused"})

    def test_a_client_that_the_library_knows_no_more_has_ended(self) -> None:
        client = tav_im.Client()
        with mock.patch("tav_im._library.receive", return_value=None):
            # The thread is in the library still; what it asks for next is not there.
            client.execute({"@type": "version"})
            client.ask({"@type": "version"})
            taken: List[str] = []
            waiting = threading.Thread(target=lambda: taken.extend(event.type for event in client.events()))
            waiting.start()
            waiting.join(LIMIT)
            self.assertFalse(waiting.is_alive())
        client.close()

    def test_a_client_that_was_dropped_ends(self) -> None:
        before = threading.active_count()
        with self.assertWarnsRegex(ResourceWarning, "^the client 'dropped' was dropped and not closed$"):
            tav_im.Client("dropped")
            gc.collect()
        until = time.monotonic() + LIMIT
        while threading.active_count() > before and time.monotonic() < until:
            time.sleep(0.01)
        self.assertLessEqual(threading.active_count(), before)

    def test_a_reply_that_can_not_be_read_is_an_error(self) -> None:
        client = tav_im.Client()
        self.addCleanup(client.close)
        template = TEMPLATE + "Strict:object(__class__(Strict) __code__(3004) [1]text:string() [9]more:string())\n"
        template += "Loose:object(__class__(Loose) __code__(3003) [1]text:string())"
        gate = self.gateway
        client.connect("127.0.0.1", gate.port, ca=gate.ca, template=template, time_limit=LIMIT)
        with self.assertRaises(tav_im.Error) as caught:
            client.request("Loose", {"text": "a"}, reply="Strict", time_limit=LIMIT)
        self.assertEqual((caught.exception.name, caught.exception.code), ("bad_reply", 102))
        self.assertIn("{ 9 } in class Strict", str(caught.exception))
        push = tav_im.Event("push", {"@type": "push", "code": 7, "name": "bad_reply", "text": "no", "body": ""})
        assert push.message.error is not None
        self.assertEqual(str(push.message.error), "bad_reply: no")
        with self.assertRaises(AttributeError):
            self.next(client, "connected").message

    def test_limits_may_be_longer_than_the_library_waits(self) -> None:
        client = self.connected()
        for limit in (math.inf, None, 1e12):
            reply = client.request("Say", {"text": "a"}, reply="Said", time_limit=limit)
            self.assertEqual(reply["text"], "a")

    def test_a_send_may_want_a_receipt(self) -> None:
        echo = Gateway("--echo")
        self.addCleanup(echo.stop)
        client = tav_im.Client()
        self.addCleanup(client.close)
        echo.connect(client)
        client.send("Say", {"text": "a"}, receipt=True, time_limit=LIMIT)
        silent = self.connected()
        with self.assertRaises(tav_im.Error) as caught:
            silent.send("Say", {"text": "a"}, receipt=True, time_limit=0.2)
        self.assertEqual(caught.exception.name, "timed_out")

    def test_an_extra_of_the_application_comes_back(self) -> None:
        client = tav_im.Client()
        self.addCleanup(client.close)
        self.assertEqual(client.ask({"@type": "version", "@extra": [1, "mine"]})["@extra"], [1, "mine"])
        self.assertNotIn("@extra", client.ask({"@type": "version"}))

    def test_errors_name_the_failure_and_the_field(self) -> None:
        client = tav_im.Client()
        self.addCleanup(client.close)
        with self.assertRaises(tav_im.Error) as caught:
            client.send(0x3001, "")
        self.assertEqual(caught.exception.name, "not_connected")
        self.assertEqual(repr(caught.exception), "Error('not_connected: not connected')")
        with self.assertRaises(tav_im.Error) as caught:
            client.connect("127.0.0.1", self.gateway.port, ca=self.gateway.ca, policy={"min_version": "1.1"})
        self.assertEqual(caught.exception.field, "policy.min_version")
        with self.assertRaises(tav_im.Error) as caught:
            client.connect("127.0.0.1", self.gateway.port)
        self.assertEqual(caught.exception.name, "certificate_refused")
        self.assertIn("certificate", str(caught.exception))
        self.gateway.connect(client)
        with self.assertRaises(tav_im.Error) as caught:
            client.request("Say", {"text": "a", "mood": 300}, reply="Said")
        self.assertEqual((caught.exception.name, caught.exception.field), ("value_does_not_fit", "message.mood"))
        self.assertIsNotNone(caught.exception.position)
        with self.assertRaises(ValueError):
            client.request("Say", {"text": "a", "mood": float("nan")}, reply="Said")

    def test_a_break_ends_what_waits(self) -> None:
        client = self.connected()
        with self.assertRaises(tav_im.Error) as caught:
            client.request("CloseMe", {"text": ""}, reply="Said", time_limit=LIMIT)
        self.assertEqual(caught.exception.name, "closed_by_peer")
        self.assertEqual(self.next(client, "disconnected").data["name"], "closed_by_peer")

    def test_close_ends_what_waits(self) -> None:
        silent = Gateway("--silence")
        self.addCleanup(silent.stop)
        client = tav_im.Client()
        silent.connect(client)
        names: List[str] = []

        def ask() -> None:
            try:
                client.request("Say", {"text": "a"}, reply="Said", time_limit=60)
            except tav_im.Error as error:
                names.append(error.name)

        asking = threading.Thread(target=ask)
        asking.start()
        while client.statistics()["tracked_sends"] == 0:
            pass
        client.close()
        asking.join(LIMIT)
        self.assertEqual(names, ["cancelled"])
        with self.assertRaises(tav_im.Error) as caught:
            client.disconnect()
        self.assertEqual(caught.exception.name, "closed")

    def test_a_request_ends_by_its_limit(self) -> None:
        silent = Gateway("--silence")
        self.addCleanup(silent.stop)
        with tav_im.Client() as client:
            silent.connect(client)
            with self.assertRaises(tav_im.Error) as caught:
                client.request("Say", {"text": "a"}, reply="Said", time_limit=0.2)
            self.assertEqual(caught.exception.name, "timed_out")

    def test_a_handler_that_would_wait_for_itself_is_told(self) -> None:
        client = self.connected()
        caught: List[BaseException] = []
        came = threading.Event()

        def hear(message: tav_im.Message) -> None:
            try:
                client.disconnect()
            except RuntimeError as error:
                caught.append(error)
            came.set()

        client.on("Pushed", hear)
        client.request("PushMe", {"text": "a"}, reply="Pushing", time_limit=LIMIT)
        self.assertTrue(came.wait(LIMIT))
        self.assertEqual([str(each) for each in caught], ["a handler must not wait: this thread brings the answer"])

    def test_a_handler_that_raises_loses_nothing_but_itself(self) -> None:
        client = self.connected()
        came = threading.Event()

        def hear(message: tav_im.Message) -> None:
            came.set()
            raise KeyError("no such field")

        with self.assertLogs("tav_im", "ERROR") as told:
            client.on("Pushed", hear)
            client.request("PushMe", {"text": "a"}, reply="Pushing", time_limit=LIMIT)
            self.assertTrue(came.wait(LIMIT))
            client.on("Pushed", None)
            client.request("PushMe", {"text": "b"}, reply="Pushing", time_limit=LIMIT)
            self.assertEqual(self.next(client, "push").message["text"], "b")
        self.assertEqual([each.getMessage() for each in told.records], ["raised by a function of the application"])

    def test_a_message_that_is_nested_too_deep_costs_itself_alone(self) -> None:
        gate = self.gateway
        bob = tav_im.Client("bob")
        self.addCleanup(bob.close)
        bob.connect("127.0.0.1", gate.port, ca=gate.ca, template=DEEP, time_limit=LIMIT)
        ann = self.connected()
        # Whoever has got a reply is known to the gateway, which passes messages on to him.
        bob.request("Deep", {}, reply="Deeper", time_limit=LIMIT)
        body = deep_body(5000)
        ann.send(0x3001, body)
        push = self.next(bob, "push").message
        assert push.error is not None
        self.assertEqual((push.error.name, push.body), ("bad_reply", body))
        with self.assertRaises(tav_im.Error) as caught:
            bob.request("Deep", body, reply="Deeper", time_limit=LIMIT)
        self.assertEqual(caught.exception.name, "bad_reply")
        self.assertEqual(bob.request("Deep", {}, reply="Deeper", time_limit=LIMIT).fields, {})

    def test_a_text_that_python_can_not_read_costs_itself_alone(self) -> None:
        client = self.connected()
        read = json.loads

        def recursing(text: bytes) -> object:
            if b"too deep" in text:
                raise RecursionError("maximum recursion depth exceeded")
            return read(text)

        with mock.patch("tav_im._receiver.json.loads", recursing):
            ann = self.connected()
            # Whoever has got a reply is known to the gateway, which passes messages on to him.
            client.request("Say", {"text": "here"}, reply="Said", time_limit=LIMIT)
            ann.send("Say", {"text": "too deep"})
            push = self.next(client, "push").message
            assert push.error is not None
            self.assertEqual((push.error.name, push.code), ("bad_reply", 0x3001))
            with self.assertRaises(tav_im.Error) as caught:
                client.request("Say", {"text": "too deep"}, reply="Said", time_limit=LIMIT)
            self.assertEqual((caught.exception.name, caught.exception.code), ("bad_reply", 102))
            self.assertIn("Python can't read this: maximum recursion depth exceeded", str(caught.exception))
            reply = client.request("Say", {"text": "a"}, reply="Said", time_limit=LIMIT)
        self.assertEqual(reply["text"], "a")

    def test_whatever_ends_the_receiving_everyone_is_told(self) -> None:
        client = tav_im.Client()
        self.addCleanup(client.close)
        seen: List[str] = []
        listener = threading.Thread(target=lambda: seen.extend(event.type for event in client.events()), daemon=True)
        listener.start()
        with mock.patch("threading.excepthook"), mock.patch("tav_im._library.receive", side_effect=MemoryError):
            # The thread is in the library still; what it asks for next is not there.
            client.ask({"@type": "version"})
            listener.join(LIMIT)
        self.assertFalse(listener.is_alive())
        with self.assertRaises(tav_im.Error) as caught:
            client.ask({"@type": "version"})
        self.assertEqual(caught.exception.name, "closed")

    def test_a_handler_that_wants_to_exit_ends_nothing(self) -> None:
        client = self.connected()

        came = threading.Event()

        def hear(message: tav_im.Message) -> None:
            came.set()
            raise SystemExit(1)

        with self.assertLogs("tav_im", "ERROR"):
            client.on("Pushed", hear)
            client.request("PushMe", {"text": "a"}, reply="Pushing", time_limit=LIMIT)
            self.assertTrue(came.wait(LIMIT))
            client.on("Pushed", None)
            client.request("PushMe", {"text": "b"}, reply="Pushing", time_limit=LIMIT)
            self.assertEqual(self.next(client, "push").message["text"], "b")

    def test_only_some_events_have_a_message(self) -> None:
        client = self.connected()
        client.close()
        for event in client.events():
            with self.assertRaisesRegex(AttributeError, f"^the event '{event.type}' has no message$"):
                event.message

    def test_what_the_system_refuses_is_told(self) -> None:
        with mock.patch("tav_im._library._functions.tav_json_create", return_value=None):
            with self.assertRaisesRegex(OSError, "^the system has no memory, descriptor or thread for a client$"):
                tav_im.Client("none")
        # Neither beside the package, as in a wheel, nor where the system has libraries.
        beside = mock.patch("pathlib.Path.glob", return_value=iter(()))
        with mock.patch.dict("os.environ"), mock.patch("ctypes.CDLL", side_effect=OSError), beside:
            os.environ.pop("TAV_IM_JSON_LIBRARY", None)
            with self.assertRaisesRegex(
                ImportError,
                "was not found: install it, or name it in the environment variable TAV_IM_JSON_LIBRARY",
            ):
                _library._load()

    def test_what_needs_no_client(self) -> None:
        self.assertRegex(tav_im.version(), r"^\d+\.\d+\.\d+$")
        made = tav_im.execute(
            {"@type": "encode", "template": TEMPLATE, "class": "Say", "message": {"text": "a"}, "as": "hex"}
        )
        read = tav_im.execute(
            {"@type": "decode", "template": TEMPLATE, "code": made["code"], "body": made["body"], "as": "hex"}
        )
        self.assertEqual(read["message"], {"text": "a"})

    def test_many_threads_share_a_client(self) -> None:
        client = self.connected()
        replies: List[str] = []

        def talk(number: int) -> None:
            for turn in range(20):
                text = f"{number}.{turn}"
                reply = client.request("Say", {"text": text}, reply="Said", time_limit=LIMIT)
                replies.append(text if reply["text"] == text else "wrong")

        threads = [threading.Thread(target=talk, args=(number,)) for number in range(5)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(len(set(replies)), 100)

    def test_a_connection_that_is_kept_comes_back(self) -> None:
        client = tav_im.Client("test")
        self.addCleanup(client.close)
        login: tav_im.KeeperLogin = {
            "class": "Say",
            "message": {"text": "me"},
            "reply": "Said",
            "expect": {"text": "me"},
        }
        keeper: tav_im.Keeper = {
            "first_wait_ms": 20,
            "longest_wait_ms": 50,
            "outbox": {"messages": 10, "policy": "drop_oldest"},
            "login": login,
        }
        gate = self.gateway
        client.connect(
            "127.0.0.1", gate.port, ca=gate.ca, template=TEMPLATE, time_limit=LIMIT, keeper=keeper
        )
        self.assertEqual(self.next(client, "logged_in").message["text"], "me")
        self.next(client, "connected")
        client.send("CloseMe", {"text": "away"})
        self.next(client, "disconnected")
        reply = client.request("Say", {"text": "kept"}, reply="Said", time_limit=LIMIT, safe_to_repeat=True)
        self.assertEqual(reply["text"], "kept")
        self.next(client, "connected")
        self.assertEqual(client.state()["keeper"]["state"], "up")
        with self.assertRaises(tav_im.Error) as refused:
            client.connect("127.0.0.1", gate.port, keeper={"outbox": {"policy": "lose"}})
        self.assertEqual(refused.exception.field, "keeper.outbox.policy")


if __name__ == "__main__":
    unittest.main()
