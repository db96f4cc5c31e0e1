"""Content that asyncio awaits piece by piece."""

from __future__ import annotations

import asyncio
import gc
import threading
from collections.abc import Callable, Coroutine
from typing import Any

import pytest

import netrove
from servers import AnsweringServer, Peer, ScriptedServer, halting, silent
from test_interrupts import signalled_when


def run(program: Callable[[netrove.Client], Coroutine[Any, Any, None]], **options: Any) -> None:
    async def with_client() -> None:
        async with netrove.Client(proxy=False, retry=1, **options) as client:
            await program(client)

    asyncio.run(with_client())


def test_content_comes_in_pieces_of_every_kind(server: AnsweringServer) -> None:
    whole = bytes(i % 251 for i in range(200_000))

    async def program(client: netrove.Client) -> None:
        async with client.astream(server.url("/bytes/200000")) as got:
            assert (got.status_code, got.headers["Content-Length"]) == (200, "200000")
            assert b"".join([piece async for piece in got.aiter_bytes()]) == whole
        async with client.astream("GET", server.url("/bytes/200000")) as got:
            pieces = [piece async for piece in got.aiter_bytes(70_000)]
            assert [len(piece) for piece in pieces] == [70_000, 70_000, 60_000] and b"".join(pieces) == whole
        async with client.astream(server.url("/bytes/200000")) as got:
            assert b"".join([piece async for piece in got]) == whole
        async with client.astream("POST", server.url(), content=iter([b"sent"]), params={"a": 1}) as got:
            assert await got.aread() == got.content == got.read()
            assert (got.json()["data"], got.json()["args"]) == ("sent", {"a": "1"})
            assert b"".join([piece async for piece in got.aiter_bytes(10)]) == got.content, "it is kept"
        async with client.astream(server.url("/latin1")) as got:
            assert "".join([text async for text in got.aiter_text(1)]) == "Été"

    run(program)


def test_lines_come_without_their_ends() -> None:
    def in_parts(peer: Peer) -> None:
        peer.head()
        peer.send(b"HTTP/1.1 200 OK\r\nContent-Length: 13\r\n\r\none\r")
        peer.wait("first")
        peer.send(b"\ntwo\n\nthr")
        peer.until_client_goes()

    async def program(client: netrove.Client) -> None:
        with ScriptedServer(in_parts) as server:
            async with client.astream(server.url()) as got:
                server.event("first").set()
                assert [line async for line in got.aiter_lines()] == ["one", "two", "", "thr"]

    run(program)


def test_a_piece_comes_before_the_content_is_whole() -> None:
    async def program(client: netrove.Client) -> None:
        with ScriptedServer(halting) as halts:
            async with client.astream(halts.url(), timeout=600) as got:
                assert await got.aiter_bytes().__anext__() == b"half."
            await asyncio.to_thread(halts.wait_for, "gone")

    run(program)


def test_streams_run_beside_each_other_and_beside_other_calls(server: AnsweringServer) -> None:
    met = threading.Barrier(3, timeout=60)

    def meet(peer: Peer) -> None:
        peer.head()
        peer.send(b"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n")
        met.wait()
        peer.send(b"met")
        peer.until_client_goes()

    async def read(client: netrove.Client, url: str) -> bytes:
        async with client.astream(url) as got:
            return await got.aread()

    async def program(client: netrove.Client) -> None:
        with ScriptedServer(*[meet] * 3) as meets:
            urls = [meets.url()] * 3
            assert await asyncio.gather(*[read(client, url) for url in urls]) == [b"met"] * 3
        async with client.astream(server.url("/bytes/10")):
            assert (await client.aget(server.url("/bytes/3"))).content == b"\0\1\2"

    run(program, jobs=3)


def test_what_is_not_read_is_not_received(server: AnsweringServer) -> None:
    size = 200_000_000
    sent = 0

    def plenty(peer: Peer) -> None:
        nonlocal sent
        peer.head()
        peer.send(f"HTTP/1.1 200 OK\r\nContent-Length: {size}\r\n\r\n".encode())
        while sent < size:
            peer.send(bytes(100_000))
            sent += 100_000
        peer.signal("sent")
        peer.until_client_goes()

    async def program(client: netrove.Client) -> None:
        with ScriptedServer(plenty) as sends:
            async with client.astream(sends.url()) as got:
                pieces = got.aiter_bytes()
                read = len(await pieces.__anext__())
                for _ in range(200):  # time enough to send everything
                    assert (await client.aget(server.url("/bytes/100000"))).ok
                assert sent - read < 50_000_000, "only what the buffers of the system hold, and a megabyte"
                async for piece in pieces:
                    read += len(piece)
                assert read == size

    run(program)


async def _cancelled(task: asyncio.Task[Any]) -> None:
    task.cancel()
    with pytest.raises(asyncio.CancelledError):
        await task


