"""Providers, consumers and progress reporters of Python, and what they raise."""

from __future__ import annotations

import io
import json
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import numpy
import pytest

from netrove import host as nh
from servers import AnsweringServer


@pytest.fixture
def host() -> Iterator[nh.Host]:
    with nh.Host() as own:
        yield own


def opened(host: nh.Host, url: str, **properties: Any) -> Any:
    connection = host.connection()
    connection.URL = url
    connection.openConnection()
    for name, value in properties.items():
        setattr(connection, name, value)
    return connection


class Lines(nh.ContentProvider):
    """Counts, and goes back."""

    def __init__(self, last: int) -> None:
        self.last = last
        self.next = 0
        self.rewinds = 0
        self.wanted: list[int] = []

    def rewind(self) -> None:
        self.next = 0
        self.rewinds += 1

    def read(self, wanted: int) -> bytes:
        self.wanted.append(wanted)
        if self.next == self.last:
            return b""
        self.next += 1
        return b"%d\n" % self.next


class Plain:
    """Not derived from anything: only what is asked for."""

    def __init__(self) -> None:
        self.left = [b"plain"]

    def read(self, wanted: int) -> bytes | None:
        return self.left.pop() if self.left else None


@pytest.fixture
def file(tmp_path: Path) -> Iterator[Any]:
    (tmp_path / "x").write_bytes(b"skipped, of a file")
    with open(tmp_path / "x", "rb") as opened:
        opened.seek(9)
        yield opened


PROVIDERS: dict[str, tuple[Callable[[], Any], str]] = {
    "of the class": (lambda: Lines(3), "1\n2\n3\n"),
    "with read only": (Plain, "plain"),
    "in memory": (lambda: io.BytesIO(b"x" * 100_000), "x" * 100_000),
    "a generator": (lambda: (b"%d," % i for i in range(4)), "0,1,2,3,"),
    "with empty pieces": (lambda: [b"a", b"", b"b"], "ab"),
    "a piece larger than what was asked for": (lambda: [bytes([97]) * 300_000], "a" * 300_000),
    "arrays": (lambda: [numpy.frombuffer(b"abc", "u1"), nh.Array([100], "uint8")], "abcd"),
}


@pytest.mark.parametrize("kind", PROVIDERS)
def test_content_comes_from_a_provider(host: nh.Host, server: AnsweringServer, kind: str) -> None:
    make, content = PROVIDERS[kind]
    provider = make()
    connection = opened(host, server.url(), RequestMethod="PUT", Provider=provider)
    assert connection.Provider is provider
    answer = json.loads(connection.copyContentToByteArray(True).decode())
    assert answer["data"] == content and answer["headers"]["Transfer-Encoding"] == "chunked"
    connection.closeConnection()
    connection.Provider = None
    assert connection.Provider is None


def test_an_open_file_is_sent_from_where_it_stands(host: nh.Host, server: AnsweringServer, file: Any) -> None:
    connection = opened(host, server.url(), RequestMethod="PUT", Provider=file)
    assert json.loads(connection.copyContentToByteArray(True).decode())["data"] == "of a file"
    assert not file.closed


def test_a_provider_is_asked_for_what_the_property_says(host: nh.Host, server: AnsweringServer) -> None:
    lines = Lines(2)
    connection = opened(host, server.url(), RequestMethod="PUT", Provider=lines, ProviderBufferSize=1234)
    connection.copyContentToByteArray(True)
    assert lines.wanted == [1234] * 3
    assert lines.rewinds == 1


def test_content_that_is_sent_again_begins_anew(host: nh.Host, server: AnsweringServer, file: Any) -> None:
    lines = Lines(2)
    for provider, content in ((lines, "1\n2\n"), ([b"a", b"b"], "ab"), (file, "of a file")):
        connection = host.connection()
        connection.URL = server.url()
        connection.Provider = provider
        for _ in range(2):
            connection.openConnection()
            connection.RequestMethod = "PUT"
            assert json.loads(connection.copyContentToByteArray(True).decode())["data"] == content
            connection.closeConnection()
    assert lines.rewinds == 2


