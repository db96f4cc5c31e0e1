"""Many calls at a time: their results as they come, and calls that asyncio waits for."""

from __future__ import annotations

import itertools
from collections.abc import Callable, Iterable, Iterator

from . import _netrove
from ._errors import Error
from ._response import Response

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

    # What Client makes of one item: the URL as it was given, its settings, and where it is saved.
    Prepared = tuple[str, _netrove.Settings, Any]


def results(
    pool: _netrove.Pool, ahead: int, items: Iterator[Prepared], learn: Callable[[Response | Error], None]
) -> Iterator[tuple[str, Response | Error]]:
    """What becomes of the calls, in the order in which they end; `learn` sees it first. `ahead` of them are under way or
    wait, so that items are only taken when their time comes. Closes the pool."""
    urls: dict[int, str] = {}  # of the calls that have not been yielded
    numbers = itertools.count()

    def add() -> bool:
        for url, settings, target in items:
            number = next(numbers)
            urls[number] = url
            pool.add(settings, target, number)
            return True
        return False

    try:
        while len(urls) < ahead and add():
            pass
        while urls:
            for number, core, content, error in pool.take():
                result = Response(core, content) if error is None else error
                if not isinstance(result, (Response, Error)):
                    raise result  # of a callable of the program
                learn(result)
                url = urls.pop(number)
                add()
                yield url, result
    finally:
        pool.close()


async def wait_for(pool: _netrove.Pool, settings: _netrove.Settings, target: Any) -> Response:
    """One call. Where it is cancelled the transfer ends within a second, and nothing is kept of it."""
    import asyncio  # not before it is used: it takes as long to load as all the rest

    loop = asyncio.get_running_loop()
    future: asyncio.Future[Response] = loop.create_future()

    def settle(core: Any, content: Any, error: Any) -> None:
        if future.done():
            return
        if error is not None:
            future.set_exception(error)
        else:
            future.set_result(Response(core, content or b""))

    def done(*end: Any) -> None:
        try:
            loop.call_soon_threadsafe(settle, *end)
        except RuntimeError:
            pass  # the loop is closed: nobody waits

    task = pool.submit(settings, target, done)
    try:
        return await future
    except asyncio.CancelledError:
        task.cancel()
        raise


def pairs(items: Iterable[Any], target: Any) -> Iterator[tuple[Any, Any]]:
    """URLs with their targets: given as pairs, or all with the same folder."""
    for item in items:
        url, file = item if isinstance(item, tuple) else (item, target)
        yield url, file


