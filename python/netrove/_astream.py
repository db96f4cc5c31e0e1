"""Content that asyncio awaits piece by piece."""

from __future__ import annotations

import asyncio
import codecs
from collections.abc import AsyncIterator, Callable
from types import TracebackType

from . import _netrove
from ._errors import Error
from ._response import Lines, Response, checked_size

_MOST = 1 << 20  # bytes of a piece whose size the program leaves to us


class _Pieces:
    """A stream whose answers can be awaited, by one task at a time."""

    def __init__(self, core: _netrove.PoolStream) -> None:
        self._core = core
        self._awaited = False

    async def head(self) -> _netrove.Response:
        while (head := self._core.head()) is None:
            await self._change()
        return head

    async def next(self, most: int) -> bytes:
        """Bytes that have come; none of them at the end."""
        while (piece := self._core.next(most)) is None:
            await self._change()
        return piece

    def close(self) -> None:
        self._core.close()

    async def _change(self) -> None:
        if self._awaited:
            raise RuntimeError("another task awaits the content of this stream")
        loop = asyncio.get_running_loop()
        changed = loop.create_future()
        self._awaited = True

        def note() -> None:
            if not changed.done():
                changed.set_result(None)

        loop.add_reader(self._core.descriptor, note)
        try:
            await changed
        finally:
            loop.remove_reader(self._core.descriptor)
            self._awaited = False


class AsyncStreamedResponse(Response):
    """A response whose content is received while it is awaited: ``async for`` over it, or use ``aiter_bytes``,
    ``aiter_text`` and ``aiter_lines``, once. After ``await response.aread()`` its content is there as that of any other
    response. What nobody awaits is not received."""

    def __init__(self, core: _netrove.Response, pieces: _Pieces) -> None:
        super().__init__(core, b"")
        self._pieces = pieces
        self._read = False
        self._begun = False

    def __aiter__(self) -> AsyncIterator[bytes]:
        """The content in pieces as they come. Raises HTTPStatusError first if the status is 400 or above."""
        self.raise_for_status()
        return self.aiter_bytes()

    def aiter_bytes(self, chunk_size: int | None = None) -> AsyncIterator[bytes]:
        """The content in pieces as they come; with ``chunk_size`` in pieces of this many bytes, the last one shorter.
        Raises what ends the transfer early."""
        checked_size(chunk_size)
        if self._read:
            return self._again(chunk_size)
        if self._begun:
            raise RuntimeError("the content has been read already, and is not kept")
        self._begun = True
        return self._as_they_come() if chunk_size is None else self._even_pieces(chunk_size)

    async def _again(self, size: int | None) -> AsyncIterator[bytes]:
        for piece in self.iter_bytes(size):
            yield piece

    async def _as_they_come(self) -> AsyncIterator[bytes]:
        while piece := await self._pieces.next(_MOST):
            yield piece

    async def _even_pieces(self, size: int) -> AsyncIterator[bytes]:
        waiting = bytearray()
        while piece := await self._pieces.next(size - len(waiting)):
            waiting += piece
            if len(waiting) == size:
                yield bytes(waiting)
                waiting.clear()
        if waiting:
            yield bytes(waiting)

    async def aiter_text(self, chunk_size: int | None = None) -> AsyncIterator[str]:
        """The content as text in pieces; ``chunk_size`` counts bytes."""
        decoder = codecs.getincrementaldecoder(self.encoding)("replace")
        async for piece in self.aiter_bytes(chunk_size):
            if text := decoder.decode(piece):
                yield text
        if text := decoder.decode(b"", True):
            yield text

    async def aiter_lines(self) -> AsyncIterator[str]:
        """The content as lines of text, without their ends."""
        lines = Lines()
        async for text in self.aiter_text():
            for line in lines.split(text):
                yield line
        for line in lines.split("", final=True):
            yield line

    async def aread(self) -> bytes:
        """Reads all content, and returns it. What cannot be kept in memory is better read piece by piece."""
        if not self._read:
            self._content = b"".join([piece async for piece in self.aiter_bytes()])
            self._read = True
        return self._content

    @property
    def content(self) -> bytes:
        """All content, after ``aread``."""
        if not self._read:
            raise RuntimeError("the content has not been read: await response.aread() first")
        return self._content

    async def aclose(self) -> None:
        """Stops the transfer if it still runs."""
        self.close()

    def close(self) -> None:
        """The same as ``aclose``."""
        self._begun = True
        self._pieces.close()

    def __repr__(self) -> str:
        return f"<AsyncStreamedResponse [{self.status_code}{' ' if self.reason else ''}{self.reason}]>"


class AsyncStream:
    """What ``astream`` returns: ``async with`` sends the request and waits for the head of its response."""

    def __init__(
        self, pool: _netrove.Pool, settings: _netrove.Settings, learn: Callable[[Response | Error], None]
    ) -> None:
        self._pool = pool
        self._settings = settings
        self._learn = learn
        self._pieces: _Pieces | None = None

    async def __aenter__(self) -> AsyncStreamedResponse:
        if self._pieces is not None:
            raise RuntimeError("this request has been sent already")
        self._pieces = _Pieces(_netrove.PoolStream(self._pool, self._settings))
        try:
            response = AsyncStreamedResponse(await self._pieces.head(), self._pieces)
        except BaseException as failure:
            self._pieces.close()
            if isinstance(failure, Error):
                self._learn(failure)
            raise
        self._learn(response)
        return response

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        if self._pieces is not None:
            self._pieces.close()