@pytest.mark.parametrize("script", [silent, halting])
def test_cancelled_it_ends_its_transfer(server: AnsweringServer, script: Callable[[Peer], None]) -> None:
    async def read(client: netrove.Client, url: str) -> None:
        async with client.astream(url) as got:
            await got.aread()

    async def program(client: netrove.Client) -> None:
        with ScriptedServer(script) as waits:
            task = asyncio.create_task(read(client, waits.url()))
            await asyncio.to_thread(waits.wait_for, "asked")
            await _cancelled(task)
            await asyncio.to_thread(waits.wait_for, "gone")
            assert (await client.aget(server.url())).ok, "the only thread is free"

    run(program, timeout=600, jobs=1)


def test_one_that_waits_for_a_thread_can_be_cancelled(server: AnsweringServer) -> None:
    async def read(client: netrove.Client, url: str) -> bytes:
        async with client.astream(url) as got:
            return await got.aread()

    async def program(client: netrove.Client) -> None:
        with ScriptedServer(silent) as waits:
            first = asyncio.create_task(read(client, waits.url()))
            await asyncio.to_thread(waits.wait_for, "asked")
            second = asyncio.create_task(read(client, server.url()))
            third = asyncio.create_task(read(client, server.url("/bytes/3")))
            await asyncio.sleep(0)  # they begin
            await _cancelled(second)
            await _cancelled(first)
            assert await third == b"\0\1\2"

    run(program, timeout=600, jobs=1)


def test_an_interrupt_ends_it(server: AnsweringServer) -> None:
    with ScriptedServer(halting) as halts:

        async def read() -> None:
            async with netrove.Client(proxy=False, timeout=600).astream(halts.url()) as got:
                await got.aread()

        with signalled_when(halts, "asked"), pytest.raises(KeyboardInterrupt):
            asyncio.run(read())
        halts.wait_for("gone")

    async def again(client: netrove.Client) -> None:
        assert (await client.aget(server.url())).ok

    run(again)


def test_failures_are_raised_where_they_happen(server: AnsweringServer) -> None:
    def cut(peer: Peer) -> None:
        peer.head()
        peer.send(b"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf.")

    async def program(client: netrove.Client) -> None:
        with pytest.raises(netrove.ConnectionError):
            async with client.astream("http://127.0.0.1:1/"):
                raise AssertionError
        with pytest.raises(netrove.HTTPStatusError):
            async with client.astream(server.url("/status/404"), check_status=True):
                raise AssertionError
        async with client.astream(server.url("/status/404")) as got:
            with pytest.raises(netrove.HTTPStatusError):
                async for _ in got:
                    raise AssertionError
        with ScriptedServer(cut) as cuts:
            async with client.astream(cuts.url()) as got:
                with pytest.raises(netrove.Error):
                    await got.aread()

    run(program)


def test_a_client_that_is_closed_ends_it() -> None:
    def plenty(peer: Peer) -> None:
        peer.head()
        peer.send(b"HTTP/1.1 200 OK\r\nContent-Length: 100000000\r\n\r\n")
        peer.signal("asked")
        for _ in range(1000):
            peer.send(bytes(100_000))

    async def program(client: netrove.Client) -> None:
        for script in (plenty, halting, silent):
            own = netrove.Client(proxy=False, timeout=600, retry=1)
            with ScriptedServer(script) as sends:
                opening = own.astream(sends.url())
                entered = asyncio.ensure_future(opening.__aenter__())
                await asyncio.to_thread(sends.wait_for, "asked")
                if script is silent:
                    own.close()
                    with pytest.raises(netrove.Interrupted):
                        await entered
                else:
                    got = await entered
                    own.close()
                    with pytest.raises(netrove.Interrupted):
                        await got.aread()

    run(program)


def test_it_says_how_it_is_used(server: AnsweringServer) -> None:
    async def program(client: netrove.Client) -> None:
        opening = client.astream(server.url("/bytes/10"))
        async with opening as got:
            with pytest.raises(RuntimeError, match="aread"):
                got.text
            assert len(await got.aiter_bytes().__anext__()) == 10
            with pytest.raises(RuntimeError, match="read already"):
                got.aiter_bytes()
            with pytest.raises(ValueError, match="at least one byte"):
                got.aiter_bytes(0)
        with pytest.raises(RuntimeError, match="sent already"):
            await opening.__aenter__()
        with ScriptedServer(halting) as halts:
            async with client.astream(halts.url(), timeout=600) as got:
                first = asyncio.create_task(got.aread())
                await asyncio.to_thread(halts.wait_for, "asked")
                while not got._pieces._awaited:
                    await asyncio.sleep(0)
                with pytest.raises(RuntimeError, match="another task"):
                    while True:
                        await got._pieces.next(10)
                await _cancelled(first)

    run(program)


def test_one_that_is_dropped_ends(server: AnsweringServer) -> None:
    async def program(client: netrove.Client) -> None:
        with ScriptedServer(halting) as halts:
            opening = client.astream(halts.url(), timeout=600)
            got = await opening.__aenter__()
            assert got.ok
            del opening, got
            gc.collect()
            await asyncio.to_thread(halts.wait_for, "gone")

    run(program)
