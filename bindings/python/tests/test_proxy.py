import subprocess
import tempfile
import time
import unittest
from pathlib import Path

import tav_im

from .rig import LIMIT, TEMPLATE, Gateway, program_of


class ProxyTest(unittest.TestCase):
    """TAV_PROXY in the environment is a proxy's program."""

    def setUp(self) -> None:
        program = program_of("TAV_PROXY")
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        port_file = Path(folder.name) / "port"
        proxy = subprocess.Popen([program, str(port_file)], stdout=subprocess.DEVNULL)
        self.addCleanup(proxy.wait)
        self.addCleanup(proxy.kill)
        until = time.monotonic() + LIMIT
        while not port_file.exists() and time.monotonic() < until:
            time.sleep(0.02)
        self.proxy_port = int(port_file.read_text())
        self.gateway = Gateway()
        self.addCleanup(self.gateway.stop)

    def connect(self, client: tav_im.Client, kind: str, port: int) -> None:
        proxy: tav_im.Proxy = {"type": kind, "host": "127.0.0.1", "port": self.proxy_port}
        client.connect("localhost", port, ca=self.gateway.ca, template=TEMPLATE, time_limit=LIMIT, proxy=proxy)

    def test_a_connection_goes_through_a_proxy(self) -> None:
        for kind in ("http", "socks5"):
            with tav_im.Client() as client:
                self.connect(client, kind, self.gateway.port)
                self.assertEqual(client.state()["remote"], f"127.0.0.1:{self.proxy_port}")
                reply = client.request("Say", {"text": kind}, reply="Said", time_limit=LIMIT)
                self.assertEqual(reply["text"], kind)

    def test_a_proxy_that_refuses_is_told(self) -> None:
        for kind in ("http", "socks5"):
            with tav_im.Client() as client, self.assertRaises(tav_im.Error) as caught:
                self.connect(client, kind, 1)
            self.assertEqual(caught.exception.name, "proxy_refused")
