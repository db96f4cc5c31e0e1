"""A bar that shows how far a call has come: that of tqdm where it is installed, else one of its own on terminals."""

from __future__ import annotations

import sys
import time

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

    from ._values import Progress


def _size(count: float) -> str:
    for unit in ("B", "KiB", "MiB", "GiB"):
        if count < 1024 or unit == "GiB":
            return f"{count:.0f} {unit}" if unit == "B" else f"{count:.1f} {unit}"
        count /= 1024
    raise AssertionError


class Line:
    """A line on standard error, rewritten in place; nothing where that is no terminal."""

    def __init__(self, title: str) -> None:
        self._title = title
        self._start = time.monotonic()
        self._shown = ""

    def __call__(self, now: Progress) -> None:
        if not sys.stderr.isatty():
            return
        done, whole = _counts(now)
        speed = done / max(time.monotonic() - self._start, 0.001)
        part = f"{100 * done // whole:3d}% " if whole else ""
        total = f" of {_size(whole)}" if whole else ""
        text = f"{self._title}: {part}{_size(done)}{total}, {_size(speed)}/s"
        sys.stderr.write("\r" + text.ljust(len(self._shown)))
        sys.stderr.flush()
        self._shown = text

    def close(self) -> None:
        if self._shown:
            sys.stderr.write("\n")


class Bar:
    """That of tqdm."""

    def __init__(self, title: str, tqdm: Any) -> None:
        self._bar = tqdm(desc=title, unit="B", unit_scale=True, unit_divisor=1024)

    def __call__(self, now: Progress) -> None:
        done, whole = _counts(now)
        self._bar.total = whole
        self._bar.update(done - self._bar.n)

    def close(self) -> None:
        self._bar.close()


def _counts(now: Progress) -> tuple[int, int | None]:
    # What is sent comes first; a response without content says nothing about it.
    if now.received or now.to_receive:
        return now.received, now.to_receive
    return now.sent, now.to_send


def bar(title: str) -> Line | Bar:
    """The best that there is here."""
    try:
        from tqdm.auto import tqdm  # type: ignore[import]
    except ImportError:
        return Line(title)
    return Bar(title, tqdm)
