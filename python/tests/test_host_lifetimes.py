"""Hosts of Python: interrupts in every phase, threads, processes, the order in which objects go, and what is left."""

from __future__ import annotations

import gc
import os
import signal
import threading
import warnings
import weakref
from collections.abc import Callable
from pathlib import Path
from typing import Any

import numpy
import pytest

import netrove
from netrove import _netrove
from netrove import host as nh
from servers import AnsweringServer, Peer, ScriptedServer, halting, response, silent, taking, wait_for_a_signal
from test_interrupts import handshake, interrupt_each_look_up, signalled_in_connect, signalled_when, waiting
from test_lifetimes import expect_nothing_left, expect_quiet

LARGE = bytes(50_000_000)  # more than any buffer on the way


def opened(host: nh.Host, url: str, **properties: Any) -> Any:
    connection = host.connection()
    connection.URL = url
    connection.TimeoutInMilliseconds = nh.timeouts(600, 600, 600)
    connection.openConnection()
    for name, value in properties.items():
        setattr(connection, name, value)
    return connection


def uploaded(connection: Any, **content: Any) -> None:
    connection.RequestMethod = "PUT"
    for name, value in content.items():
        setattr(connection, name, value)
    connection.copyContentToByteArray(True)


def consumed(connection: Any) -> None:
    connection.Consumer = Waiting()
    connection.copyContentToByteArray(False)


class Waiting:
    def write(self, piece: nh.Array) -> None:
        wait_for_a_signal()


PHASES: dict[str, tuple[Callable[[Peer], None], Callable[[Any, Path], Any]]] = {
    "handshake": (handshake, lambda c, _: c.copyContentToByteArray(True)),
    "status": (silent, lambda c, _: c.ResponseCode),
    "head": (silent, lambda c, _: c.copyContentToByteArray(True)),
    "content": (halting, lambda c, _: c.copyContentToByteArray(True)),
    "file": (halting, lambda c, folder: c.copyContentToFile(str(folder / "x"))),
    "payload": (taking, lambda c, _: uploaded(c, Payload=LARGE)),
    "provider": (taking, lambda c, _: uploaded(c, Provider=[LARGE])),
    "a provider that waits": (silent, lambda c, _: uploaded(c, Provider=waiting())),
    "a consumer that waits": (halting, lambda c, _: consumed(c)),
}


@pytest.mark.parametrize("phase", PHASES)
def test_an_interrupt_ends_every_phase_and_the_host_goes_on(
    server: AnsweringServer, tmp_path: Path, phase: str
) -> None:
    script, call = PHASES[phase]
    with nh.Host() as host:
        for _ in range(10):
            with ScriptedServer(script) as peer, signalled_when(peer, "asked"):
                url = peer.url()
                connection = opened(host, url if phase != "handshake" else url.replace("http:", "https:"))
                with pytest.raises(KeyboardInterrupt):
                    call(connection, tmp_path)
            connection.closeConnection()
            assert not host.interrupt_pending and not host.was_interrupted
            again = opened(host, server.url("/bytes/3"))
            assert again.copyContentToByteArray(True) == b"\0\1\2"
            again.closeConnection()


def test_an_interrupt_ends_a_connect_that_nobody_answers(server: AnsweringServer) -> None:
    with nh.Host() as host:
        with signalled_in_connect() as url, pytest.raises(KeyboardInterrupt):
            _ = opened(host, url).ResponseCode
        assert opened(host, server.url()).ResponseCode == 200


def test_an_interrupt_ends_a_look_up_that_does_not_end(server: AnsweringServer) -> None:
    interrupt_each_look_up(
        f"""
from netrove.host import Host, timeouts
with Host() as host:
    for _ in range(3):
        connection = host.connection()
        connection.URL = "http://held.test/"
        connection.TimeoutInMilliseconds = timeouts(600)
        connection.openConnection()
        try:
            connection.ResponseCode
        except KeyboardInterrupt:
            print("interrupted", flush=True)
        connection.closeConnection()
        connection.URL = {server.url()!r}
        connection.openConnection()
        assert connection.ResponseCode == 200
        connection.closeConnection()
"""
    )


class Own(Exception):
    pass


def test_what_a_handler_raises_ends_the_operation() -> None:
    def refuse(number: int, frame: object) -> None:
        raise Own("of the handler")

    before = signal.signal(signal.SIGUSR1, refuse)
    try:
        with ScriptedServer(halting) as peer, signalled_when(peer, "asked", signal.SIGUSR1), nh.Host() as host:
            with pytest.raises(Own, match="of the handler"):
                opened(host, peer.url()).copyContentToByteArray(True)
    finally:
        signal.signal(signal.SIGUSR1, before)


