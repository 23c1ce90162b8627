"""A headless Chromium, driven over a pipe by its own protocol."""

import base64
import json
import os
import subprocess
import tempfile
import time


class Browser:
    def __init__(self, program):
        to_read, self.to = os.pipe()
        self.come, from_write = os.pipe()
        self.profile = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)

        def pipes():
            # What the browser reads is 3, what it writes 4.
            low = os.dup2(to_read, 100), os.dup2(from_write, 101)
            os.dup2(low[0], 3)
            os.dup2(low[1], 4)

        self.process = subprocess.Popen(
            [program, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", "--remote-debugging-pipe",
             "--disable-dev-shm-usage", "--user-data-dir=" + self.profile.name, "about:blank"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, close_fds=False,
            preexec_fn=pipes)
        os.close(to_read)
        os.close(from_write)
        self.number = 0
        self.rest = b""
        self.complaints = []
        self.session = None
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Performance"):
            self.call(domain + ".enable")

    def message(self):
        while b"\0" not in self.rest:
            part = os.read(self.come, 1 << 20)
            if not part:
                raise EOFError("the browser is gone")
            self.rest += part
        line, self.rest = self.rest.split(b"\0", 1)
        return json.loads(line)

    def call(self, method, **parameters):
        self.number += 1
        ask = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            ask["sessionId"] = self.session
        os.write(self.to, json.dumps(ask).encode() + b"\0")
        while True:
            got = self.message()
            if got.get("id") == self.number:
                if "error" in got:
                    raise RuntimeError(method + ": " + got["error"]["message"])
                return got["result"]
            if got.get("method") == "Runtime.exceptionThrown":
                self.complaints.append(str(got["params"]["exceptionDetails"]))
            if got.get("method") == "Log.entryAdded" and got["params"]["entry"]["level"] == "error":
                self.complaints.append(got["params"]["entry"]["text"])

    def run(self, script):
        """The value of an expression of the page."""
        result = self.call("Runtime.evaluate", expression=script, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in result:
            raise RuntimeError(script + ": " + str(result["exceptionDetails"]))
        return result["result"].get("value")

    def wait(self, script, seconds=30):
        end = time.monotonic() + seconds
        while not self.run(script):
            if time.monotonic() > end:
                raise AssertionError("it never held: " + script)
            time.sleep(0.02)

    def screen(self, width, height, dark):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                  mobile=width < 600)
        self.call("Emulation.setEmulatedMedia",
                  features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])

    def shot(self, path):
        data = self.call("Page.captureScreenshot", format="png")["data"]
        with open(path, "wb") as out:
            out.write(base64.b64decode(data))

    def key(self, key, code):
        for kind in ("keyDown", "keyUp"):
            parameters = {"type": kind, "key": key, "code": key, "windowsVirtualKeyCode": code}
            if key == "Enter" and kind == "keyDown":
                parameters["text"] = "\r"
            self.call("Input.dispatchKeyEvent", **parameters)

    def close(self):
        self.session = None
        self.call("Browser.close")
        self.process.wait(10)
        os.close(self.to)
        os.close(self.come)
        self.profile.cleanup()
