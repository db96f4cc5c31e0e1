"""Content of requests of every kind."""

from __future__ import annotations

import array
import io
import tempfile
from collections.abc import Callable, Iterator
from email.message import Message
from email.parser import BytesParser
from pathlib import Path
from typing import Any

import numpy
import pytest

import netrove
from servers import AnsweringServer

LARGE = bytes(range(256)) * 1000  # more than is copied


def pieces() -> Iterator[bytes | str]:
    yield b"one "
    yield b""
    yield "twö "
    yield bytearray(b"three")


@pytest.mark.parametrize(
    ("content", "sent"),
    [
        (b"bytes", b"bytes"),
        (LARGE, LARGE),
        (bytearray(b"array"), b"array"),
        (memoryview(LARGE)[5:-5], LARGE[5:-5]),
        (array.array("H", [1, 2]), b"\x01\x00\x02\x00"),
        (numpy.arange(100_000, dtype="<i4"), numpy.arange(100_000, dtype="<i4").tobytes()),
        ("té", "té".encode()),
        (b"", b""),
        (io.BytesIO(LARGE), LARGE),
        (io.StringIO("té"), "té".encode()),
        ([b"a", b"b"], b"ab"),
        (pieces, "one twö three".encode()),
        (pieces(), "one twö three".encode()),
    ],
    ids=lambda value: type(value).__name__,
)
def test_what_is_sent_as_it_is(server: AnsweringServer, client: netrove.Client, content: Any, sent: bytes) -> None:
    for name in ("content", "data"):
        if isinstance(content, Iterator) and name == "data":
            continue  # sent
        if isinstance(content, (io.BytesIO, io.StringIO)):
            content.seek(0)
        assert client.put(server.url(), **{name: content}).json()["data"].encode("latin-1") == sent


def test_a_file_is_sent_from_where_it_stands(server: AnsweringServer, client: netrove.Client, tmp_path: Path) -> None:
    path = tmp_path / "été.txt"
    path.write_bytes(LARGE)
    with path.open("rb") as file:
        file.seek(5)
        sent = client.post(server.url(), content=file).json()
        assert sent["headers"]["Content-Length"] == str(len(LARGE) - 5)
        assert sent["data"].encode("latin-1") == LARGE[5:]
    sent = client.post(server.url(), content=path).json()
    assert sent["data"].encode("latin-1") == LARGE
    assert sent["headers"]["Content-Type"] == "text/plain"


def test_a_large_buffer_is_not_copied(server: AnsweringServer, client: netrove.Client) -> None:
    content = bytearray(LARGE)
    refused = []

    def progress(now: netrove.Progress) -> None:
        try:
            content.append(0)  # nobody may move it while it is lent
        except BufferError:
            refused.append(now)

    client.put(server.url(), content=content, progress=progress)
    assert refused
    content.append(0)
    assert len(content) == len(LARGE) + 1


def test_an_array_in_pieces_is_refused(server: AnsweringServer, client: netrove.Client) -> None:
    with pytest.raises((ValueError, BufferError)):
        client.put(server.url(), content=numpy.zeros((10, 10))[:, 1])


def test_json(server: AnsweringServer, client: netrove.Client) -> None:
    sent = client.post(server.url(), json={"name": "é", "list": [1, None]}).json()
    assert sent["data"].encode("latin-1") == '{"name":"é","list":[1,null]}'.encode()
    assert sent["headers"]["Content-Type"] == "application/json"
    assert client.post(server.url(), json=[]).json()["data"] == "[]"


@pytest.mark.parametrize("name", ["form", "data"])
def test_forms(server: AnsweringServer, client: netrove.Client, name: str) -> None:
    for form in ({"title": "Été", "n": [1, 2], "none": None, "yes": True}, [("title", "Été"), ("n", 1), ("n", 2), ("yes", True)]):
        sent = client.post(server.url(), **{name: form}).json()
        assert sent["form"] == [["title", "Été"], ["n", "1"], ["n", "2"], ["yes", "true"]]


def parts_of(sent: Any) -> dict[str, Message]:
    head = f"Content-Type: {sent['headers']['Content-Type']}\r\n\r\n".encode()
    message = BytesParser().parsebytes(head + sent["data"].encode("latin-1"))
    assert message.is_multipart()
    return {str(part.get_param("name", header="Content-Disposition")): part for part in message.get_payload()}


def test_files_of_a_form(server: AnsweringServer, client: netrove.Client, tmp_path: Path) -> None:
    path = tmp_path / "photo.jpg"
    path.write_bytes(b"picture")
    with path.open("rb") as file:
        files = {
            "open": file,
            "path": path,
            "named": ("n.txt", "text"),
            "typed": ("t", b"\x00", "application/x-own"),
            "bare": b"bytes",
        }
        for name in ("form", "data"):
            file.seek(0)
            sent = client.post(server.url(), files=files, **{name: {"title": "x"}}).json()
            parts = parts_of(sent)
            found = {name: (p.get_filename(), p.get_content_type(), p.get_payload(decode=True)) for name, p in parts.items()}
            assert found == {
                "title": (None, "text/plain", b"x"),
                "open": ("photo.jpg", "image/jpeg", b"picture"),
                "path": ("photo.jpg", "image/jpeg", b"picture"),
                "named": ("n.txt", "text/plain", b"text"),
                "typed": ("t", "application/x-own", b"\x00"),
                "bare": ("bare", "application/octet-stream", b"bytes"),
            }
            assert int(sent["headers"]["Content-Length"]) > 0


class Own(Exception):
    pass


def failing() -> Iterator[bytes]:
    yield b"x"
    raise Own("of the generator")


def test_what_a_generator_raises_arrives_unchanged(server: AnsweringServer, client: netrove.Client) -> None:
    with pytest.raises(Own, match="of the generator") as caught:
        client.post(server.url(), content=failing())
    assert caught.traceback[-1].name == "failing"
    assert client.get(server.url()).status_code == 200, "the client can be used further"


def test_pieces_that_are_no_bytes_are_refused(server: AnsweringServer, client: netrove.Client) -> None:
    with pytest.raises(TypeError, match="bytes-like"):
        client.post(server.url(), content=iter([7]))


@pytest.mark.parametrize(
    ("make", "again"),
    [
        (lambda: LARGE, True),
        (lambda: io.BytesIO(LARGE), True),
        (lambda: [LARGE], True),
        (lambda: lambda: iter([LARGE]), True),
        (lambda: iter([LARGE]), False),
    ],
    ids=["bytes", "file", "list", "callable", "iterator"],
)
def test_content_is_sent_again_if_it_can_be(server: AnsweringServer, make: Callable[[], Any], again: bool) -> None:
    with netrove.Client(proxy=False, retry=netrove.Retry(attempts=2, wait=0.001)) as client:
        got = client.put(server.url("/status/503"), content=make())
        assert got.attempts == (2 if again else 1)


def test_a_temporary_file_has_no_name_that_says_anything(server: AnsweringServer, client: netrove.Client) -> None:
    with tempfile.TemporaryFile() as file:
        file.write(b"content")
        file.seek(0)
        parts = parts_of(client.post(server.url(), files={"f": file}).json())
    assert parts["f"].get_filename() == "f"
