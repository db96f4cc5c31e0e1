"""Ctrl-C in every phase of a call, other signals, and exceptions of their handlers. All limits are a minute or more, so
a call that ends has been ended by the signal."""

from __future__ import annotations

import os
import signal
import socket
import subprocess
import sys
import threading
from collections.abc import Callable, Iterator
from contextlib import ExitStack, contextmanager
from pathlib import Path
from typing import Any

import pytest

import netrove
from servers import AnsweringServer, Peer, ScriptedServer, halting, late, response, silent, taking, wait_for_a_signal

LIMITS = netrove.Limits(connect=600, response=600, data=600)
LARGE = bytes(50_000_000)  # more than any buffer on the way


@contextmanager
def signalled_when(server: ScriptedServer, event: str, number: int = signal.SIGINT) -> Iterator[None]:
    """The signal comes to this process once the server has seen the event."""

    def send() -> None:
        server.wait_for(event)
        os.kill(os.getpid(), number)

    thread = threading.Thread(target=send)
    thread.start()
    try:
        yield
    finally:
        thread.join()


def busy(peer: Peer) -> None:
    peer.head()
    peer.send(response("", "Retry-After: 3600", "Connection: close", status="503 Busy"))
    peer.until_client_goes()


def plenty(peer: Peer) -> None:
    peer.head()
    peer.send(response(bytes(10_000)))
    peer.signal("sent")
    peer.until_client_goes()


def handshake(peer: Peer) -> None:
    peer.body(1)
    peer.signal("asked")
    peer.until_client_goes()


def waiting() -> Iterator[bytes]:
    yield b"x"
    wait_for_a_signal()


PHASES: dict[str, tuple[Callable[[Peer], None], str, Callable[[netrove.Client, str, Path], Any]]] = {
    "handshake": (handshake, "asked", lambda c, url, _: c.get(url.replace("http:", "https:"))),
    "head": (silent, "asked", lambda c, url, _: c.get(url)),
    "content": (halting, "asked", lambda c, url, _: c.get(url)),
    "file": (halting, "asked", lambda c, url, folder: c.save(url, folder / "x")),
    "resumable file": (halting, "asked", lambda c, url, folder: c.save(url, folder / "y", resume=True)),
    "upload": (taking, "asked", lambda c, url, _: c.put(url, content=LARGE)),
    "generator": (silent, "asked", lambda c, url, _: c.put(url, content=waiting())),
    "wait": (busy, "gone", lambda c, url, _: c.get(url, retry=netrove.Retry(attempts=2, longest_wait=4000))),
    "rate": (plenty, "sent", lambda c, url, _: c.get(url, rate=netrove.RateLimit(total=1))),
    "stream head": (silent, "asked", lambda c, url, _: c.stream(url)),
    "stream": (halting, "asked", lambda c, url, _: list(c.stream(url))),
}


@pytest.mark.parametrize("phase", PHASES)
def test_an_interrupt_ends_every_phase_and_the_client_goes_on(
    server: AnsweringServer, tmp_path: Path, phase: str
) -> None:
    script, event, call = PHASES[phase]
    with netrove.Client(limits=LIMITS, retry=1, proxy=False) as client:
        for _ in range(19):
            with ScriptedServer(script) as peer, signalled_when(peer, event):
                with pytest.raises(KeyboardInterrupt):
                    call(client, peer.url(), tmp_path)
            assert client.get(server.url("/bytes/3")).content == b"\0\1\2"
    assert [name for name in os.listdir(tmp_path) if name not in ("y.part", "y.part.json")] == []


@contextmanager
def signalled_in_connect() -> Iterator[str]:
    """A URL that nobody answers; the signal comes once somebody connects to it."""
    # A queue of length 0 still takes one connection; the second filler stays unanswered already.
    with ExitStack() as open_sockets:
        listening = open_sockets.enter_context(socket.socket())
        listening.bind(("127.0.0.1", 0))
        listening.listen(0)
        address = listening.getsockname()
        for _ in range(2):
            filler = open_sockets.enter_context(socket.socket())
            filler.setblocking(False)
            filler.connect_ex(address)
        waiting = f":{address[1]:04X} 02 "  # SYN_SENT

        def send() -> None:
            while Path("/proc/net/tcp").read_text().count(waiting) < 2:
                pass
            os.kill(os.getpid(), signal.SIGINT)

        thread = threading.Thread(target=send)
        thread.start()
        try:
            yield f"http://127.0.0.1:{address[1]}/"
        finally:
            thread.join()


