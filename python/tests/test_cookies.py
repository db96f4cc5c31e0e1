"""Cookies that a client keeps."""

from __future__ import annotations

import asyncio
from collections.abc import Callable
from http.cookiejar import CookieJar
from pathlib import Path

import pytest

import netrove
from servers import AnsweringServer, Peer, ScriptedServer


def sent(response: netrove.Response) -> list[str]:
    """The cookies of a request that was echoed."""
    field = response.json()["headers"].get("Cookie", "")
    return sorted(cookie for cookie in field.split("; ") if cookie)


CALLS: dict[str, Callable[[netrove.Client, str, Path], object]] = {
    "get": lambda client, url, folder: client.get(url),
    "save": lambda client, url, folder: client.save(url, folder / "file"),
    "stream": lambda client, url, folder: client.stream(url).read(),
    "get_all": lambda client, url, folder: list(client.get_all([url])),
    "save_all": lambda client, url, folder: list(client.save_all([(url, folder / "file")])),
    "aget": lambda client, url, folder: asyncio.run(client.aget(url)),
    "asave": lambda client, url, folder: asyncio.run(client.asave(url, folder / "file")),
}


@pytest.mark.parametrize("call", CALLS)
def test_every_call_keeps_what_its_response_and_its_redirects_set(
    server: AnsweringServer, client: netrove.Client, tmp_path: Path, call: str
) -> None:
    CALLS[call](client, server.url("/set/set?a=1"), tmp_path)
    CALLS[call](client, server.url("/set?b=2"), tmp_path)
    assert sent(client.get(server.url())) == ["a=1", "b=2"]
    assert dict(client.cookies) == {"a": "1", "b": "2"}


def test_a_failed_call_keeps_them_too(server: AnsweringServer, client: netrove.Client) -> None:
    with pytest.raises(netrove.HTTPStatusError):
        client.get(server.url("/set/404?a=1"), check_status=True)
    assert client.get(server.url("/set/404?b=2")).status_code == 404
    assert sent(client.get(server.url())) == ["a=1", "b=2"]


def test_what_a_redirect_sets_is_sent_once_and_in_its_latest_form(
    server: AnsweringServer, client: netrove.Client
) -> None:
    assert sent(client.get(server.url("/set/echo?a=1"))) == ["a=1"]
    client.get(server.url("/set?b=1"))
    assert sent(client.get(server.url("/set/echo?a=2"))) == ["a=2", "b=1"]
    assert sent(client.get(server.url("/set/echo?a=;%20Path=/;%20Max-Age=0"))) == ["b=1"]
    assert sent(client.get(server.url())) == ["b=1"]


def test_the_next_attempt_sends_what_the_last_one_learned() -> None:
    def breaking(peer: Peer) -> None:
        peer.head()
        peer.send(b"HTTP/1.1 302 Found\r\nSet-Cookie: a=1\r\nLocation: /next\r\nContent-Length: 0\r\n\r\n")
        peer.head()

    def answers(peer: Peer) -> None:
        peer.head()
        peer.send(b"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n")

    with ScriptedServer(breaking, breaking, answers) as server, netrove.Client(proxy=False) as client:
        client.get(server.url(), retry=netrove.Retry(attempts=3, wait=0.001))
        cookies = [[line for line in head.split("\r\n") if line.startswith("Cookie:")] for head in server.heads]
        assert [[line.rstrip("; ") for line in lines] for lines in cookies][:4] == [
            [],
            ["Cookie: a=1"],
            ["Cookie: a=1"],
            ["Cookie: a=1"],
        ]


@pytest.mark.parametrize(
    "attributes", ["Path=/elsewhere", "Secure; Path=/", "Domain=other.example; Path=/", "Max-Age=0; Path=/"]
)
def test_a_cookie_goes_only_where_it_belongs(
    server: AnsweringServer, client: netrove.Client, attributes: str
) -> None:
    client.get(server.url("/set"), params={"a": f"1; {attributes}", "b": "2"})
    assert sent(client.get(server.url())) == ["b=2"]
    assert sent(client.get(server.url().replace("127.0.0.1", "localhost"))) == []


def test_what_is_no_text_for_a_field_is_not_sent(server: AnsweringServer, client: netrove.Client) -> None:
    client.get(server.url("/set?a=%E9&b=2"))
    assert sent(client.get(server.url())) == ["b=2"]


def test_a_program_sets_cookies_for_all_calls(server: AnsweringServer) -> None:
    with netrove.Client(cookies={"a": "1"}, proxy=False) as client:
        client.cookies["b"] = "2"
        client.get(server.url("/set?a=server&c=3"))
        assert sent(client.get(server.url())) == ["a=1", "b=2", "c=3"]
        assert sent(client.get(server.url(), cookies={"b": "now"})) == ["a=1", "b=now", "c=3"]
        assert client.cookies["a"] == "1"
        del client.cookies["a"], client.cookies["c"]
        assert sent(client.get(server.url())) == ["b=2"]
        assert "a" not in client.cookies and len(client.cookies) == 1
        with pytest.raises(KeyError):
            del client.cookies["a"]
        client.cookies.clear()
        assert sent(client.get(server.url())) == []


def test_what_a_program_sets_stays_on_the_first_origin(server: AnsweringServer) -> None:
    other = server.url().replace("127.0.0.1", "localhost")

    def elsewhere(peer: Peer) -> None:
        peer.head()
        peer.send(f"HTTP/1.1 302 Found\r\nLocation: {other}\r\nContent-Length: 0\r\n\r\n".encode())

    with ScriptedServer(elsewhere) as first, netrove.Client(cookies={"a": "1"}, proxy=False) as client:
        client.get(server.url("/set?a=there").replace("127.0.0.1", "localhost"))
        assert sent(client.get(first.url())) == ["a=there"]
        assert "a=1" in first.heads[0]


def test_cookies_are_kept_where_a_client_is_asked_to(server: AnsweringServer) -> None:
    netrove.get(server.url("/set?a=1"))
    assert sent(netrove.get(server.url())) == []
    with netrove.Client(cookies=False, proxy=False) as client:
        client.get(server.url("/set/echo?a=1"))
        assert sent(client.get(server.url())) == []
        assert sent(client.get(server.url(), cookies={"b": "2"})) == ["b=2"]


def test_clients_can_share_cookies_and_take_those_of_a_jar(server: AnsweringServer) -> None:
    with netrove.Client(proxy=False) as first, netrove.Client(cookies=first.cookies, proxy=False) as second:
        first.get(server.url("/set?a=1"))
        assert sent(second.get(server.url())) == ["a=1"]
        jar: CookieJar = first.cookies.jar
    with netrove.Client(cookies=jar, proxy=False) as third:
        assert sent(third.get(server.url())) == ["a=1"]
        third.cookies = {"b": "2"}
        assert sent(third.get(server.url())) == ["b=2"]
