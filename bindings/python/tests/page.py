"""What docs/python.md shows, run.  Usage: page.py HOST PORT CA-FILE"""

import asyncio
import sys

host, port, ca = sys.argv[1:4]
template = """
Say:object(__class__(chat.Say) __code__(3001) [1]text:string())
Said:object(__class__(chat.Said) __super__(chat.Say) __code__(3002))
"""
printed = []


def print(*texts):
    printed.append(texts)


import tav_im

with tav_im.Client("ann") as client:
    client.connect(host, port, ca=ca, template=template)
    reply = client.request("chat.Say", {"text": "hello"}, reply="chat.Said", time_limit=5)
    print(reply["text"])
    try:
        client.send("chat.Say", {"text": 7})
    except tav_im.Error as error:
        print(error.name, error.field)  # value_does_not_fit message.text


async def main():
    async with tav_im.AsyncClient("ann") as client:
        await client.connect(host, port, ca=ca, template=template)
        replies = await asyncio.gather(
            *[client.request("chat.Say", {"text": text}, reply="chat.Said") for text in ("a", "b", "c")]
        )
        print([reply["text"] for reply in replies])


asyncio.run(main())
expected = [("hello",), ("value_does_not_fit", "message.text"), (["a", "b", "c"],)]
sys.exit(0 if printed == expected else f"printed {printed}")