def test_an_interrupt_ends_a_connect_that_nobody_answers(server: AnsweringServer) -> None:
    with netrove.Client(limits=LIMITS, retry=1, proxy=False) as client:
        with signalled_in_connect() as url, pytest.raises(KeyboardInterrupt):
            client.get(url)
        assert client.get(server.url()).ok


def interrupt_each_look_up(program: str) -> None:
    """Runs a program whose look-ups never end, and interrupts each of them, of which it has to tell."""
    preloaded = [os.environ.get("LD_PRELOAD", ""), os.environ["NETROVE_HELD_LOOKUP"]]  # after that of a sanitizer
    environment = {**os.environ, "LD_PRELOAD": " ".join(preloaded)}
    with subprocess.Popen([sys.executable, "-c", program], stdout=subprocess.PIPE, text=True, env=environment) as run:
        assert run.stdout is not None
        lines = []
        for line in run.stdout:
            lines.append(line)
            if line == "looking up\n":
                run.send_signal(signal.SIGINT)
        assert run.wait() == 0
    assert [line for line in lines if line != "looking up\n"] == ["interrupted\n"] * 3


def test_an_interrupt_ends_a_look_up_that_does_not_end(server: AnsweringServer) -> None:
    interrupt_each_look_up(
        f"""
import netrove
client = netrove.Client(limits=netrove.Limits(connect=600), proxy=False)
for _ in range(3):
    try:
        client.get("http://held.test/")
    except KeyboardInterrupt:
        print("interrupted", flush=True)
    assert client.get({server.url()!r}).ok
"""
    )


class Own(Exception):
    pass


@pytest.fixture
def handled() -> Iterator[Callable[[Callable[[], None]], None]]:
    before = signal.getsignal(signal.SIGUSR1)

    def handle(by: Callable[[], None]) -> None:
        signal.signal(signal.SIGUSR1, lambda number, frame: by())

    yield handle
    signal.signal(signal.SIGUSR1, before)


def test_what_a_handler_raises_ends_the_call(handled: Any, client: netrove.Client) -> None:
    def refuse() -> None:
        raise Own("of the handler")

    handled(refuse)
    with ScriptedServer(halting) as peer, signalled_when(peer, "asked", signal.SIGUSR1):
        with pytest.raises(Own, match="of the handler"):
            client.get(peer.url(), limits=LIMITS)


def test_a_handler_that_raises_nothing_lets_the_call_go_on(handled: Any, client: netrove.Client) -> None:
    with ScriptedServer(late, late) as peer:
        for call in (lambda: client.get(peer.url()).content, lambda: b"".join(client.stream(peer.url()))):
            peer.event("asked").clear()
            peer.event("handled").clear()
            handled(lambda: peer.event("handled").set())
            with signalled_when(peer, "asked", signal.SIGUSR1):
                assert call() == b"late"
            client.close()
            client = netrove.Client(proxy=False)


def test_whoever_else_waits_for_signals_gets_them(handled: Any, client: netrove.Client) -> None:
    def stop() -> None:
        raise Own

    handled(stop)
    ours, theirs = socket.socketpair()
    with ours, theirs:
        theirs.setblocking(False)
        before = signal.set_wakeup_fd(theirs.fileno())
        try:
            with ScriptedServer(halting) as peer, signalled_when(peer, "asked", signal.SIGUSR1):
                with pytest.raises(Own):
                    client.get(peer.url(), limits=LIMITS)
        finally:
            assert signal.set_wakeup_fd(before) == theirs.fileno()
        assert ours.recv(10) == bytes([signal.SIGUSR1])


def test_a_signal_in_a_callback_is_raised_there(client: netrove.Client, server: AnsweringServer) -> None:
    def progress(now: netrove.Progress) -> None:
        signal.raise_signal(signal.SIGINT)

    with pytest.raises(KeyboardInterrupt):
        client.get(server.url("/large/3000000"), progress=progress)
    assert client.get(server.url()).ok
