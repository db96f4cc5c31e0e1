"""What comes back."""

from __future__ import annotations

import json
from datetime import timedelta

import pytest

import netrove
from servers import AnsweringServer, ScriptedServer, answering, response


def test_all_parts_of_a_response() -> None:
    bytes_sent = response("café".encode("latin-1"), "Content-Type: text/plain; charset=iso-8859-1", status="203 Fine")
    with ScriptedServer(answering(bytes_sent)) as server:
        got = netrove.get(server.url("/page"))
        assert (got.status_code, got.status, got.reason, got.reason_phrase) == (203, 203, "Fine", "Fine")
        assert (got.url, got.http_version) == (server.url("/page"), "HTTP/1.1")
        assert (got.request.method, got.request.url) == ("GET", server.url("/page"))
    assert (got.text, got.encoding) == ("café", "iso-8859-1")
    assert got.content == b"caf\xe9"
    assert got.ok and got.is_success and got
    assert (got.received, got.attempts, got.history) == (4, 1, [])
    assert timedelta() < got.elapsed < timedelta(minutes=1)
    assert repr(got) == "<Response [203 Fine]>"


def test_headers_have_no_case_and_all_values(server: AnsweringServer, client: netrove.Client) -> None:
    got = client.get(server.url("/repeated"))
    assert got.headers["x-A"] == "1, 2"
    assert got.headers.get_list("X-a") == ["1", "2"]
    assert [name for name in got.headers].count("X-A") == 1
    assert ("x-a", "2") in got.headers.multi_items()
    assert "X-Other" not in got.headers
    assert got.headers.get("X-Other", "none") == "none"
    with pytest.raises(KeyError):
        got.headers["X-Other"]
    assert got.cookies == {"a": "1", "b": "2"}


def test_headers_can_be_changed_and_compared() -> None:
    headers = netrove.Headers({"A": "1", "B": "2"})
    headers["a"] = "3"
    del headers["b"]
    headers.add("A", "4")
    assert headers == {"a": "3, 4"}
    assert len(headers) == 1
    with pytest.raises(KeyError):
        del headers["b"]


def test_a_value_that_is_not_utf8_arrives() -> None:
    with ScriptedServer(answering(b"HTTP/1.1 200 OK\r\nX-A: caf\xe9\r\nContent-Length: 0\r\n\r\n")) as server:
        assert netrove.get(server.url()).headers["X-A"].startswith("caf")


@pytest.mark.parametrize("size", [0, 1, 65536, 65537, 3_000_000])
def test_content_is_bytes_of_any_size(server: AnsweringServer, client: netrove.Client, size: int) -> None:
    got = client.get(server.url(f"/bytes/{size}"))
    assert type(got.content) is bytes
    assert got.content == bytes(i % 251 for i in range(size))
    assert got.content is got.content


@pytest.mark.parametrize("pieces", [1, 100])
def test_content_without_a_length_is_collected_too(client: netrove.Client, pieces: int) -> None:
    chunk = b"5000\r\n" + b"y" * 0x5000 + b"\r\n"
    answer = b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunk * pieces + b"0\r\n\r\n"
    with ScriptedServer(answering(answer)) as server:
        assert client.get(server.url()).content == b"y" * 0x5000 * pieces


def test_an_attempt_begins_with_empty_content() -> None:
    def half(peer: object) -> None:
        peer.head()  # type: ignore[attr-defined]
        peer.send(b"HTTP/1.1 200 OK\r\nContent-Length: 200000\r\n\r\n" + b"a" * 100_000)  # type: ignore[attr-defined]

    with ScriptedServer(half, answering(response(b"b" * 200_000))) as server:
        got = netrove.get(server.url(), retry=netrove.Retry(attempts=2, wait=0.001))
    assert (got.content, got.attempts) == (b"b" * 200_000, 2)


def test_an_announced_length_takes_no_memory(client: netrove.Client) -> None:
    answer = b"HTTP/1.1 200 OK\r\nContent-Length: 4611686018427387904\r\n\r\nx"
    with ScriptedServer(lambda peer: (peer.head(), peer.send(answer))) as server:
        with pytest.raises(netrove.ContentError) as caught:
            client.get(server.url(), limits=netrove.Limits(memory=2**63))
    assert caught.value.response is not None
    assert caught.value.response.content == b"x"


def test_text_by_another_charset(server: AnsweringServer, client: netrove.Client) -> None:
    got = client.get(server.url("/latin1"))
    assert got.text == "Été"
    got.encoding = "utf-8"
    assert got.text == "\ufffdt\ufffd"


@pytest.mark.parametrize("content", ['{"a": "é"}', b'\xef\xbb\xbf{"a": "\xc3\xa9"}', '{"a": "é"}'.encode("utf-16")])
def test_json_is_read_in_any_coding(client: netrove.Client, content: bytes) -> None:
    with ScriptedServer(answering(response(content))) as server:
        assert client.get(server.url()).json() == {"a": "é"}


def test_what_is_not_json_is_refused(client: netrove.Client) -> None:
    with ScriptedServer(answering(response("{"))) as server:
        with pytest.raises(netrove.JSONDecodeError) as caught:
            client.get(server.url()).json()
    assert isinstance(caught.value, json.JSONDecodeError)


def test_content_in_pieces(client: netrove.Client) -> None:
    text = "one\r\ntwo\nthree\rfour é\n\nlast"
    with ScriptedServer(answering(response(text))) as server:
        got = client.get(server.url())
    assert list(got.iter_bytes(10)) == [text.encode()[i : i + 10] for i in range(0, len(text.encode()), 10)]
    assert list(got.iter_content(1000)) == [text.encode()]
    assert "".join(got.iter_text(2)) == text
    assert list(got.iter_lines()) == ["one", "two", "three", "four é", "", "last"]
    with pytest.raises(ValueError):
        got.iter_bytes(0).__next__()


def test_lines_are_whole_where_pieces_of_64_kib_end_within_them(client: netrove.Client) -> None:
    lines = ["x" * 65535, "é" * 100000, "", "last"]
    with ScriptedServer(answering(response("\r\n".join(lines)))) as server:
        assert list(client.get(server.url()).iter_lines()) == lines
