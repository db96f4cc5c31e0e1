"""What goes out."""

from __future__ import annotations

from datetime import timedelta
from decimal import Decimal
from typing import Any

import pytest

import netrove
from servers import AnsweringServer, ScriptedServer, answering, response


@pytest.mark.parametrize("method", ["get", "options", "post", "put", "patch", "delete"])
def test_each_method_has_a_call(server: AnsweringServer, client: netrove.Client, method: str) -> None:
    assert getattr(netrove, method)(server.url()).json()["method"] == method.upper()
    assert getattr(client, method)(server.url()).json()["method"] == method.upper()


def test_a_head_has_fields_and_no_content(server: AnsweringServer, client: netrove.Client) -> None:
    response = client.head(server.url("/bytes/10"))
    assert response.headers["content-length"] == "10"
    assert response.content == b""


def test_request_takes_any_method(server: AnsweringServer, client: netrove.Client) -> None:
    assert client.request("delete", server.url()).json()["method"] == "DELETE"
    assert netrove.request("PUT", server.url(), content=b"x").json()["data"] == "x"


@pytest.mark.parametrize(
    ("params", "args"),
    [
        ({"a": "1", "b": "é &"}, {"a": "1", "b": "é &", "z": "0"}),
        ([("a", 1), ("c", None)], {"a": "1", "z": "0"}),
        ("a=2", {"a": "2", "z": "0"}),
        ({}, {"z": "0"}),
    ],
)
def test_params_go_into_the_query(server: AnsweringServer, client: netrove.Client, params: Any, args: Any) -> None:
    assert client.get(server.url("/echo?z=0#place"), params=params).json()["args"] == args


def test_fields_of_a_call_replace_those_of_the_client(server: AnsweringServer) -> None:
    with netrove.Client(headers={"X-A": "client", "X-B": "client"}, proxy=False) as client:
        sent = client.get(server.url(), headers={"x-a": "call"}).json()["headers"]
        assert (sent["x-a"], sent["X-B"]) == ("call", "client")
        assert "X-A" not in sent
        client.headers["X-C"] = "later"
        assert client.get(server.url()).json()["headers"]["X-C"] == "later"


def test_params_and_login_of_a_client_can_be_set_later(server: AnsweringServer, client: netrove.Client) -> None:
    client.params = {"key": "1"}
    client.auth = ("user", "pass")
    assert client.get(server.url(), params={"b": 2}).json()["args"] == {"key": "1", "b": "2"}
    assert client.get(server.url("/basic")).content == b"welcome"


def test_urls_are_relative_to_that_of_the_client(server: AnsweringServer) -> None:
    with netrove.Client(server.url("/deep/"), proxy=False) as client:
        assert client.get("page?x=1").json()["path"] == "/deep/page"
        assert client.get("/top").json()["path"] == "/top"


def test_cookies_are_sent(server: AnsweringServer, client: netrove.Client) -> None:
    assert client.get(server.url(), cookies={"a": "1", "b": "2"}).json()["headers"]["Cookie"].rstrip("; ") == "a=1; b=2"


@pytest.mark.parametrize(
    "auth", [("user", "pass"), netrove.Login("user", "pass"), netrove.BasicAuth("user", "pass")], ids=["pair", "login", "basic"]
)
def test_logins(server: AnsweringServer, client: netrove.Client, auth: Any) -> None:
    assert client.get(server.url("/basic"), auth=auth).content == b"welcome"


def test_a_token_is_sent(server: AnsweringServer, client: netrove.Client) -> None:
    sent = client.get(server.url(), auth=netrove.Login(bearer="abc")).json()["headers"]
    assert sent["Authorization"] == "Bearer abc"


def test_redirects_are_followed_unless_told(server: AnsweringServer, client: netrove.Client) -> None:
    followed = client.get(server.url("/redirect/2"))
    assert followed.status_code == 200
    assert [hop.status_code for hop in followed.history] == [302, 302]
    for option in ("allow_redirects", "follow_redirects"):
        stopped = client.get(server.url("/redirect/2"), **{option: False})
        assert (stopped.status_code, stopped.is_redirect) == (302, True)
    with pytest.raises(netrove.TooManyRedirects):
        client.get(server.url("/redirect/3"), follow_redirects=2)


