"""The page for users, line by line, against a server that stands for example.org."""

from __future__ import annotations

import doctest
import json
import re
from collections.abc import Iterator
from pathlib import Path

import pytest

import netrove
from servers import EndingServer, Handler

PAGE = Path(__file__).resolve().parents[2] / "docs" / "python.md"
BIG = bytes(i % 251 for i in range(1_000_000))


class _Site(Handler):
    def _play(self) -> None:
        received = self.content()
        path, _, query = self.path.partition("?")
        kind, content, status = "text/plain", b"", 200
        if path == "/hello.txt":
            content = b"Hello, world!\n"
        elif path.endswith(".bin") and path != "/part13.bin":
            kind, content = "application/octet-stream", BIG
        elif path in ("/items", "/search"):
            kind = "application/json"
            content = json.dumps({"received": received.decode(errors="replace"), "query": query}).encode()
        else:
            status = 404
        self.answer(content, [("Content-Type", kind), ("ETag", '"one"')], status)

    do_GET = do_POST = do_PUT = _play


@pytest.fixture
def site() -> Iterator[str]:
    with EndingServer(_Site) as running:
        yield running.url()


def test_every_line_of_the_page_is_true(site: str, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(tmp_path)
    blocks = re.findall(r"^```python\n(.*?)^```$", PAGE.read_text(), re.MULTILINE | re.DOTALL)
    session = "\n".join(blocks).replace("https://example.org", site)
    examples = doctest.DocTestParser().get_doctest(session, {}, "python.md", str(PAGE), 0)
    assert len(examples.examples) > 30
    assert all(block.startswith(">>>") for block in blocks), "a block without a session would not be run"
    told: list[str] = []
    failed, tried = doctest.DocTestRunner().run(examples, out=told.append)
    assert (failed, tried) == (0, len(examples.examples)), "".join(told)


def test_the_page_names_every_exception() -> None:
    table = PAGE.read_text().partition("| Exception |")[2].partition("\n\n")[0]
    own = {
        value.__name__
        for value in vars(netrove).values()
        if isinstance(value, type) and issubclass(value, netrove.Error)
    }
    assert own <= set(re.findall(r"`(\w+)`", table))
