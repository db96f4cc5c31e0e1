"""Servers on loopback for the tests: one that plays a script, and one that answers by path. No test waits for a time to
pass: both wait for events. The end of a server is that of its threads, so that none of them meets the next test."""

from __future__ import annotations

import gzip
import http.server
import json
import socket
import socketserver
import threading
import urllib.parse
from collections.abc import Callable, Sequence
from typing import Any

_LONG = 60  # seconds, after which a test that would hang fails


def response(content: bytes | str = b"", *fields: str, status: str = "200 OK") -> bytes:
    """A whole response with its length."""
    body = content.encode() if isinstance(content, str) else content
    head = "".join(f"{line}\r\n" for line in (f"HTTP/1.1 {status}", f"Content-Length: {len(body)}", *fields))
    return head.encode() + b"\r\n" + body


class Peer:
    """One connection of a ScriptedServer, for its script."""

    def __init__(self, server: ScriptedServer, connection: socket.socket) -> None:
        self._server = server
        self._socket = connection
        self._waiting = b""

    def head(self) -> str:
        """Reads a request's head; an empty one if the client has gone."""
        while b"\r\n\r\n" not in self._waiting:
            if not self._receive():
                return ""
        head, _, self._waiting = self._waiting.partition(b"\r\n\r\n")
        self._server.heads.append(head.decode())
        return head.decode()

    def body(self, length: int) -> bytes:
        while len(self._waiting) < length and self._receive():
            pass
        body, self._waiting = self._waiting[:length], self._waiting[length:]
        return body

    def send(self, data: bytes) -> None:
        self._socket.sendall(data)

    def signal(self, event: str) -> None:
        """Tells the test that something has happened."""
        self._server.event(event).set()

    def wait(self, event: str) -> None:
        """Waits until the test raises the event, or is over."""
        assert self._server.event(event).wait(_LONG), event

    def until_client_goes(self) -> None:
        try:
            while self._receive():
                self._waiting = b""
        except ConnectionError:
            pass
        self.signal("gone")

    def _receive(self) -> bool:
        data = self._socket.recv(65536)
        self._waiting += data
        return bool(data)


class ScriptedServer:
    """Plays one script for each connection, in the order in which they come in."""

    def __init__(self, *scripts: Callable[[Peer], None]) -> None:
        self.heads: list[str] = []
        self._events: dict[str, threading.Event] = {}
        self._guard = threading.RLock()  # for all that follows, also for a handler of signals
        self._over = False
        self._open = [socket.create_server(("127.0.0.1", 0))]
        self._threads: list[threading.Thread] = []
        self._address = self._open[0].getsockname()
        self._start(self._serve, list(scripts))

    def url(self, path: str = "/") -> str:
        return f"http://127.0.0.1:{self._address[1]}{path}"

    def event(self, name: str) -> threading.Event:
        with self._guard:
            event = self._events.setdefault(name, threading.Event())
            if self._over:
                event.set()
            return event

    def wait_for(self, name: str) -> None:
        assert self.event(name).wait(_LONG), f"'{name}' did not happen"

    def _start(self, run: Callable[..., None], *arguments: Any) -> None:
        thread = threading.Thread(target=run, args=arguments, daemon=True)
        self._threads.append(thread)
        thread.start()

    def _serve(self, scripts: list[Callable[[Peer], None]]) -> None:
        for script in scripts:
            try:
                connection, _ = self._open[0].accept()
            except OSError:
                return
            with self._guard:
                if self._over:
                    connection.close()
                    return
                self._open.append(connection)
                self._start(self._play, script, connection)

    def _play(self, script: Callable[[Peer], None], connection: socket.socket) -> None:
        with connection:
            try:
                script(Peer(self, connection))
            except OSError:
                pass  # the client has gone, or the test is over

    def __enter__(self) -> ScriptedServer:
        return self

    def __exit__(self, *error: object) -> None:
        with self._guard:
            self._over = True
            for event in self._events.values():
                event.set()
            for one in self._open:
                shut_down(one)
        for thread in self._threads:
            thread.join()
        self._open[0].close()


def wait_for_a_signal() -> None:
    """For the main thread, whose handlers raise. One wait without an end would miss a signal that comes just before."""
    while True:
        threading.Event().wait(1)


def shut_down(one: socket.socket) -> None:
    """Ends what waits for it."""
    try:
        one.shutdown(socket.SHUT_RDWR)
    except OSError:
        pass  # it has been closed


def answering(*answers: bytes) -> Callable[[Peer], None]:
    """Sends one answer for each request that has no content, then waits for the client to go."""

    def play(peer: Peer) -> None:
        for answer in answers:
            if not peer.head():
                return
            peer.send(answer)
        peer.until_client_goes()

    return play


def silent(peer: Peer) -> None:
    """Says nothing: not before the head."""
    peer.head()
    peer.signal("asked")
    peer.until_client_goes()


def halting(peer: Peer) -> None:
    """Sends half of the content and no more."""
    peer.head()
    peer.send(b"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf.")
    peer.signal("asked")
    peer.until_client_goes()


def late(peer: Peer) -> None:
    """Answers after the event "handled"."""
    peer.head()
    peer.signal("asked")
    peer.wait("handled")
    peer.send(response("late"))
    peer.until_client_goes()


