"""Many calls at a time, and asyncio."""

from __future__ import annotations

import asyncio
import signal
import threading
from collections.abc import Iterator
from pathlib import Path

import pytest

import netrove
from servers import AnsweringServer, Peer, ScriptedServer, halting, late, response, silent
from test_interrupts import signalled_when


def test_all_results_come_with_their_urls(server: AnsweringServer, client: netrove.Client) -> None:
    urls = [server.url(f"/bytes/{size}") for size in range(50)]
    for get_all in (client.get_all, netrove.get_all):
        found = {url: result for url, result in get_all(urls, jobs=4, per_host=4)}
        assert {url: len(result.content) for url, result in found.items()} == {url: i for i, url in enumerate(urls)}


def test_failures_are_results(server: AnsweringServer, client: netrove.Client) -> None:
    urls = [server.url("/status/404"), "http://127.0.0.1:1/", server.url("/bytes/1")]
    found = dict(client.get_all(urls))
    assert found[urls[0]].status_code == 404
    assert isinstance(found[urls[1]], netrove.ConnectionError)
    assert found[urls[2]].content == b"\0"
    assert isinstance(dict(client.get_all(urls, check_status=True))[urls[0]], netrove.HTTPStatusError)


def test_calls_run_at_the_same_time(client: netrove.Client) -> None:
    met = threading.Barrier(4, timeout=60)

    def meet(peer: Peer) -> None:
        peer.head()
        met.wait()
        peer.send(response("met"))
        peer.until_client_goes()

    with ScriptedServer(*[meet] * 4) as server:
        assert [result.text for _, result in client.get_all([server.url()] * 4, jobs=4)] == ["met"] * 4


def test_urls_are_taken_when_their_time_comes(server: AnsweringServer, client: netrove.Client) -> None:
    taken = []

    def urls() -> Iterator[str]:
        for i in range(10**9):
            taken.append(i)
            yield server.url("/bytes/1")

    results = client.get_all(urls(), jobs=2)
    for _ in range(100):
        next(results)
    results.close()  # type: ignore[attr-defined]
    assert len(taken) < 200


def test_results_that_are_dropped_stop_what_runs(client: netrove.Client, server: AnsweringServer) -> None:
    with ScriptedServer(halting) as halts:
        for url, result in client.get_all([halts.url(), server.url()], jobs=2):
            assert (url, result.ok) == (server.url(), True)
            halts.wait_for("asked")
            break
        halts.wait_for("gone")


def test_files_of_many(server: AnsweringServer, client: netrove.Client, tmp_path: Path) -> None:
    urls = [server.url(f"/bytes/{size}") for size in (3, 4)]
    for save_all in (client.save_all, netrove.save_all):
        assert {result.file for _, result in save_all(urls, tmp_path, resume=True)} == {tmp_path / "3", tmp_path / "4"}
    named = [(url, tmp_path / f"named{i}") for i, url in enumerate(urls)]
    assert {result.file.name for _, result in client.save_all(named)} == {"named0", "named1"}
    assert (tmp_path / "named1").read_bytes() == b"\0\1\2\3"


def test_an_interrupt_ends_all(client: netrove.Client) -> None:
    with ScriptedServer(halting, halting) as halts:
        with signalled_when(halts, "asked"), pytest.raises(KeyboardInterrupt):
            list(client.get_all([halts.url()] * 2))
        halts.wait_for("gone")


class Own(Exception):
    pass


def test_what_a_callable_raises_arrives_unchanged(server: AnsweringServer, client: netrove.Client) -> None:
    def refuse(now: netrove.Progress) -> None:
        raise Own

    with pytest.raises(Own):
        list(client.get_all([server.url("/bytes/10")], progress=refuse))

    async def run() -> None:
        with pytest.raises(Own):
            await client.aget(server.url("/bytes/10"), progress=refuse)

    asyncio.run(run())


@pytest.mark.parametrize("method", ["get", "post", "put", "patch", "delete"])
def test_each_method_can_be_awaited(server: AnsweringServer, method: str) -> None:
    async def run() -> None:
        async with netrove.Client(proxy=False) as client:
            got = await getattr(client, "a" + method)(server.url(), params={"a": 1})
            assert (got.json()["method"], got.json()["args"]) == (method.upper(), {"a": "1"})
            assert (await client.arequest("options", server.url())).json()["method"] == "OPTIONS"
            assert (await client.ahead(server.url())).content == b""

    asyncio.run(run())


def test_what_is_awaited_runs_at_the_same_time(tmp_path: Path, server: AnsweringServer) -> None:
    met = threading.Barrier(5, timeout=60)

    def meet(peer: Peer) -> None:
        peer.head()
        met.wait()
        peer.send(response("met"))
        peer.until_client_goes()

    async def run() -> None:
        with ScriptedServer(*[meet] * 5) as meets:
            async with netrove.Client(jobs=5, proxy=False) as client:
                got = await asyncio.gather(*[client.aget(meets.url()) for _ in range(5)])
                assert [one.text for one in got] == ["met"] * 5
                saved = await client.asave(server.url("/bytes/5"), tmp_path / "x")
                assert saved.file == tmp_path / "x"
                with pytest.raises(netrove.HTTPStatusError):
                    await client.asave(server.url("/status/404"), tmp_path / "y")

    asyncio.run(run())


def test_a_cancelled_call_ends_its_transfer(server: AnsweringServer) -> None:
    async def run() -> None:
        with ScriptedServer(silent) as waits:
            async with netrove.Client(timeout=600, proxy=False, jobs=1) as client:
                call = asyncio.create_task(client.aget(waits.url()))
                await asyncio.to_thread(waits.wait_for, "asked")
                call.cancel()
                with pytest.raises(asyncio.CancelledError):
                    await call
                await asyncio.to_thread(waits.wait_for, "gone")
                assert (await client.aget(server.url())).ok, "the only thread is free"

    asyncio.run(run())


def test_a_client_that_is_closed_ends_what_is_awaited() -> None:
    async def run() -> None:
        with ScriptedServer(silent) as waits:
            client = netrove.Client(timeout=600, proxy=False, jobs=1)
            calls = [asyncio.create_task(client.aget(waits.url())) for _ in range(2)]
            await asyncio.to_thread(waits.wait_for, "asked")
            await asyncio.to_thread(client.close)
            for call in calls:
                with pytest.raises(netrove.Interrupted):
                    await call
            with pytest.raises(netrove.UsageError, match="closed"):
                await client.aget(waits.url())

    asyncio.run(run())


def test_a_signal_handler_runs_while_results_are_awaited(client: netrove.Client) -> None:
    with ScriptedServer(late) as waits:
        before = signal.signal(signal.SIGUSR1, lambda number, frame: waits.event("handled").set())
        try:
            with signalled_when(waits, "asked", signal.SIGUSR1):
                assert [result.text for _, result in client.get_all([waits.url()])] == ["late"]
        finally:
            signal.signal(signal.SIGUSR1, before)
