"""The package as pip installs it from the tree: outside of it, and with libraries of its own."""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

from servers import AnsweringServer

TREE = Path(__file__).resolve().parents[2]
BUILD = os.environ.get("NETROVE_BUILD")  # whose libraries it takes in place of those of a new build

PROGRAM = """
import netrove, sys
server = sys.argv[1]
assert netrove.__file__.startswith(sys.prefix), netrove.__file__
assert netrove.get(server + "/latin1").text == "Été"
saved = netrove.save(server + "/bytes/1000", "big.bin")
assert saved.received == 1000
try:
    netrove.get("http://127.0.0.1:1/", retry=1, proxy=False)
except netrove.ConnectionError as error:
    print(error)
maps = open("/proc/self/maps").read().split()
print(sorted({name.rpartition("/")[2] for name in maps if "libnetrove" in name or "libvantik" in name}))
assert all(sys.prefix in name for name in maps if "netrove" in name or "libvantik" in name)
"""


def run(*command: str | Path, folder: Path, **environment: str) -> str:
    """What it prints, in a surrounding that names no folder of this build."""
    kept = {name: os.environ[name] for name in ("PATH", "HOME") if name in os.environ}
    ended = subprocess.run(
        command, cwd=folder, env={**kept, **environment}, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True
    )
    assert ended.returncode == 0, ended.stdout
    return ended.stdout


@pytest.mark.skipif(BUILD is None, reason="NETROVE_BUILD names no build")
def test_pip_installs_it_with_all_that_it_loads(server: AnsweringServer, tmp_path: Path) -> None:
    source = tmp_path / "source"
    for name in ("CMakeLists.txt", "LICENSE", "docs/python.md", "pyproject.toml", "setup.py"):
        (source / name).parent.mkdir(exist_ok=True)
        shutil.copy(TREE / name, source / name)
    place = tmp_path / "place"
    run(sys.executable, "-m", "venv", "--without-pip", "--system-site-packages", place, folder=tmp_path)
    python = place / "bin" / "python"
    pip = [sys.executable, "-m", "pip", "--python", python, "--disable-pip-version-check"]
    run(*pip, "install", "--no-build-isolation", "--no-index", source, folder=tmp_path, NETROVE_BUILD=str(BUILD))
    shutil.rmtree(source)

    printed = run(python, "-c", PROGRAM, server.url(""), folder=tmp_path).splitlines()
    assert printed[0].startswith("no connection to 127.0.0.1:1: "), printed
    for library in ("libnetrove.so", "libnetrove_client.so", "libnetrove_icu.so", "libvantik_embedded.so"):
        assert library in printed[1]
    assert (tmp_path / "big.bin").read_bytes() == bytes(i % 251 for i in range(1000))
    run(*pip, "uninstall", "--yes", "netrove", folder=tmp_path)
    assert not list(place.rglob("*netrove*"))
