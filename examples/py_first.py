"""Connects to a gateway from Python, sends a message and prints the reply.

Usage: py_first.py HOST PORT CA-FILE
"""

import sys

import tav_im

TEMPLATE = """
Hello:object(__class__(Hello) __code__(2001) [1]text:string())
Greeting:object(__class__(Greeting) __super__(Hello) __code__(2002))
"""


def main() -> int:
    if len(sys.argv) != 4:
        print("usage: py_first.py HOST PORT CA-FILE", file=sys.stderr)
        return 2
    host, port, ca = sys.argv[1:]
    try:
        with tav_im.Client("py_first") as gateway:
            gateway.connect(host, port, ca=ca, template=TEMPLATE, time_limit=5)
            reply = gateway.request("Hello", {"text": "hello, gateway"}, reply="Greeting", time_limit=5)
    except tav_im.Error as error:
        print("py_first:", error, file=sys.stderr)
        return 1
    print(reply["text"])
    return 0 if reply["text"] == "hello, gateway" else 1


if __name__ == "__main__":
    sys.exit(main())
