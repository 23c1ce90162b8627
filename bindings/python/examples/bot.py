"""A bot that answers whoever speaks to it, and comes back when its connection breaks.

Usage: bot.py HOST PORT CA-FILE [MESSAGES]      it stops after so many messages, if told
"""

import asyncio
import sys

import tav_im

TEMPLATE = """
Say:object(__class__(bot.Say) __code__(3001) [1]user:string() [2]text:string())
Said:object(__class__(bot.Said) __super__(bot.Say) __code__(3002))
"""


async def answer(client: tav_im.AsyncClient, message: tav_im.Message) -> None:
    print(f"{message['user']}: {message['text']}", flush=True)
    words = {"user": "bot", "text": message["text"].upper() + "!"}
    try:
        await client.request("bot.Say", words, reply="bot.Said", time_limit=5)
    except tav_im.Error as error:
        print("bot: not said:", error, flush=True)


async def main() -> None:
    host, port, ca = sys.argv[1:4]
    left = int(sys.argv[4]) if len(sys.argv) > 4 else -1
    async with tav_im.AsyncClient("bot") as client:
        await client.connect(host, port, ca=ca, template=TEMPLATE, keeper={})
        async for event in client.events():
            if event.type == "connected":
                print("bot: here", flush=True)
            elif event.type == "keeper" and event.data["state"] == "waiting":
                print("bot: not yet:", event.data["text"], flush=True)
            elif event.type == "push" and event.message.class_name == "bot.Say":
                await answer(client, event.message)
                left -= 1
                if left == 0:
                    return


if __name__ == "__main__":
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    asyncio.run(main())