def test_another_thread_stops_what_runs_and_uses_nothing_else() -> None:
    came = threading.Event()
    failures: list[nh.HostError] = []

    def get(url: str) -> None:
        connection = opened(host, url, Consumer=lambda piece: came.set())
        try:
            connection.copyContentToByteArray(False)
        except nh.HostError as failure:
            failures.append(failure)
        connection.closeConnection()

    with nh.Host() as host, ScriptedServer(halting, silent) as halts:
        for runs in (came, halts.event("asked")):
            halts.event("asked").clear()
            thread = threading.Thread(target=get, args=(halts.url(),))
            thread.start()
            runs.wait()
            for call in (host.connection, host.class_names, host.close, lambda: host.proxy("http://a.example/")):
                with pytest.raises(netrove.UsageError) as refused:
                    call()
                assert refused.value.identifier == "NETROVE:client:InUse"
            assert not host.was_interrupted
            host.interrupt()
            thread.join()
            assert host.was_interrupted
            host.clear_interrupt()
            assert not host.was_interrupted
    assert [type(failure) for failure in failures] == [nh.Interrupted, nh.HostError]
    assert failures[1].identifier == "VANTIK:webservices:ConnectionFailed"


def test_a_request_to_stop_waits_for_the_next_request(server: AnsweringServer) -> None:
    with nh.Host() as host:
        host.interrupt()
        assert host.interrupt_pending
        host.clear_interrupt()
        assert not host.interrupt_pending
        connection = opened(host, server.url())
        host.interrupt_after(0)
        with pytest.raises(nh.HostError):
            connection.copyContentToByteArray(True)
        assert host.was_interrupted
        connection.closeConnection()
        host.interrupt_after(3600)
        host.interrupt_after(None)
        connection.openConnection()
        assert connection.ResponseCode == 200


def test_a_warning_that_is_raised_forgets_no_request_to_stop() -> None:
    def cut(peer: Peer) -> None:
        peer.head()
        peer.send(b"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf.")

    with nh.Host(failures=()) as host, ScriptedServer(cut, cut) as server, warnings.catch_warnings():
        warnings.simplefilter("error")
        connection = opened(host, server.url())
        host.interrupt()
        with pytest.raises(nh.HostError):
            connection.copyContentToByteArray(True)
        assert host.was_interrupted
        connection.closeConnection()
        connection.openConnection()
        with pytest.raises(nh.HostWarning, match="5 of 10 bytes"):
            connection.copyContentToByteArray(True)
        assert host.was_interrupted


