"""Small programs in the manner of the first pages of requests and httpx: with the import changed they print the same,
against httpbin."""

from __future__ import annotations

import os
import re
import subprocess
import sys
import threading
from collections.abc import Iterator
from pathlib import Path

import pytest
from werkzeug.serving import make_server

PROGRAMS = sorted((Path(__file__).parent / "programs").glob("*.py"))


@pytest.fixture(scope="module")
def httpbin() -> Iterator[str]:
    from httpbin import app

    running = make_server("127.0.0.1", 0, app, threaded=True)
    threading.Thread(target=running.serve_forever, daemon=True).start()
    yield f"http://127.0.0.1:{running.server_port}"
    running.shutdown()


def output(program: Path, url: str) -> str:
    ended = subprocess.run([sys.executable, str(program), url], capture_output=True, text=True, env=os.environ, timeout=60)
    assert ended.stderr == ""
    return ended.stdout


@pytest.mark.parametrize("program", PROGRAMS, ids=lambda program: program.stem)
def test_a_program_prints_the_same_with_another_import(httpbin: str, program: Path, tmp_path: Path) -> None:
    changed = tmp_path / program.name
    text, count = re.subn(r"^import (requests|httpx)$", r"import netrove as \1", program.read_text(), flags=re.MULTILINE)
    assert count == 1
    changed.write_text(text)
    assert output(changed, httpbin) == output(program, httpbin) != ""


def test_there_are_ten_programs() -> None:
    assert len(PROGRAMS) == 10
