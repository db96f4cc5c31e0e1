"""What a call raises when it fails."""

from __future__ import annotations

import builtins
from collections.abc import Sequence

from . import _netrove

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

    from ._response import Response


class Error(Exception):
    """A failed call. ``str(error)`` is one line without passwords.

    Attributes:
        kind: what failed: "url", "name", "connect", "proxy", "tls", "timeout", "interrupted", "status", "content",
            "file", "usage" or "other".
        identifier: what a program compares, such as "NETROVE:client:StatusError".
        arguments: the parts of the text, integers and strings, in the order of the identifier.
        response: what had come before, with the content that was there; None where no head came.
        sent: False if no byte of the last request has left this machine.
        attempts: how often the call was tried.
        host_text: the message of the class below, in its own words; empty for failures of the client.
    """

    def __init__(
        self,
        text: str = "",
        *,
        kind: str = "other",
        identifier: str = "",
        arguments: Sequence[int | str] = (),
        response: Response | None = None,
        sent: bool = False,
        attempts: int = 0,
        host_text: str = "",
    ) -> None:
        super().__init__(text)
        self.kind = kind
        self.identifier = identifier
        self.arguments = tuple(arguments)
        self.response = response
        self.sent = sent
        self.attempts = attempts
        self.host_text = host_text

    def __reduce__(self) -> tuple[Any, ...]:
        # Goes to another process without the response.
        return type(self), self.args, {**self.__dict__, "response": None}


class RequestError(Error):
    """There is no response, or not a whole one."""


class ConnectionError(RequestError, builtins.ConnectionError):
    """No connection to the server, or it broke off."""


class NameResolutionError(ConnectionError):
    """There is no such host."""


class ProxyError(ConnectionError):
    """No connection to the proxy, or it refused to pass the request on."""


class SSLError(ConnectionError):
    """The certificate or the handshake of the server."""


class Timeout(RequestError, builtins.TimeoutError):
    """A limit was reached; the text names it."""


class ConnectTimeout(Timeout, ConnectionError):
    """There was no connection within the limit ``connect``."""


class ReadTimeout(Timeout):
    """Nothing came, or nothing could be sent, for as long as the limit ``response`` or ``data`` allows."""


class ContentError(RequestError):
    """What came is incomplete, cannot be decoded, or is not what was asked for."""


class InvalidURL(RequestError, ValueError):
    """The URL cannot be used, or a redirect leads where it must not."""


class TooManyRedirects(InvalidURL):
    """There are more redirects than allowed."""


class HTTPStatusError(Error):
    """The server answered 400 or above; ``response`` is what it answered."""


class Interrupted(Error):
    """The call was stopped by the program."""


class FileError(Error, OSError):
    """A file of this machine cannot be read or written."""


class UsageError(Error, ValueError):
    """The call makes no sense as it is; nothing was sent."""


_CLASSES: dict[str, type[Error]] = {
    "url": InvalidURL,
    "name": NameResolutionError,
    "connect": ConnectionError,
    "proxy": ProxyError,
    "tls": SSLError,
    "timeout": Timeout,
    "interrupted": Interrupted,
    "status": HTTPStatusError,
    "content": ContentError,
    "file": FileError,
    "usage": UsageError,
}


def _class_of(kind: str, identifier: str, arguments: Sequence[int | str]) -> type[Error]:
    if identifier.endswith(":TooManyRedirects"):
        return TooManyRedirects
    if identifier == "VANTIK:webservices:Timeout":  # its fourth argument is the limit
        return ConnectTimeout if "Connect" in str(arguments[3]) else ReadTimeout
    return _CLASSES.get(kind, Error)


def _make(
    kind: str,
    identifier: str,
    arguments: Sequence[int | str],
    text: str,
    host_text: str,
    sent: bool,
    attempts: int,
    core: _netrove.Response | None,
    content: bytes,
) -> Error:
    from ._response import Response

    return _class_of(kind, identifier, arguments)(
        text,
        kind=kind,
        identifier=identifier,
        arguments=arguments,
        response=None if core is None else Response(core, content),
        sent=sent,
        attempts=attempts,
        host_text=host_text,
    )


_netrove.set_failure_maker(_make)