def test_an_iterator_cannot_be_sent_again(host: nh.Host, server: AnsweringServer) -> None:
    connection = opened(host, server.url(), RequestMethod="PUT", Provider=iter([b"once"]))
    connection.copyContentToByteArray(True)
    connection.closeConnection()
    connection.openConnection()
    connection.RequestMethod = "PUT"
    with pytest.raises(ValueError, match="cannot begin again"):
        connection.copyContentToByteArray(True)


class Pieces(nh.ContentConsumer):
    def __init__(self, largest: int | None = None, answer: Callable[[Any], Any] = lambda piece: None) -> None:
        self.largest = largest
        self.answer = answer
        self.pieces: list[nh.Array] = []
        self.told: list[str] = []

    def start(self) -> int | None:
        self.told.append("start")
        return self.largest

    def write(self, piece: nh.Array) -> Any:
        self.pieces.append(piece)
        return self.answer(piece)

    def close(self) -> None:
        self.told.append("close")

    def interrupted(self) -> None:
        self.told.append("interrupted")

    def saved_on_failure(self, saved: nh.Array) -> None:
        self.told.append("saved")

    def content(self) -> bytes:
        return b"".join(bytes(piece) for piece in self.pieces)


def expected(size: int) -> bytes:
    return bytes(i % 251 for i in range(size))


def test_pieces_that_are_kept_do_not_change(host: nh.Host, server: AnsweringServer) -> None:
    pieces = Pieces(largest=1000)
    connection = opened(host, server.url("/bytes/100000"), Consumer=pieces)
    assert connection.Consumer is pieces
    connection.copyContentToByteArray(False)
    assert pieces.content() == expected(100_000)
    assert max(len(piece) for piece in pieces.pieces) == 1000
    assert pieces.told == ["start", "close"]


@pytest.mark.parametrize("make", [lambda: io.BytesIO(), lambda: [].append])
def test_what_python_has_already_is_a_consumer(host: nh.Host, server: AnsweringServer, make: Callable[[], Any]) -> None:
    consumer = make()
    connection = opened(host, server.url("/bytes/100000"), Consumer=consumer)
    connection.copyContentToByteArray(False)
    parts = [consumer.getvalue()] if isinstance(consumer, io.BytesIO) else consumer.__self__
    assert b"".join(bytes(part) for part in parts) == expected(100_000)


def test_fewer_bytes_than_offered_end_the_content_quietly(host: nh.Host, server: AnsweringServer) -> None:
    pieces = Pieces(answer=lambda piece: len(piece) - 1)
    connection = opened(host, server.url("/bytes/100000"), Consumer=pieces)
    connection.copyContentToByteArray(False)
    assert len(pieces.pieces) == 1 and pieces.told == ["start", "close"]


def test_a_consumer_that_says_no_ends_the_transfer(host: nh.Host, server: AnsweringServer) -> None:
    pieces = Pieces(answer=lambda piece: False)
    connection = opened(host, server.url("/bytes/100000"), Consumer=pieces)
    with pytest.raises(nh.HostError) as failed:
        connection.copyContentToByteArray(False)
    assert failed.value.identifier == "VANTIK:webservices:OperationTerminatedByConsumer"
    assert "close" in pieces.told


class Update(nh.ProgressReporter):
    def __init__(self) -> None:
        self.counts: list[int] = []

    def update(self, count: int) -> None:
        self.counts.append(count)


def test_progress_is_told(host: nh.Host, server: AnsweringServer, tmp_path: Path) -> None:
    update = Update()
    counts: list[int] = []
    for reporter, seen in ((update, update.counts), (counts.append, counts)):
        connection = opened(host, server.url("/bytes/100000"), ProgressReporter=reporter)
        connection.copyContentToFile(str(tmp_path / "x"))
        connection.closeConnection()
        assert seen[-1] == 100_000 and seen == sorted(seen)