def taking(peer: Peer) -> None:
    """Asks for the content and reads none of it."""
    peer.head()
    peer.signal("asked")
    peer.wait("never")


class Handler(http.server.BaseHTTPRequestHandler):
    """What handlers have in common."""

    protocol_version = "HTTP/1.1"
    disable_nagle_algorithm = True

    def log_message(self, *arguments: Any) -> None:
        pass

    def content(self) -> bytes:
        if self.headers.get("Transfer-Encoding", "") == "chunked":
            content = b""
            while size := int(self.rfile.readline(), 16):
                content += self.rfile.read(size)
                self.rfile.readline()
            self.rfile.readline()
            return content
        return self.rfile.read(int(self.headers.get("Content-Length", 0)))

    def answer(self, content: bytes, fields: Sequence[tuple[str, str]] = (), status: int = 200) -> None:
        self.send_response(status)
        for name, value in fields:
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(content)))
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(content)


class _EchoingHandler(Handler):
    """Paths say what is answered, in the manner of httpbin."""

    def _echo(self) -> None:
        content = self.content()
        path, _, query = self.path.partition("?")
        sent = {
            "method": self.command,
            "path": path,
            "args": dict(urllib.parse.parse_qsl(query)),
            "headers": dict(self.headers),
            "data": content.decode("latin-1"),
            "form": urllib.parse.parse_qsl(content.decode("latin-1"))
            if self.headers.get("Content-Type") == "application/x-www-form-urlencoded"
            else [],
        }
        self.answer(json.dumps(sent).encode(), [("Content-Type", "application/json")])

    def _play(self) -> None:
        kind, _, argument = self.path[1:].partition("?")[0].partition("/")
        if kind == "status":
            self.content()
            self.answer(b"said", status=int(argument))
        elif kind == "redirect":
            left = int(argument)
            self.content()
            self.answer(b"", [("Location", f"/redirect/{left - 1}" if left > 1 else "/echo")], 302)
        elif kind == "bytes":
            self.answer(bytes(i % 251 for i in range(int(argument))))
        elif kind == "large":
            size = int(argument)
            self.send_response(200)
            self.send_header("Content-Length", str(size))
            self.end_headers()
            while size > 0:
                piece = b"x" * min(size, 1 << 20)
                self.wfile.write(piece)
                size -= len(piece)
        elif kind == "gzip":
            self.answer(gzip.compress(b"compressed"), [("Content-Encoding", "gzip")])
        elif kind == "latin1":
            self.answer("Été".encode("latin-1"), [("Content-Type", "text/plain; charset=iso-8859-1")])
        elif kind == "basic":
            if self.headers.get("Authorization") == "Basic dXNlcjpwYXNz":
                self.answer(b"welcome")
            else:
                self.answer(b"", [("WWW-Authenticate", 'Basic realm="x"')], 401)
        elif kind == "repeated":
            self.answer(b"", [("X-A", "1"), ("x-a", "2"), ("Set-Cookie", "a=1; Path=/"), ("Set-Cookie", "b=2")])
        elif kind == "set":
            pairs = urllib.parse.parse_qsl(self.path.partition("?")[2], encoding="latin-1")
            fields = [("Set-Cookie", f"{name}={value}" + ("" if ";" in value else "; Path=/")) for name, value in pairs]
            if argument.isdigit():
                self.answer(b"", fields, int(argument))
            else:
                self.answer(b"", [*fields, ("Location", "/" + argument)], 302 if argument else 200)
        else:
            self._echo()

    do_GET = do_HEAD = do_POST = do_PUT = do_PATCH = do_DELETE = do_OPTIONS = _play


class EndingServer(socketserver.ThreadingMixIn, http.server.HTTPServer):
    """Serves within a block, at whose end it and its threads are gone."""

    request_queue_size = 128

    def __init__(self, handler: type[Handler]) -> None:
        super().__init__(("127.0.0.1", 0), handler)
        self._open: set[socket.socket] = set()
        self._guard = threading.Lock()
        self._thread = threading.Thread(target=self.serve_forever, kwargs={"poll_interval": 0.05})
        self._thread.start()

    def get_request(self) -> tuple[socket.socket, Any]:
        connection, address = super().get_request()
        with self._guard:
            self._open.add(connection)
        return connection, address

    def shutdown_request(self, request: Any) -> None:
        with self._guard:
            self._open.remove(request)
        super().shutdown_request(request)

    def handle_error(self, request: Any, client_address: Any) -> None:
        pass  # the client has gone

    def server_close(self) -> None:
        self.shutdown()
        self._thread.join()
        with self._guard:
            for connection in self._open:
                shut_down(connection)
        super().server_close()  # waits for the threads of the connections

    def url(self, path: str = "") -> str:
        return f"http://127.0.0.1:{self.server_address[1]}{path}"


class AnsweringServer(EndingServer):
    """Answers by path: /echo, /status/N, /redirect/N, /bytes/N, /large/N, /gzip, /latin1, /basic, /repeated.
    /set?NAME=VALUE, /set/STATUS?... and /set/PATH?..., which is a redirect, set cookies."""

    def __init__(self) -> None:
        super().__init__(_EchoingHandler)

    def url(self, path: str = "/echo") -> str:
        return super().url(path)
