"""Values that programs give to calls, or get from them. Loaded when one of them is asked for: most programs need none,
and what makes these classes is slow to load."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass
from datetime import timedelta
from typing import NamedTuple, Union

Seconds = Union[float, timedelta]


@dataclass(frozen=True)
class Limits:
    """Longest times, in seconds or as timedelta, and most content, in bytes. None leaves a value to the client, or to
    the default that is named; ``math.inf`` is no limit. A transfer that keeps moving is limited by ``total`` only.

    Attributes:
        connect: until there is a connection, name look-up and TLS included; 10 s.
        response: of silence before the response's head; 30 s.
        data: of silence while content moves, in either direction; 30 s.
        attempt: for one attempt with its redirects; no limit.
        total: for the whole call with redirects, retries and waits; no limit.
        memory: bytes of content collected in memory; 64 MiB.
        content: bytes of content, wherever they go; no limit.
    """

    connect: Seconds | None = None
    response: Seconds | None = None
    data: Seconds | None = None
    attempt: Seconds | None = None
    total: Seconds | None = None
    memory: int | None = None
    content: int | None = None


@dataclass(frozen=True)
class Retry:
    """What is tried again, and when: failures that may pass, of requests that may be repeated or were not sent. None
    leaves a value to the client, or to the default that is named.

    Attributes:
        attempts: in all; 3.
        wait: seconds or timedelta, doubled for each attempt; the wait is random between 0 and that, or what the server
            asks for; 0.25 s.
        longest_wait: seconds or timedelta; a server that asks for more ends the call; 30 s.
        unsafe: POST and PATCH too, which may then be done twice; False.
        statuses: that may pass; 408, 429, 502, 503, 504.
        any: whatever failure of the server or the way to it; False.
    """

    attempts: int | None = None
    wait: Seconds | None = None
    longest_wait: Seconds | None = None
    unsafe: bool | None = None
    statuses: Sequence[int] | None = None
    any: bool | None = None


@dataclass(frozen=True)
class Login:
    """A login at the server. The safest scheme that it offers is used: of "basic", "digest", "ntlm", "negotiate", those
    that ``schemes`` names; without any, basic and digest. ``bearer`` is a token in place of user and password."""

    user: str | None = None
    password: str = ""
    schemes: Sequence[str] = ()
    bearer: str = ""


def BasicAuth(username: str, password: str) -> Login:
    """A login by the scheme Basic."""
    return Login(username, password, ("basic",))


def DigestAuth(username: str, password: str) -> Login:
    """A login by the scheme Digest."""
    return Login(username, password, ("digest",))


class Progress(NamedTuple):
    """How far a call has come, in bytes of content.

    Attributes:
        sent: bytes that were sent.
        received: bytes that came, what was resumed included.
        to_send: how many there will be, where that is known.
        to_receive: the same of what comes.
    """

    sent: int
    received: int
    to_send: int | None
    to_receive: int | None
