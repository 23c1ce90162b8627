"""What requests give and what events are."""

from __future__ import annotations

import json
import math
from dataclasses import dataclass, field
from typing import Any, Callable, Dict, List, Mapping, Optional, TypedDict, Union

Json = Dict[str, Any]
#: A message is named by its class in the template, or by its code.
Name = Union[str, int]


class Policy(TypedDict, total=False):
    """What TLS has to be like: docs/safe.md, by the names of docs/c.md."""

    safe: bool
    check_name: bool
    expected_name: str
    trusted_pem: str
    trust_system: str
    crl_file: str
    crl_pem: str
    crl_check_chain: bool
    certificate_file: str
    certificate_pem: str
    key_file: str
    key_pem: str
    key_password: str
    min_version: str
    max_version: str
    ciphers: str
    cipher_suites: str
    security_level: int
    send_host_name: bool
    alpn: List[str]
    tcp_keep_alive_s: int
    tcp_keep_alive_interval_s: int
    tcp_keep_alive_probes: int
    tcp_user_timeout_ms: int
    key_log_file: str


class Limits(TypedDict, total=False):
    """Bounds of what waits; 0 is none."""

    queued_frames: int
    queued_bytes: int
    tracked_sends: int
    received_waiting: int


class Proxy(TypedDict, total=False):
    """The way to the gateway; `type` is "http" or "socks5"."""

    type: str
    host: str
    port: Union[int, str]
    user: str
    password: str


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
    """A message that came.

    `body` holds its bytes in base64 where the template has no class for it, or could not read it: `error` says
    why then.
    """

    code: int
    sno: int
    class_name: Optional[str] = None
    fields: Json = field(default_factory=dict)
    body: Optional[str] = None
    error: Optional[Error] = None

    def __getitem__(self, name: str) -> Any:
        return self.fields[name]

    def get(self, name: str, otherwise: Any = None) -> Any:
        return self.fields.get(name, otherwise)


_Handler = Callable[[Message], None]


@dataclass(frozen=True)
class Event:
    """Something that happened.

    `type` is "connected", "disconnected", "push", "queue" or "closed"; of a keeper "keeper" and "logged_in" too; and
    "dropped", with `count`, in the place of events that nobody took and for which there was no room any more.
    """

    type: str
    data: Json

    @property
    def message(self) -> Message:
        """The message of "push" and "logged_in"; no other event has one."""
        if "code" not in self.data or self.type not in ("push", "logged_in"):
            raise AttributeError(f"the event {self.type!r} has no message")
        return message_of(self.data)


def message_of(answer: Mapping[str, Any]) -> Message:
    bad = {"code": 102, "name": answer["name"], "text": answer.get("text", "")} if "name" in answer else None
    return Message(
        code=int(answer["code"]),
        sno=int(answer.get("sno", 0)),
        class_name=answer.get("class"),
        fields=answer.get("message") or {},
        body=answer.get("body"),
        error=Error(bad) if bad else None,
    )


def reply_of(answer: Mapping[str, Any]) -> Message:
    """The reply; raises Error if the template can't read it."""
    message = message_of(answer)
    if message.error is not None:
        raise message.error
    return message


def with_extra_of(request: Mapping[str, Any], answer: Json) -> Json:
    """The answer with the "@extra" that the request was given, in place of the one that it went with."""
    answer.pop("@extra", None)
    if "@extra" in request:
        answer["@extra"] = request["@extra"]
    return answer


def handler_of(handlers: Mapping[Name, _Handler], push: Mapping[str, Any]) -> Optional[_Handler]:
    """Of the class or the code of a push."""
    return handlers.get(push.get("class", "")) or handlers.get(push["code"])


def name_members(name: Name) -> Json:
    return {"class": name} if isinstance(name, str) else {"code": name}


def message_members(name: Name, message: Union[Mapping[str, Any], str]) -> Json:
    """A mapping is a message by the template; a text is its body in base64."""
    members = name_members(name)
    members["body" if isinstance(message, str) else "message"] = message
    return members


_LONGEST_MS = 2**31 - 8


def milliseconds(seconds: Optional[float]) -> int:
    """None, and whatever is longer than the library waits, is the longest that it waits."""
    if seconds is None or seconds > _LONGEST_MS / 1000:
        return _LONGEST_MS
    return max(math.ceil(seconds * 1000), 0)


def encoded(request: Mapping[str, Any]) -> bytes:
    """JSON as the library takes it; a request with a lone surrogate or with NaN raises ValueError."""
    return json.dumps(request, ensure_ascii=False, allow_nan=False).encode("utf-8")


def checked(answer: Json) -> Json:
    if answer.get("@type") == "error":
        raise Error(answer)
    return answer


def connect_request(
    host: Optional[str],
    port: Optional[Union[int, str]],
    time_limit: Optional[float],
    more: Mapping[str, Any],
) -> Json:
    request: Json = {
        "@type": "connect",
        "host": host,
        "port": port,
        "time_limit_ms": milliseconds(time_limit),
        **more,
    }
    return {name: value for name, value in request.items() if value is not None}


def send_request(
    name: Name,
    message: Union[Mapping[str, Any], str],
    receipt: bool,
    time_limit: Optional[float],
    safe_to_repeat: bool,
    more: Mapping[str, Any],
) -> Json:
    request: Json = {"@type": "send", **message_members(name, message), **more}
    request["time_limit_ms"] = milliseconds(time_limit)
    request.update({"receipt": True} if receipt else {})
    request.update({"safe_to_repeat": True} if safe_to_repeat else {})
    return {member: value for member, value in request.items() if value is not None}


def request_request(
    name: Name,
    message: Union[Mapping[str, Any], str],
    reply: Name,
    time_limit: Optional[float],
    safe_to_repeat: bool,
    more: Mapping[str, Any],
) -> Json:
    request: Json = {"@type": "request", **message_members(name, message), "reply": reply, **more}
    request["time_limit_ms"] = milliseconds(time_limit)
    request.update({"safe_to_repeat": True} if safe_to_repeat else {})
    return {member: value for member, value in request.items() if value is not None}
