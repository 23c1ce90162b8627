import os
import subprocess
import sys
import unittest
from pathlib import Path

import tav_im

from .rig import LIMIT, Gateway

BOT = Path(__file__).parent.parent / "examples" / "bot.py"

TEMPLATE = """
Say:object(__class__(bot.Say) __code__(3001) [1]user:string() [2]text:string())
Said:object(__class__(bot.Said) __super__(bot.Say) __code__(3002))
"""


class BotTest(unittest.TestCase):
    def test_the_bot_answers_and_ends(self) -> None:
        gateway = Gateway()
        self.addCleanup(gateway.stop)
        command = [sys.executable, str(BOT), "127.0.0.1", str(gateway.port), gateway.ca, "2"]
        bot = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
        self.addCleanup(bot.kill)
        assert bot.stdout is not None
        self.addCleanup(bot.stdout.close)
        self.assertEqual(bot.stdout.readline(), "bot: here\n")
        with tav_im.Client("ann") as ann:
            ann.connect("127.0.0.1", gateway.port, ca=gateway.ca, template=TEMPLATE, time_limit=LIMIT)
            for text in ("hello", "goodbye"):
                # The gateway may have the bot a moment after the bot has the gateway.
                answer = None
                while answer is None:
                    ann.send("bot.Say", {"user": "ann", "text": text})
                    event = ann.next_event(1.0)
                    while event is not None and event.data.get("class") != "bot.Say":
                        event = ann.next_event(1.0)
                    answer = event
                self.assertEqual(answer.message.fields, {"user": "bot", "text": text.upper() + "!"})
            bot.wait(LIMIT)
        self.assertEqual(bot.returncode, 0)

    def test_the_bot_says_how_it_is_used(self) -> None:
        told = subprocess.run([sys.executable, str(BOT)], capture_output=True, text=True, timeout=LIMIT)
        self.assertEqual(told.returncode, 1)
        self.assertIn("Usage: bot.py HOST PORT CA-FILE", told.stderr)
        self.assertNotIn("Traceback", told.stderr)

    def test_without_a_gateway_the_tests_say_what_they_need(self) -> None:
        lacking = {name: value for name, value in os.environ.items() if name != "TAV_GATEWAY"}
        command = [sys.executable, "-m", "unittest", "-v", "tests.test_client", "tests.test_async_client"]
        folder = Path(__file__).parent.parent
        told = subprocess.run(command, cwd=folder, env=lacking, capture_output=True, text=True, timeout=6 * LIMIT)
        self.assertEqual(told.returncode, 0, told.stderr)
        self.assertIn("set TAV_GATEWAY to the path of the program: HACKING.md", told.stderr)

    def test_the_bot_is_one_screen(self) -> None:
        self.assertLessEqual(len(BOT.read_text().splitlines()), 60)
