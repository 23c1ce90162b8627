"""A gateway for each test module: TAV_GATEWAY in the environment is its program."""

import json
import os
import shutil
import subprocess
import tempfile
import time
import unittest
from pathlib import Path
from typing import List, Optional

import tav_im
from tav_im import _library

LIMIT = 10.0

TEMPLATE = """
Say:object(__class__(Say) __code__(3001) [1]text:string() [2]votes:map{string,int64}() [3]mood:int8?())
Said:object(__class__(Said) __super__(Say) __code__(3002))
PushMe:object(__class__(PushMe) __code__(7001) [1]text:string())
Pushing:object(__class__(Pushing) __code__(7002) [1]text:string())
Pushed:object(__class__(Pushed) __code__(7003) [1]text:string())
CloseMe:object(__class__(CloseMe) __code__(7005) [1]text:string())
"""

#: Classes that hold themselves.
DEEP = """
Deep:object(__class__(Deep) __code__(3001) [1]deep:Deep?())
Deeper:object(__class__(Deeper) __code__(3002) [1]deep:Deep?())
"""


def deep_body(depth: int) -> str:
    """A `Deep` that is nested so deep, in base64; Python itself could not write it."""
    message = '{"deep":' * depth + "{}" + "}" * depth
    request = f'{{"@type":"encode","template":{json.dumps(DEEP)},"class":"Deep","message":{message}}}'
    made = json.loads(_library.execute(None, request.encode()))
    return str(made["body"])


def program_of(variable: str) -> str:
    """The program that a variable of the environment names; without it the test is skipped."""
    program = os.environ.get(variable)
    if not program:
        raise unittest.SkipTest(f"set {variable} to the path of the program: HACKING.md, \"Python\"")
    return program


class Gateway:
    """A gateway on a free port."""

    def __init__(self, *options: str) -> None:
        program_of("TAV_GATEWAY")
        self._folder = Path(tempfile.mkdtemp())
        self.ca = str(self._folder / "certificates" / "ca.pem")
        port_file = self._folder / "port"
        command: List[str] = [
            program_of("TAV_GATEWAY"),
            "--quiet",
            "--until-eof",
            "--certificates",
            str(self._folder / "certificates"),
            "--port-file",
            str(port_file),
            *options,
        ]
        self._process: Optional[subprocess.Popen[bytes]] = subprocess.Popen(
            command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL
        )
        until = time.monotonic() + LIMIT
        while not port_file.exists():
            if self._process.poll() is not None or time.monotonic() > until:
                raise RuntimeError("the gateway did not start")
            time.sleep(0.02)
        self.port = int(port_file.read_text())

    def stop(self) -> None:
        if self._process is not None and self._process.stdin is not None:
            self._process.stdin.close()
            self._process.wait(LIMIT)
            self._process = None
        shutil.rmtree(self._folder, ignore_errors=True)

    def connect(self, client: tav_im.Client) -> None:
        client.connect("127.0.0.1", self.port, ca=self.ca, template=TEMPLATE, time_limit=LIMIT)

    async def connect_async(self, client: tav_im.AsyncClient) -> None:
        await client.connect("127.0.0.1", self.port, ca=self.ca, template=TEMPLATE, time_limit=LIMIT)
