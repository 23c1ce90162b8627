"""What requests give and what events are."""

from __future__ import annotations

import json
from dataclasses import dataclass, field
from typing import Any, Dict, List, Mapping, Optional, TypedDict, Union

Json = Dict[str, Any]
#: A message is named by its class in the template, or by its code.
Name = Union[str, int]


class KeeperGateway(TypedDict, total=False):
    """A gateway besides the one that `connect` names; that of the lowest preference is tried first."""

    host: str
    port: Union[int, str]
    preference: int


class KeeperOutbox(TypedDict, total=False):
    """What is kept while there is no connection; `policy` is "refuse", "drop_oldest" or "wait"."""

    messages: int
    bytes: int
    policy: str


# "class" is no name that a class body can declare.
KeeperLogin = TypedDict(
    "KeeperLogin",
    {
        "class": str,
        "code": int,
        "message": Mapping[str, Any],
        "body": str,
        "reply": Name,
        "expect": Mapping[str, Union[str, int, float, bool]],
        "time_limit_ms": int,
    },
    total=False,
)


class Keeper(TypedDict, total=False):
    """How a connection is kept; an empty one keeps it as docs/c.md says."""

    gateways: List[KeeperGateway]
    first_wait_ms: int
    longest_wait_ms: int
    reset_after_ms: int
    outbox: KeeperOutbox
    login: KeeperLogin


class Error(Exception):
    """A request that failed.  `name` is the failure's, such as "timed_out"; `field` the member that is to blame."""

    def __init__(self, answer: Mapping[str, Any]) -> None:
        super().__init__(answer.get("text", ""))
        self.code = int(answer.get("code", 1))
        self.name = str(answer.get("name", "other"))
        self.field: Optional[str] = answer.get("field")
        self.position: Optional[int] = answer.get("position")

    def __str__(self) -> str:
        return f"{self.name}: {self.args[0]}"

    def __repr__(self) -> str:
        return f"Error({str(self)!r})"


@dataclass(frozen=True)
class Message:
    """A message that came.  `body` holds its bytes in base64 where the template has no class for it."""

    code: int
    sno: int
    class_name: Optional[str] = None
    fields: Json = field(default_factory=dict)
    body: Optional[str] = None

    def __getitem__(self, name: str) -> Any:
        return self.fields[name]

    def get(self, name: str, otherwise: Any = None) -> Any:
        return self.fields.get(name, otherwise)


@dataclass(frozen=True)
class Event:
    """Something that happened.

    `type` is "connected", "disconnected", "push", "queue" or "closed"; of a keeper "keeper" and "logged_in" too.
    """

    type: str
    data: Json

    @property
    def message(self) -> Message:
        """The message of a push."""
        return message_of(self.data)


def message_of(answer: Mapping[str, Any]) -> Message:
    return Message(
        code=int(answer["code"]),
        sno=int(answer.get("sno", 0)),
        class_name=answer.get("class"),
        fields=answer.get("message") or {},
        body=answer.get("body"),
    )


def name_members(name: Name) -> Json:
    return {"class": name} if isinstance(name, str) else {"code": name}


def message_members(name: Name, message: Union[Mapping[str, Any], str]) -> Json:
    """A mapping is a message by the template; a text is its body in base64."""
    members = name_members(name)
    members["body" if isinstance(message, str) else "message"] = message
    return members


def milliseconds(seconds: float) -> int:
    return min(max(int(seconds * 1000 + 0.999), 0), 2**31 - 8)


def encoded(request: Mapping[str, Any]) -> bytes:
    """JSON as the library takes it; a request with a lone surrogate or with NaN raises ValueError."""
    return json.dumps(request, ensure_ascii=False, allow_nan=False).encode("utf-8")


def checked(answer: Json) -> Json:
    if answer.get("@type") == "error":
        raise Error(answer)
    return answer


def connect_request(
    host: str,
    port: Union[int, str],
    ca: Optional[str],
    template: Optional[str],
    template_file: Optional[str],
    time_limit: float,
    heartbeat: bool,
    policy: Optional[Mapping[str, Any]],
    limits: Optional[Mapping[str, Any]],
    proxy: Optional[Mapping[str, Any]],
    keeper: Optional[Keeper],
    more: Mapping[str, Any],
) -> Json:
    request: Json = {
        "@type": "connect",
        "host": host,
        "port": port,
        "ca": ca,
        "template": template,
        "template_file": template_file,
        "time_limit_ms": milliseconds(time_limit),
        "heartbeat": heartbeat,
        "policy": policy,
        "limits": limits,
        "proxy": proxy,
        "keeper": keeper,
    }
    request.update(more)
    return {name: value for name, value in request.items() if value is not None}
