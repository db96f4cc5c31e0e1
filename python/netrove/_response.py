"""What comes back."""

from __future__ import annotations

import codecs
import io
from collections.abc import Iterator

from . import _netrove
from ._errors import HTTPStatusError
from ._headers import Headers

TYPE_CHECKING = False
if TYPE_CHECKING:
    from datetime import timedelta
    from pathlib import Path
    from types import TracebackType
    from typing import Any, TypeVar

    _Self = TypeVar("_Self", bound="Response")

_PIECE = 65536  # bytes


class Lines:
    """Makes lines, without their ends, of text that comes in pieces."""

    def __init__(self) -> None:
        self._newlines = io.IncrementalNewlineDecoder(None, translate=True)
        self._begun: list[str] = []  # the parts of a line whose end has not come

    def split(self, text: str, final: bool = False) -> list[str]:
        """The lines that end in this text, and with ``final`` the last one, which needs no end."""
        first, *more = self._newlines.decode(text, final).split("\n")
        self._begun.append(first)
        if not more and not final:
            return []
        lines = ["".join(self._begun), *more]
        if not final or not lines[-1]:
            self._begun = [lines.pop()]
        return lines


class Request:
    """What was asked for, in the end: after redirects."""

    def __init__(self, method: str, url: str) -> None:
        self.method = method
        self.url = url

    def __repr__(self) -> str:
        return f"<Request [{self.method}]>"


class Response:
    """A response. It is true if its status is below 400."""

    def __init__(self, core: _netrove.Response, content: bytes) -> None:
        self._core = core
        self._content = content
        self._headers: Headers | None = None
        self._encoding: str | None = None

    @property
    def status_code(self) -> int:
        """The status, 100 to 999."""
        return self._core.status

    @property
    def status(self) -> int:
        """The same as ``status_code``."""
        return self._core.status

    @property
    def reason(self) -> str:
        """The reason phrase; empty with HTTP/2."""
        return self._core.reason

    @property
    def reason_phrase(self) -> str:
        """The same as ``reason``."""
        return self._core.reason

    @property
    def http_version(self) -> str:
        """Such as "HTTP/1.1"."""
        return self._core.version

    @property
    def headers(self) -> Headers:
        """The header fields, whose names are compared without regard to case."""
        if self._headers is None:
            self._headers = Headers(self._core.fields)
        return self._headers

    @property
    def url(self) -> str:
        """After redirects, without user name and password."""
        return self._core.url

    @property
    def request(self) -> Request:
        """Method and URL of the last request."""
        return Request(self._core.method, self._core.url)

    @property
    def history(self) -> list[_netrove.Hop]:
        """The requests that were answered by a redirect, in order."""
        return self._core.redirects

    @property
    def hops(self) -> list[_netrove.Hop]:
        """All requests that were made for this response, those of failed attempts included, in order."""
        return self._core.hops

    @property
    def attempts(self) -> int:
        """How often the call was tried."""
        return self._core.attempts

    @property
    def elapsed(self) -> timedelta:
        """The time from the beginning of the last request to the end of the response's head."""
        return self._core.hops[-1].until_head

    @property
    def received(self) -> int:
        """Bytes of content as delivered, whether kept, saved or passed on."""
        return self._core.received

    @property
    def file(self) -> Path | None:
        """Of ``save``: where the content is; None after a 304, which leaves files alone."""
        file = self._core.file
        return file if str(file) not in ("", ".") else None

    @property
    def resumed_at(self) -> int:
        """Of ``save``: bytes that were there before."""
        return self._core.resumed_at

    @property
    def content(self) -> bytes:
        """The content, decoded by Content-Encoding: the object that it was received into."""
        return self._content

    @property
    def encoding(self) -> str:
        """The charset of Content-Type, or what it was set to; "utf-8" where there is neither."""
        if self._encoding is not None:
            return self._encoding
        from email.message import Message

        message = Message()
        message["Content-Type"] = self.headers.get("Content-Type", "")
        return message.get_content_charset("utf-8")

    @encoding.setter
    def encoding(self, name: str | None) -> None:
        self._encoding = name

    @property
    def text(self) -> str:
        """The content as text: by its byte order mark, else by ``encoding``, else as UTF-8. What is not text becomes
        U+FFFD."""
        if self._encoding is not None:
            return self.content.decode(self._encoding, "replace")
        return _netrove.decoded_text(self.content, self.headers.get("Content-Type", ""))

    def json(self, **options: Any) -> Any:
        """The content as JSON; ``options`` are those of ``json.loads``. Raises JSONDecodeError, a ValueError."""
        import json

        return json.loads(self.content, **options)

    @property
    def cookies(self) -> dict[str, str]:
        """The cookies of this response by name."""
        from http.cookies import CookieError, SimpleCookie

        jar: SimpleCookie[str] = SimpleCookie()
        for value in self._core.set_cookies:
            try:
                jar.load(value)
            except CookieError:
                continue  # one that cannot be read is none
        return {name: morsel.value for name, morsel in jar.items()}

    @property
    def ok(self) -> bool:
        """True for a status below 400."""
        return self.status_code < 400

    @property
    def is_success(self) -> bool:
        """True for 200 to 299."""
        return 200 <= self.status_code < 300

    @property
    def is_redirect(self) -> bool:
        """True for a redirect that was not followed."""
        return self.status_code in (301, 302, 303, 307, 308) and "Location" in self.headers

    @property
    def is_error(self) -> bool:
        """True for 400 and above."""
        return self.status_code >= 400

    def raise_for_status(self: _Self) -> _Self:
        """Returns the response, or raises HTTPStatusError if its status is 400 or above."""
        if self.is_error:
            reason = f" {self.reason}" if self.reason else ""
            raise HTTPStatusError(
                f"the server answered {self.status_code}{reason} for {self.url}",
                kind="status",
                identifier="NETROVE:client:StatusError",
                arguments=(self.status_code, self.reason, self.url),
                response=self,
                sent=True,
                attempts=self.attempts,
            )
        return self

    def iter_bytes(self, chunk_size: int | None = None) -> Iterator[bytes]:
        """The content in pieces of this many bytes, the last one shorter."""
        size = checked_size(chunk_size) or _PIECE
        for start in range(0, len(self.content), size):
            yield self.content[start : start + size]

    def iter_content(self, chunk_size: int | None = None) -> Iterator[bytes]:
        """The same as ``iter_bytes``."""
        return self.iter_bytes(chunk_size)

    def iter_text(self, chunk_size: int | None = None) -> Iterator[str]:
        """The content as text in pieces; ``chunk_size`` counts bytes."""
        decoder = codecs.getincrementaldecoder(self.encoding)("replace")
        for piece in self.iter_bytes(chunk_size):
            if text := decoder.decode(piece):
                yield text
        if text := decoder.decode(b"", True):
            yield text

    def iter_lines(self) -> Iterator[str]:
        """The content as lines of text, without their ends."""
        lines = Lines()
        for text in self.iter_text():
            yield from lines.split(text)
        yield from lines.split("", final=True)

    def read(self) -> bytes:
        """The whole content."""
        return self.content

    def close(self) -> None:
        """Stops what still runs; a response whose content is there has nothing to close."""

    def __enter__(self: _Self) -> _Self:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __bool__(self) -> bool:
        return self.ok

    def __repr__(self) -> str:
        return f"<Response [{self.status_code}{' ' if self.reason else ''}{self.reason}]>"


