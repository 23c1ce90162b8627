"""A client of a message gateway: TLS, requests and replies, pushes, messages by a template.

    with tav_im.Client() as client:
        client.connect("gate.example", 443, template_file="chat.pml")
        print(client.request("chat.Say", {"text": "hello"}, reply="chat.Said")["text"])

`Client` waits, `AsyncClient` is for asyncio.  docs/python.md shows both; docs/c.md has the details.
"""

import json as _json
from typing import Any, Mapping, Optional

from . import _library
from ._async_client import AsyncClient
from ._client import Client, Handler
from ._values import Error, Event, Json, Keeper, KeeperGateway, KeeperLogin, KeeperOutbox, Limits
from ._values import Message, Name, Policy, Proxy, checked, encoded

__all__ = [
    "AsyncClient",
    "Client",
    "Error",
    "Event",
    "Handler",
    "Json",
    "Keeper",
    "KeeperGateway",
    "KeeperLogin",
    "KeeperOutbox",
    "Limits",
    "Message",
    "Name",
    "Policy",
    "Proxy",
    "execute",
    "version",
]


def execute(request: Mapping[str, Any]) -> Json:
    """The answer of a request that needs neither a client nor waiting, such as "encode" and "decode"."""
    answer: Optional[Json] = _json.loads(_library.execute(None, encoded(request)))
    assert answer is not None
    return checked(answer)


def version() -> str:
    """The version of the library, such as "1.0.0"."""
    return str(execute({"@type": "version"})["release"])
