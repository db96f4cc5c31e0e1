"""Threads, processes, the order in which objects go, and what is left of them."""

from __future__ import annotations

import gc
import os
import subprocess
import sys
import threading
import tracemalloc
from collections.abc import Callable
from pathlib import Path

import pytest

import netrove
from netrove import _netrove
from servers import AnsweringServer, ScriptedServer, halting, silent


def test_a_client_that_two_threads_use_at_once_is_refused(server: AnsweringServer, client: netrove.Client) -> None:
    failures: list[netrove.Error] = []

    def get() -> None:
        try:
            client.get(halts.url())
        except netrove.Error as failure:
            failures.append(failure)

    with ScriptedServer(halting) as halts:
        thread = threading.Thread(target=get)
        thread.start()
        halts.wait_for("asked")
        for call in (lambda: client.get(server.url()), client.close):
            with pytest.raises(netrove.UsageError) as refused:
                call()
            assert refused.value.identifier == "NETROVE:client:InUse"
        client.interrupt()
        thread.join()
    assert [type(failure) for failure in failures] == [netrove.Interrupted]
    assert client.get(server.url()).ok


def test_threads_run_calls_of_their_own_at_once(server: AnsweringServer) -> None:
    statuses: list[int] = []
    with ScriptedServer(silent) as waits:
        held = threading.Thread(target=lambda: pytest.raises(netrove.Error, netrove.get, waits.url(), retry=1))
        held.start()
        waits.wait_for("asked")
        threads = [
            threading.Thread(target=lambda: statuses.append(netrove.get(server.url()).status_code)) for _ in range(8)
        ]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    held.join()
    assert statuses == [200] * 8


def test_a_call_within_a_callback_needs_another_client(server: AnsweringServer, client: netrove.Client) -> None:
    inner: list[object] = []

    def progress(now: netrove.Progress) -> None:
        if not inner:
            inner.append(netrove.get(server.url()).status_code)
            with pytest.raises(netrove.UsageError):
                client.get(server.url())

    assert client.get(server.url("/bytes/100"), progress=progress).ok
    assert netrove.get(server.url("/bytes/100"), progress=lambda now: inner.append(netrove.get(server.url()).ok)).ok
    assert inner[0] == 200 and all(inner[1:])


def test_a_closed_client_says_so(server: AnsweringServer) -> None:
    client = netrove.Client()
    client.close()
    client.close()
    with pytest.raises(netrove.UsageError, match="closed"):
        client.get(server.url())


def expect_quiet(program: str, out: str = "") -> None:
    # What other threads still hold, and in a child what is the parent's, goes with the process.
    environment = {**os.environ, "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"}
    command = [sys.executable, "-X", "faulthandler", "-c", program]
    ended = subprocess.run(command, capture_output=True, text=True, timeout=60, env=environment)
    assert (ended.returncode, ended.stdout, ended.stderr) == (0, out, "")


def test_after_a_fork_each_process_has_clients_of_its_own(server: AnsweringServer) -> None:
    expect_quiet(
        f"""
import os, netrove
url = {server.url()!r}
client = netrove.Client(proxy=False)
assert client.get(url).ok and netrove.get(url).ok
child = os.fork()
if child == 0:
    try:
        client.get(url)
    except netrove.UsageError as error:
        assert "fork" in str(error)
    else:
        raise AssertionError
    assert netrove.get(url).ok
    assert netrove.Client(proxy=False).get(url).ok
    raise SystemExit(7)
assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7
assert client.get(url).ok and netrove.get(url).ok
"""
    )


def test_processes_of_a_pool_make_calls(server: AnsweringServer) -> None:
    expect_quiet(
        f"""
import multiprocessing, netrove
def size(count):
    return len(netrove.get({server.url("/bytes/")!r} + str(count)).content)
assert size(1) == 1
with multiprocessing.get_context("fork").Pool(2) as pool:
    print(pool.map(size, range(5)))
""",
        "[0, 1, 2, 3, 4]\n",
    )


ENDS = {
    "a client": "client = netrove.Client(); client.get(url)",
    "a module that keeps one": "netrove.kept = netrove.Client(); netrove.kept.get(url); sys.modules['x'] = netrove.kept",
    "a cycle": "c = netrove.Client(); c.get(url); c.me = c",
    "a response": "kept = [netrove.get(url)]; kept.append(kept)",
    "a stream": "stream = netrove.stream(halts); next(iter(stream))",
    "a stream that nobody has read": "stream = netrove.stream(halts)",
    "a stream of asyncio": """
import asyncio
async def read():
    global kept
    kept = netrove.Client().astream(halts)
    await (await kept.__aenter__()).aiter_bytes().__anext__()
asyncio.run(read())""",
    "a callback": "c = netrove.Client(progress=lambda now: c, trace=lambda *line: c); c.get(url)",
    "a thread in a call": """
def work():
    try: netrove.get(halts)
    except netrove.Interrupted: pass
threading.Thread(target=work, daemon=True).start()
netrove.get(asked)""",
    "a thread that waits for results": """
def work():
    try: list(netrove.get_all([halts], check_status=True))
    except netrove.Interrupted: pass
threading.Thread(target=work, daemon=True).start()
netrove.get(asked)""",
    "a failure": """
try: netrove.get(url, check_status=True, headers={'bad name': 'x'})
except netrove.Error as e: kept = e""",
}


