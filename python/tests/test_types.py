"""What type checkers are told."""

from __future__ import annotations

import ast
import inspect
import os
import subprocess
import sys
from pathlib import Path

import netrove

PACKAGE = Path(netrove.__file__).parent


def mypy(*arguments: str) -> subprocess.CompletedProcess[str]:
    # Stubs name the arguments of calls as a TypedDict, which this mypy calls incomplete and later ones do not.
    command = [sys.executable, "-m", "mypy", "--strict", "--enable-incomplete-feature=Unpack", "--cache-dir=/dev/null"]
    environment = {**os.environ, "MYPYPATH": str(PACKAGE.parent)}
    return subprocess.run([*command, *arguments], capture_output=True, text=True, env=environment)


def test_the_package_and_a_program_that_uses_it_are_well_typed(tmp_path: Path) -> None:
    program = tmp_path / "program.py"
    program.write_text(
        """
from datetime import timedelta
from pathlib import Path

import netrove

text: str = netrove.get("http://a.example/", params={"a": 1}, timeout=timedelta(seconds=5)).text
with netrove.Client("http://a.example/", limits=netrove.Limits(connect=5, response=30), retry=2) as client:
    saved = client.save("big.bin", Path("big.bin"), resume=True, progress=lambda now: print(now.received))
    file: Path | None = saved.file
    for piece in client.stream("log"):
        size: int = len(piece)
    for url, result in client.get_all(["a", "b"], jobs=16, per_host=4):
        if isinstance(result, netrove.Response):
            status: int = result.status_code
        else:
            kind: str = result.kind

async def run(client: netrove.Client) -> bytes:
    async with client.astream("POST", "x", content=b"y") as response:
        streamed: netrove.AsyncStreamedResponse = response
        async for line in streamed.aiter_lines():
            length: int = len(line)
    return (await client.aget("x")).content

from netrove import host as nh

class Lines(nh.ContentProvider):
    def read(self, wanted: int) -> bytes:
        return b""

class Point:
    @nh.method(outputs=["double scalar"])
    def norm(self) -> float:
        return 1.0

with nh.Host(failures=[nh.INCOMPLETE_CONTENT]) as host:
    connection: nh.Object = host.connection()
    connection.URL = "http://a.example/"
    connection.TimeoutInMilliseconds = nh.timeouts(connect=5, response=timedelta(seconds=30), data=None)
    connection.Provider = Lines()
    connection.setFields(nh.fields({"A": 1}))
    fields: netrove.Headers = nh.headers(connection.getResponseFields())
    content: nh.Array = connection.copyContentToByteArray(True)
    shape: tuple[int, int] = content.dimensions
    host.define(Point, "test.Point")
    try:
        host.load("x")
    except nh.HostError as error:
        identifier: str = error.identifier
"""
    )
    checked = mypy(str(PACKAGE), str(program))
    assert checked.returncode == 0, checked.stdout + checked.stderr


def test_a_slip_is_found(tmp_path: Path) -> None:
    program = tmp_path / "program.py"
    program.write_text(
        "import netrove\n"
        'netrove.get("x", timout=5)\n'
        'size: int = netrove.get("x").text\n'
        'netrove.Client(json={})\n'
    )
    found = [line.split("error: ")[1] for line in mypy(str(program)).stdout.splitlines() if "error: " in line]
    assert len(found) == 3, found
    assert '"timeout"' in found[0]


def test_stubs_name_the_arguments_that_there_are() -> None:
    classes = {}
    for node in ast.parse((PACKAGE / "_client.pyi").read_text()).body:
        if isinstance(node, ast.ClassDef) and node.name in ("Defaults", "Options", "SaveOptions"):
            own = [item.target.id for item in node.body if isinstance(item, ast.AnnAssign) and isinstance(item.target, ast.Name)]
            classes[node.name] = own + [name for base in node.bases if isinstance(base, ast.Name) for name in classes.get(base.id, [])]
    aside = {"stream", "allow_redirects"}  # names of others, which the text leaves out
    for call, options in ((netrove.get, "Options"), (netrove.save, "SaveOptions")):
        known = set(inspect.signature(call).parameters) - {"url", "target"}
        assert set(classes[options]) - aside == known
    for name in classes["Defaults"]:
        netrove.Client(**{name: None}).close()