def test_hosts_of_two_threads_run_at_once(server: AnsweringServer) -> None:
    statuses: list[float] = []

    def get() -> None:
        with nh.Host() as own:
            statuses.append(opened(own, server.url()).ResponseCode)

    with nh.Host() as host, ScriptedServer(silent) as waits:
        connection = opened(host, waits.url())
        held = threading.Thread(target=lambda: pytest.raises(nh.HostError, connection.copyContentToByteArray, True))
        held.start()
        waits.wait_for("asked")
        threads = [threading.Thread(target=get) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        assert statuses == [200.0] * 4 and held.is_alive()
        host.interrupt()
        held.join()


def test_objects_that_another_thread_drops_go_later() -> None:
    with nh.Host() as host, ScriptedServer(halting) as halts:
        kept: list[Any] = [host.connection()]
        thread = threading.Thread(
            target=lambda: pytest.raises(nh.HostError, opened(host, halts.url()).copyContentToByteArray, True)
        )
        arrays = _netrove.live_arrays()
        thread.start()
        halts.wait_for("asked")
        kept.clear()
        gc.collect()
        host.interrupt()
        thread.join()
        del thread
        gc.collect()
        assert _netrove.live_arrays() < arrays


def test_a_closed_host_and_its_objects_say_so(server: AnsweringServer) -> None:
    host = nh.Host()
    connection = opened(host, server.url())
    assert connection.ResponseCode == 200
    host.close()
    host.close()
    calls: list[Callable[[], object]] = [
        host.connection,
        host.class_names,
        host.clear_interrupt,
        lambda: connection.URL,
        connection.openConnection,
        lambda: setattr(connection, "URL", "http://a.example/"),
    ]
    for call in calls:
        with pytest.raises(netrove.UsageError, match="the host is closed"):
            call()
    host.interrupt()
    with nh.Host() as other, pytest.raises(netrove.UsageError, match="the host of this object is closed"):
        other.connection().Provider = connection


def test_a_host_is_not_closed_from_within(server: AnsweringServer) -> None:
    with nh.Host() as host:
        connection = opened(host, server.url("/bytes/10"), Consumer=lambda piece: host.close())
        with pytest.raises(netrove.UsageError, match="cannot be closed"):
            connection.copyContentToByteArray(False)


def test_after_a_fork_each_process_has_hosts_of_its_own(server: AnsweringServer) -> None:
    expect_quiet(
        f"""
import os, netrove
from netrove.host import Host
url = {server.url()!r}
def status(host):
    connection = host.connection()
    connection.URL = url
    connection.openConnection()
    code = connection.ResponseCode
    connection.closeConnection()
    return connection, code
host = Host()
connection, code = status(host)
child = os.fork()
if child == 0:
    for call in (host.connection, connection.openConnection, lambda: connection.URL, host.class_names):
        try:
            call()
        except netrove.UsageError as error:
            assert "fork" in str(error)
        else:
            raise AssertionError
    assert status(Host())[1] == 200
    host.close()
    del connection, host, call
    raise SystemExit(7)
assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7
assert status(host)[1] == 200
"""
    )


ENDS = {
    "a host": "connection = opened()",
    "an object without its host": "connection = opened(); del host",
    "a module that keeps one": "netrove.kept = opened(); sys.modules['x'] = netrove.kept",
    "a cycle": "class C:\n  def write(self, piece): pass\nc = C(); c.me = opened(); c.me.Consumer = c; del c",
    "an array": "kept = opened().copyContentToByteArray(True); view = memoryview(kept)",
    "a class": "class C: pass\nhost.define(C, 'test.C'); kept = host.create('test.C'); kept.host = host",
    "a callback that is running": "c = opened(); c.Consumer = lambda piece: sys.exit(); c.copyContentToByteArray(False)",
    "a failure": "try: opened().URl\nexcept AttributeError as e: kept = e",
    "a thread in an operation": """
def work():
    try: opened(halts).copyContentToByteArray(True)
    except HostError: pass
threading.Thread(target=work, daemon=True).start()
netrove.get(asked)""",
}


@pytest.mark.parametrize("what", ENDS)
def test_the_interpreter_ends_with(server: AnsweringServer, what: str) -> None:
    def asked(peer: Peer) -> None:
        halts.wait_for("asked")
        peer.head()
        peer.send(response())

    with ScriptedServer(halting) as halts, ScriptedServer(asked) as later:
        expect_quiet(
            f"""
import sys, threading, netrove
from netrove.host import Host, HostError
host, url, halts, asked = Host(), {server.url()!r}, {halts.url()!r}, {later.url()!r}
def opened(url=url):
    connection = host.connection()
    connection.URL = url
    connection.openConnection()
    return connection
{ENDS[what]}
"""
        )


def test_what_only_a_host_holds_goes_when_the_interpreter_ends() -> None:
    expect_quiet(
        """
import os
from netrove.host import Host
class Own:
    def __del__(self, write=os.write):
        write(1, b"gone\\n")
host = Host()
host.define(Own, "test.Own")
kept = host.wrap(Own())
""",
        "gone\n",
    )


class Refers:
    def write(self, piece: nh.Array) -> None:
        pass


def test_parts_may_go_in_any_order(server: AnsweringServer) -> None:
    for order in ((0, 1, 2, 3), (3, 2, 1, 0), (1, 3, 0, 2), (2, 0, 3, 1)):
        host = nh.Host()
        connection = opened(host, server.url("/bytes/100"), Consumer=Refers())
        parts: dict[int, Any] = {0: host, 1: connection, 2: connection.Consumer, 3: connection.openConnection}
        connection.copyContentToByteArray(False)
        del host, connection
        for number in order:
            del parts[number]
            gc.collect()


def test_a_host_s_end_breaks_what_holds_itself(server: AnsweringServer) -> None:
    consumer = Refers()
    gone = weakref.ref(consumer)
    with nh.Host() as host:
        consumer.connection = opened(host, server.url(), Consumer=consumer)  # type: ignore[attr-defined]
        del consumer
        gc.collect()
        assert gone() is not None
    gc.collect()
    assert gone() is None


class Counter:
    pass


def test_nothing_is_left_of_hosts(server: AnsweringServer, tmp_path: Path) -> None:
    def use() -> None:
        with nh.Host() as host:
            host.define(Counter, "test.Counter")
            host.wrap(host.create("test.Counter"))
            wrong = iter([1])
            for name, value in (
                ("Payload", numpy.arange(1000, dtype="u1")),
                ("Provider", [b"x"] * 3),
                ("Consumer", Refers()),
                ("ProgressReporter", lambda count: None),
                ("Provider", wrong),
            ):
                connection = opened(host, server.url(), **{name: value})
                if value is not wrong:
                    connection.copyContentToByteArray(name != "Consumer")
                else:
                    with pytest.raises(TypeError):
                        connection.copyContentToByteArray(True)
                connection.getResponseFields()
                connection.closeConnection()
            with pytest.raises(TypeError):
                connection.setFields([{"Name": "a", "Value": {1}}])
            with pytest.raises(AttributeError):
                _ = connection.URl

    expect_nothing_left(use)