def test_a_reporter_that_says_no_stops_the_transfer(host: nh.Host, server: AnsweringServer) -> None:
    connection = opened(host, server.url("/bytes/100000"), ProgressReporter=lambda count: False)
    with pytest.raises(nh.Interrupted) as stopped:
        connection.copyContentToByteArray(True)
    assert stopped.value.by_program and stopped.value.kind == "interrupted"


class Own(Exception):
    pass


def raising(*values: Any) -> Any:
    raise Own("of a callable")


class Refusing:
    read = write = update = raising


@pytest.mark.parametrize("what", ["Provider", "Consumer", "ProgressReporter"])
def test_what_they_raise_arrives_unchanged_and_the_object_goes_on(
    host: nh.Host, server: AnsweringServer, what: str
) -> None:
    connection = opened(host, server.url("/bytes/100000"), **{what: Refusing()})
    if what == "Provider":
        connection.RequestMethod = "PUT"
    with pytest.raises(Own, match="of a callable") as raised:
        connection.copyContentToByteArray(what != "Consumer")
    assert any(entry.name == "raising" for entry in raised.traceback)
    connection.closeConnection()
    setattr(connection, what, None)
    connection.openConnection()
    assert len(connection.copyContentToByteArray(True)) == 100_000


@pytest.mark.parametrize(
    ("name", "value", "text"),
    [
        ("Provider", 3, "the property Provider: a int has no method 'read'"),
        ("Provider", "text", "the property Provider: a str has no method 'read'"),
        ("Consumer", b"x", "the property Consumer: a bytes has no method 'write'"),
        ("ProgressReporter", object(), "the property ProgressReporter: a object has no method 'update'"),
    ],
)
def test_what_has_not_the_method_is_refused(host: nh.Host, name: str, value: Any, text: str) -> None:
    with pytest.raises(TypeError) as refused:
        setattr(host.connection(), name, value)
    assert str(refused.value) == text


def test_a_provider_that_returns_text_is_refused(host: nh.Host, server: AnsweringServer) -> None:
    connection = opened(host, server.url(), RequestMethod="PUT", Provider=["text"])
    with pytest.raises(nh.HostTypeError, match="getDataInternal"):
        connection.copyContentToByteArray(True)


class Peeking(nh.ContentConsumer):
    """Asks its connection in the middle of a transfer."""

    def __init__(self) -> None:
        self.connection: Any = None
        self.seen: list[Any] = []

    def write(self, piece: nh.Array) -> None:
        self.seen.append(self.connection.getResponseField("Content-Length"))
        with pytest.raises(nh.HostError) as refused:
            self.connection.closeConnection()
        self.seen.append(refused.value.identifier)


def test_a_callable_may_ask_but_not_act(host: nh.Host, server: AnsweringServer) -> None:
    peeking = Peeking()
    connection = peeking.connection = opened(host, server.url("/bytes/10"), Consumer=peeking)
    connection.copyContentToByteArray(False)
    assert peeking.seen == ["10", "VANTIK:webservices:InternalError"]


class Source:
    """Derived from a class of the host, with the methods that the client's class calls."""

    def __init__(self) -> None:
        self.left = [b"of a class"]

    @nh.method()
    def startInternal(self) -> None:
        pass

    @nh.method(inputs=["uint64 scalar"], outputs=["uint8 vector"])
    def getDataInternal(self, wanted: int) -> bytes:
        return self.left.pop() if self.left else b""


def test_a_class_derived_from_the_host_s_is_a_provider(host: nh.Host, server: AnsweringServer) -> None:
    host.define(Source, "test.Source", bases=["vantik.net.http.io.ContentProvider"])
    source = Source()
    assert host.wrap(source).is_a("vantik.net.http.io.ContentProvider")
    connection = opened(host, server.url(), RequestMethod="PUT", Provider=source)
    assert connection.Provider is source
    connection.Provider = host.wrap(source)
    assert connection.Provider is source
    assert json.loads(connection.copyContentToByteArray(True).decode())["data"] == "of a class"