def checked_size(size: int | None) -> int | None:
    if size is not None and size < 1:
        raise ValueError("a piece has at least one byte")
    return size


class StreamedResponse(Response):
    """A response whose content is received while it is asked for: iterate over it, or use ``iter_bytes``, ``iter_text``
    and ``iter_lines``, once. ``content`` and what is made of it read all that is left. While it is open its client
    makes no other call; ``close`` ends it, as does the end of a ``with`` block."""

    def __init__(self, stream: _netrove.Stream) -> None:
        super().__init__(stream.head(), b"")
        self._stream = stream
        self._read = False
        self._begun = False

    def __iter__(self) -> Iterator[bytes]:
        """The content in pieces as they come. Raises HTTPStatusError first if the status is 400 or above."""
        self.raise_for_status()
        return self.iter_bytes()

    def iter_bytes(self, chunk_size: int | None = None) -> Iterator[bytes]:
        """The content in pieces as they come; with ``chunk_size`` in pieces of this many bytes, the last one shorter.
        Raises what ends the transfer early."""
        checked_size(chunk_size)
        if self._read:
            return super().iter_bytes(chunk_size)
        if self._begun:
            raise RuntimeError("the content has been read already, and is not kept")
        self._begun = True
        return self._pieces() if chunk_size is None else self._even_pieces(chunk_size)

    def _pieces(self) -> Iterator[bytes]:
        while (piece := self._stream.next(_PIECE * 16)) is not None:
            yield piece
        self._end()

    def _even_pieces(self, size: int) -> Iterator[bytes]:
        waiting = bytearray()
        while (piece := self._stream.next(size - len(waiting))) is not None:
            waiting += piece
            if len(waiting) == size:
                yield bytes(waiting)
                waiting.clear()
        if waiting:
            yield bytes(waiting)
        self._end()

    def _end(self) -> None:
        self._stream.close()

    @property
    def content(self) -> bytes:
        """All content; what cannot be kept in memory is better read piece by piece."""
        if not self._read:
            self._content = b"".join(self.iter_bytes())
            self._read = True
        return self._content

    def close(self) -> None:
        """Stops the transfer if it still runs."""
        self._begun = True
        self._stream.close()

    def __repr__(self) -> str:
        return f"<StreamedResponse [{self.status_code}{' ' if self.reason else ''}{self.reason}]>"