@pytest.mark.parametrize("timeout", [0.05, Decimal("0.05"), timedelta(milliseconds=50), (5, 0.05)])
def test_a_timeout_is_seconds_a_timedelta_or_a_pair(client: netrove.Client, timeout: Any) -> None:
    with ScriptedServer(lambda peer: peer.until_client_goes()) as server:
        with pytest.raises(netrove.ReadTimeout) as caught:
            client.get(server.url(), timeout=timeout)
    assert "0.050 s, the limit `response`" in str(caught.value)
    assert isinstance(caught.value, TimeoutError)


def test_limits_of_a_call_go_before_those_of_the_client() -> None:
    with ScriptedServer(lambda peer: peer.until_client_goes()) as server:
        with netrove.Client(timeout=60, retry=1, proxy=False) as client:
            with pytest.raises(netrove.Timeout, match="the limit `total`"):
                client.get(server.url(), limits=netrove.Limits(total=timedelta(milliseconds=20)))


def test_limits_of_size(server: AnsweringServer, client: netrove.Client) -> None:
    with pytest.raises(netrove.ContentError, match="the limit `memory`") as caught:
        client.get(server.url("/bytes/100"), limits=netrove.Limits(memory=99))
    assert caught.value.arguments == (99,)
    with pytest.raises(netrove.ContentError, match="the limit `content`"):
        client.get(server.url("/bytes/100"), limits=netrove.Limits(content=99))


def test_what_fails_is_tried_again_as_often_as_asked() -> None:
    busy = response(status="503 Busy")
    with ScriptedServer(answering(busy, response("at last"))) as server:
        with netrove.Client(retry=netrove.Retry(attempts=2, wait=0.001), proxy=False) as client:
            got = client.get(server.url())
    assert (got.text, got.attempts) == ("at last", 2)
    assert [hop.status for hop in got.hops] == [503, 200]


def test_content_can_be_compressed(server: AnsweringServer, client: netrove.Client) -> None:
    assert client.get(server.url("/gzip")).content == b"compressed"
    assert client.get(server.url("/gzip"), decode=False).content[:2] == b"\x1f\x8b"
    assert "gzip" in client.get(server.url(), compressed=True).json()["headers"]["Accept-Encoding"]


def test_a_proxy_gets_the_request(server: AnsweringServer, client: netrove.Client) -> None:
    proxy = server.url("")
    for options in ({"proxy": proxy}, {"proxies": {"http": proxy}}):
        sent = client.get("http://elsewhere.example/echo", **options).json()
        assert sent["path"] == "http://elsewhere.example/echo"


def test_trace_tells_each_line(server: AnsweringServer, client: netrove.Client) -> None:
    lines: list[tuple[str, str]] = []
    client.get(server.url(), headers={"Authorization": "secret"}, trace=lambda kind, line: lines.append((kind, line)))
    assert ("sent", "GET /echo HTTP/1.1") in lines
    assert ("sent", "Authorization: ***") in lines
    assert ("received", "HTTP/1.1 200 OK") in lines
    assert lines[0][0] == "note"


@pytest.mark.parametrize(
    ("options", "error"),
    [
        ({"no_such": 1}, TypeError),
        ({"headers": {"bad name": "x"}}, netrove.UsageError),
        ({"headers": {"X": "a\r\nY: b"}}, netrove.UsageError),
        ({"content": b"x", "json": 1}, netrove.UsageError),
        ({"data": {"a": 1}, "form": {"b": 1}}, netrove.UsageError),
        ({"json": {1, 2}}, TypeError),
        ({"json": float("nan")}, ValueError),
        ({"content": 7}, TypeError),
        ({"timeout": float("nan")}, ValueError),
        ({"timeout": 0}, netrove.UsageError),
        ({"auth": netrove.Login("u", "p", ("none",))}, ValueError),
    ],
)
def test_what_makes_no_sense_is_refused_before_anything_is_sent(
    server: AnsweringServer, client: netrove.Client, options: Any, error: type[Exception]
) -> None:
    with pytest.raises(error):
        client.post(server.url(), **options)


def test_help_names_every_argument() -> None:
    import inspect

    for call in (netrove.get, netrove.save, netrove.Client.post):
        names = [name for name in inspect.signature(call).parameters if name not in ("self", "url")]
        assert len(names) > 20
        for name in names:
            assert f"\n    {name}: " in (call.__doc__ or ""), (call, name)
