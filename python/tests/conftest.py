"""Servers for every test, and the filter and the last line that scripts/test knows."""

from __future__ import annotations

import faulthandler
import fnmatch
import os
import signal
from collections.abc import Iterator
from typing import Any

import pytest

import netrove
from servers import AnsweringServer

# What a shell starts in the background ignores interrupts, and so would the programs of tests.
signal.signal(signal.SIGINT, signal.default_int_handler)


_LONGEST = 240  # seconds; then every thread's stack is written, and it is all over


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_protocol(item: pytest.Item) -> Iterator[None]:
    faulthandler.dump_traceback_later(_LONGEST, exit=True)
    yield
    faulthandler.cancel_dump_traceback_later()


@pytest.fixture(scope="session")
def server() -> Iterator[AnsweringServer]:
    with AnsweringServer() as running:
        yield running


@pytest.fixture
def client() -> Iterator[netrove.Client]:
    """Without a proxy of the surroundings, and without a second attempt."""
    with netrove.Client(proxy=False, retry=1) as own:
        yield own


def _is_wanted(name: str, patterns: str) -> bool:
    """GoogleTest's filter: patterns that may match, then after a "-" those that must not."""
    wanted, _, unwanted = patterns.partition("-")

    def matches(all_of: str) -> bool:
        return any(fnmatch.fnmatchcase(name, pattern) for pattern in all_of.split(":") if pattern)

    return (not wanted or matches(wanted)) and not matches(unwanted)


def pytest_collection_modifyitems(config: Any, items: list[pytest.Item]) -> None:
    patterns = os.environ.get("GTEST_FILTER", "")
    if not patterns:
        return
    kept = [item for item in items if _is_wanted(f"Python.{item.path.stem}.{item.name}", patterns)]
    config.hook.pytest_deselected(items=[item for item in items if item not in kept])
    items[:] = kept


def pytest_sessionfinish(session: pytest.Session, exitstatus: int) -> None:
    if exitstatus == pytest.ExitCode.NO_TESTS_COLLECTED and os.environ.get("GTEST_FILTER"):
        session.exitstatus = pytest.ExitCode.OK  # a filter may name tests of others only
