"""What is raised, and what it says."""

from __future__ import annotations

import pickle

import pytest

import netrove
from servers import AnsweringServer, ScriptedServer, answering, response


def test_a_status_is_no_failure_until_asked(server: AnsweringServer, client: netrove.Client) -> None:
    got = client.get(server.url("/status/404"))
    assert (got.status_code, got.ok, bool(got), got.is_error, got.content) == (404, False, False, True, b"said")
    with pytest.raises(netrove.HTTPStatusError) as caught:
        got.raise_for_status()
    assert caught.value.response is got
    assert client.get(server.url("/status/204")).raise_for_status().status_code == 204


def test_a_status_can_be_a_failure_at_once(server: AnsweringServer) -> None:
    with netrove.Client(check_status=True, retry=1, proxy=False) as client:
        for call in (client.get, client.stream):
            with pytest.raises(netrove.HTTPStatusError) as caught:
                call(server.url("/status/500"))
            error = caught.value
            assert (error.kind, error.identifier) == ("status", "NETROVE:client:StatusError")
            assert error.arguments == (500, "Internal Server Error", server.url("/status/500"))
            assert error.response is not None
            assert (error.response.status_code, error.response.content) == (500, b"said")
            assert error.sent and error.attempts == 1
        assert client.get(server.url("/status/500"), check_status=False).status_code == 500


def test_both_ways_to_a_failure_say_the_same(server: AnsweringServer, client: netrove.Client) -> None:
    url = server.url("/status/418")
    with pytest.raises(netrove.HTTPStatusError) as raised:
        client.get(url, check_status=True)
    with pytest.raises(netrove.HTTPStatusError) as asked:
        client.get(url).raise_for_status()
    for name in ("args", "kind", "identifier", "arguments", "sent", "attempts"):
        assert getattr(raised.value, name) == getattr(asked.value, name), name


def test_nobody_listens(client: netrove.Client) -> None:
    with pytest.raises(netrove.ConnectionError) as caught:
        client.get("http://127.0.0.1:1/")
    error = caught.value
    assert isinstance(error, ConnectionError) and isinstance(error, netrove.RequestException)
    assert (error.kind, error.identifier, error.sent) == ("connect", "VANTIK:webservices:ConnectionRefused", False)
    assert error.response is None
    assert error.host_text != ""


def test_a_connection_that_breaks_off(client: netrove.Client) -> None:
    with ScriptedServer(lambda peer: peer.head()) as server:
        with pytest.raises(netrove.ConnectionError, match="closed the connection without a response"):
            client.get(server.url())


def test_content_that_is_cut_off_comes_with_the_failure(client: netrove.Client) -> None:
    with ScriptedServer(lambda peer: (peer.head(), peer.send(response("whole")[:-2]))) as server:
        with pytest.raises(netrove.ContentError, match="3 of 5 bytes came") as caught:
            client.get(server.url())
    assert caught.value.response is not None
    assert caught.value.response.content == b"who"


@pytest.mark.parametrize(
    ("url", "error"),
    [
        ("", netrove.InvalidURL),
        ("ftp://host.example/", netrove.InvalidURL),
        ("http://", netrove.InvalidURL),
        ("http://a\nb/", netrove.UsageError),
    ],
)
def test_urls_that_cannot_be_used(client: netrove.Client, url: str, error: type[Exception]) -> None:
    with pytest.raises(error) as caught:
        client.get(url)
    assert isinstance(caught.value, ValueError)


def test_a_host_that_there_is_not(client: netrove.Client) -> None:
    with pytest.raises(netrove.NameResolutionError):
        client.get("http://no-such-host.invalid/")


def test_each_class_is_a_netrove_error() -> None:
    classes = [value for value in vars(netrove).values() if isinstance(value, type) and issubclass(value, Exception)]
    own = [one for one in classes if one is not netrove.JSONDecodeError]
    assert len(own) > 15
    assert all(issubclass(one, netrove.Error) for one in own)


def test_a_failure_travels_to_another_process(client: netrove.Client) -> None:
    with ScriptedServer(answering(response(status="404 Not Found"))) as server:
        with pytest.raises(netrove.Error) as caught:
            client.get(server.url(), check_status=True)
    copy = pickle.loads(pickle.dumps(caught.value))
    assert type(copy) is netrove.HTTPStatusError
    assert (str(copy), copy.arguments) == (str(caught.value), caught.value.arguments)
    assert copy.response is None