@pytest.mark.parametrize("what", ENDS)
def test_the_interpreter_ends_with(server: AnsweringServer, what: str) -> None:
    def asked(peer: object) -> None:
        halts.wait_for("asked")
        peer.head()  # type: ignore[attr-defined]
        peer.send(b"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n")  # type: ignore[attr-defined]

    with ScriptedServer(halting) as halts, ScriptedServer(asked) as later:
        expect_quiet(
            f"import sys, threading, netrove\nurl = {server.url()!r}\nhalts = {halts.url()!r}\n"
            f"asked = {later.url()!r}\n{ENDS[what]}\n"
        )


def test_parts_may_go_in_any_order(server: AnsweringServer) -> None:
    makers: list[Callable[[], list[object]]] = [
        lambda: [c := netrove.Client(), c.stream(server.url("/large/3000000"))],
        lambda: [c := netrove.Client(), s := c.stream(server.url("/large/3000000")), iter(s)],
        lambda: [c := netrove.Client(), c.get(server.url())],
    ]
    for make in makers:
        for turned in (False, True):
            parts = make()
            if turned:
                parts.reverse()
            while parts:
                parts.pop()
                gc.collect()


def expect_nothing_left(use: Callable[[], None]) -> None:
    """What is done again and again leaves no array, no descriptor and no memory."""
    others = set(threading.enumerate())

    def collect() -> None:
        for connection in set(threading.enumerate()) - others:
            connection.join(60)  # at the server's side, in this process
        gc.collect()

    use()
    collect()
    arrays = _netrove.live_arrays()
    files = len(os.listdir("/proc/self/fd"))
    tracemalloc.start()
    try:
        use()
        collect()
        before = tracemalloc.get_traced_memory()[0]
        for _ in range(20):
            use()
        collect()
        grown = tracemalloc.get_traced_memory()[0] - before
    finally:
        tracemalloc.stop()
    assert _netrove.live_arrays() == arrays
    assert len(os.listdir("/proc/self/fd")) <= files + 2, "connections of the server's side may be closing"
    assert grown < 20 * 1000, "bytes; one kept content would be a hundred thousand"


def test_nothing_is_left_of_calls(server: AnsweringServer, tmp_path: Path) -> None:
    def calls() -> None:
        with netrove.Client(retry=1, proxy=False) as client:
            client.get(server.url("/bytes/100000"), progress=lambda now: None)
            client.put(server.url(), content=bytes(100_000))
            client.put(server.url(), content=iter([b"x"]))
            client.save(server.url("/bytes/10"), tmp_path / "x")
            list(client.stream(server.url("/bytes/100000")))
            for wrong in ("http://127.0.0.1:1/", ""):
                with pytest.raises(netrove.Error):
                    client.get(wrong)
            with pytest.raises(ZeroDivisionError):
                client.get(server.url("/bytes/1000"), progress=lambda now: 1 / 0)

    expect_nothing_left(calls)


def test_a_plain_call_loads_nothing_that_only_others_need(server: AnsweringServer) -> None:
    slow = (
        "asyncio dataclasses datetime email.message enum http.cookiejar http.cookies inspect json mimetypes pathlib re ssl "
        "typing"
    )
    program = f"""
import sys, netrove
assert netrove.get({server.url()!r}).ok
print(set({slow!r}.split()) & set(sys.modules))
for name in netrove.__all__:
    assert name in dir(netrove) and getattr(netrove, name)
"""
    ended = subprocess.run([sys.executable, "-S", "-c", program], capture_output=True, text=True)  # no other package
    assert (ended.stdout, ended.stderr) == ("set()\n", "")


def test_it_can_be_used_without_docstrings(server: AnsweringServer) -> None:
    program = f"import netrove, netrove.host; print(netrove.get({server.url('/bytes/3')!r}).content)"
    ended = subprocess.run([sys.executable, "-OO", "-c", program], capture_output=True, text=True)
    assert (ended.stdout, ended.stderr) == ("b'\\x00\\x01\\x02'\n", "")
