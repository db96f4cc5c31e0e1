"""Content into files, content piece by piece, progress."""

from __future__ import annotations

import hashlib
import os
import pty
import subprocess
import sys
from pathlib import Path
from typing import Any

import pytest

import netrove
from servers import AnsweringServer, Peer, ScriptedServer, answering, halting, response

PATTERN = bytes(i % 251 for i in range(100_000))


@pytest.mark.parametrize("kind", [str, Path])
def test_a_file_is_saved(server: AnsweringServer, client: netrove.Client, tmp_path: Path, kind: Any) -> None:
    got = client.save(server.url("/bytes/100000"), kind(tmp_path / "x.bin"))
    assert got.file == tmp_path / "x.bin"
    assert (tmp_path / "x.bin").read_bytes() == PATTERN
    assert (got.received, got.content) == (100_000, b"")
    assert netrove.save(server.url("/bytes/7"), kind(tmp_path)).file == tmp_path / "7"


def test_a_failure_leaves_no_file(server: AnsweringServer, client: netrove.Client, tmp_path: Path) -> None:
    with pytest.raises(netrove.HTTPStatusError):
        client.save(server.url("/status/404"), tmp_path / "x")
    with pytest.raises(netrove.ContentError) as caught:
        client.save(server.url("/bytes/10"), tmp_path / "x", sha256="0" * 64)
    assert caught.value.identifier == "NETROVE:client:DigestMismatch"
    (tmp_path / "there").write_text("mine")
    with pytest.raises(netrove.FileError) as refused:
        client.save(server.url("/bytes/10"), tmp_path / "there", replace=False)
    assert isinstance(refused.value, OSError)
    assert [entry.name for entry in tmp_path.iterdir()] == ["there"]
    digest = hashlib.sha256(PATTERN).hexdigest()
    assert client.save(server.url("/bytes/100000"), tmp_path / "x", sha256=digest).file == tmp_path / "x"


def test_a_file_goes_on_where_it_ended(client: netrove.Client, tmp_path: Path) -> None:
    def cut(peer: Peer) -> None:
        peer.head()
        peer.send(response(PATTERN, 'ETag: "a"')[:50_000])

    def rest(peer: Peer) -> None:
        head = peer.head()
        start = int(head.split("Range: bytes=")[1].split("-")[0])
        fields = f"Content-Range: bytes {start}-99999/100000"
        peer.send(response(PATTERN[start:], 'ETag: "a"', fields, status="206 Partial Content"))
        peer.until_client_goes()

    with ScriptedServer(cut, rest) as server:
        with pytest.raises(netrove.ContentError):
            client.save(server.url(), tmp_path / "x", resume=True)
        assert not (tmp_path / "x").exists()
        got = client.save(server.url(), tmp_path / "x", resume=True)
    assert got.resumed_at > 0
    assert (tmp_path / "x").read_bytes() == PATTERN


def test_content_comes_piece_by_piece(server: AnsweringServer, client: netrove.Client) -> None:
    assert b"".join(client.stream(server.url("/large/5000000"))) == b"x" * 5_000_000
    assert b"".join(netrove.stream(server.url("/bytes/100000"))) == PATTERN
    with client.stream("GET", server.url("/bytes/100000")) as got:
        assert got.status_code == 200
        assert [len(piece) for piece in got.iter_bytes(30_000)] == [30_000, 30_000, 30_000, 10_000]
    for asked in (client.get, netrove.get):
        with asked(server.url("/bytes/100000"), stream=True) as got:
            assert got.content == PATTERN
            assert got.content == PATTERN


def test_pieces_come_when_they_are_there(client: netrove.Client) -> None:
    def slow(peer: Peer) -> None:
        peer.head()
        peer.send(b"HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\none")
        peer.wait("more")
        peer.send(b"two")
        peer.until_client_goes()

    with ScriptedServer(slow) as server:
        pieces = iter(client.stream(server.url()))
        assert next(pieces) == b"one"
        server.event("more").set()
        assert list(pieces) == [b"two"]


def test_lines_come_one_by_one(client: netrove.Client) -> None:
    with ScriptedServer(answering(response("one\r\ntwö\n"))) as server:
        with client.stream(server.url()) as got:
            assert list(got.iter_lines()) == ["one", "twö"]


def test_iterating_over_a_stream_checks_its_status(server: AnsweringServer, client: netrove.Client) -> None:
    with pytest.raises(netrove.HTTPStatusError):
        list(client.stream(server.url("/status/404")))
    with client.stream(server.url("/status/404")) as got:
        assert (got.status_code, b"".join(got.iter_bytes())) == (404, b"said")


def test_a_stream_is_read_once(server: AnsweringServer, client: netrove.Client) -> None:
    with client.stream(server.url("/bytes/10")) as got:
        list(got)
        with pytest.raises(RuntimeError):
            got.iter_bytes()


def test_a_stream_that_breaks_off_says_so_after_what_came(client: netrove.Client) -> None:
    with ScriptedServer(lambda peer: (peer.head(), peer.send(response("whole")[:-2]))) as server:
        pieces = iter(client.stream(server.url()))
        assert next(pieces) == b"who"
        with pytest.raises(netrove.ContentError):
            next(pieces)


def test_a_stream_that_is_left_ends_and_the_client_goes_on(server: AnsweringServer, client: netrove.Client) -> None:
    with ScriptedServer(halting, halting, halting) as halts:
        for piece in client.stream(halts.url()):
            assert piece == b"half."
            break
        del piece
        halts.wait_for("gone")
        assert client.get(server.url()).ok
        got = client.stream(halts.url())
        got.close()
        assert client.get(server.url()).ok
        with client.stream(halts.url()):
            with pytest.raises(netrove.UsageError, match="in use"):
                client.get(server.url())
        assert client.get(server.url()).ok


def test_progress_ends_with_the_whole(server: AnsweringServer, client: netrove.Client, tmp_path: Path) -> None:
    seen: list[netrove.Progress] = []
    client.save(server.url("/large/3000000"), tmp_path / "x", progress=seen.append)
    assert seen[-1] == (0, 3_000_000, None, 3_000_000)
    assert [now.received for now in seen] == sorted(now.received for now in seen)
    seen.clear()
    client.put(server.url("/status/204"), content=PATTERN, progress=seen.append)
    assert seen[-1][:3] == (100_000, 0, 100_000)


def test_what_progress_raises_ends_the_call_unchanged(server: AnsweringServer, client: netrove.Client) -> None:
    class Own(Exception):
        pass

    def refuse(now: netrove.Progress) -> None:
        raise Own(now.received)

    with pytest.raises(Own):
        client.get(server.url("/large/3000000"), progress=refuse)
    assert client.get(server.url()).ok


def test_a_bar_is_shown_where_someone_looks(server: AnsweringServer, tmp_path: Path) -> None:
    program = f"""
import sys
sys.modules["tqdm"] = None
import netrove
netrove.save({server.url("/bytes/100000")!r}, {str(tmp_path / "x")!r}, progress=True)
"""
    own, theirs = pty.openpty()
    subprocess.run([sys.executable, "-c", program], stderr=theirs, check=True)
    os.close(theirs)
    shown = os.read(own, 65536).decode()
    os.close(own)
    assert "100000: 100% 97.7 KiB of 97.7 KiB" in shown
    quiet = subprocess.run([sys.executable, "-c", program], capture_output=True, check=True)
    assert quiet.stderr == b""
