"""The client: requests that read like what they do."""

from __future__ import annotations

import os
import threading
from collections.abc import Callable, Iterable, Iterator
from contextlib import contextmanager
from types import MethodType

from . import _many, _netrove, _progress, _settings
from ._errors import Error
from ._headers import Headers
from ._response import Response, StreamedResponse
from ._settings import UNSET

TYPE_CHECKING = False
if TYPE_CHECKING:
    from pathlib import Path
    from types import TracebackType
    from typing import Any

    from ._astream import AsyncStream
    from ._cookies import Cookies, CookieTypes

_OPTIONS = """
Args:
    params: names and values for the query of the URL: a mapping or pairs.
    headers: header fields: a mapping or pairs. A name here replaces the client's fields of that name.
    cookies: names and values that are sent as cookies with this request, and redirects on its origin.
    auth: (user, password) or a Login.
    content: what is sent as it is: bytes or anything with a buffer, which is not copied if it is large; text in
        UTF-8; an open file from where it stands; a path; a generator or an iterable of such pieces.
    data: the same, or the names and values of a form.
    json: a value that is sent as JSON.
    form: names and values of a form: a mapping or pairs.
    files: files of a form: name to content, (filename, content) or (filename, content, type).
    timeout: seconds or timedelta for the limits connect, response and data, or a pair: connect, and the others.
        None is no limit. 10 s to connect and 30 s of silence unless it is given.
    limits: a Limits, where one number is not enough.
    retry: how often the call is tried in all, or a Retry. 3.
    follow_redirects: False, or how many redirects are followed at most. 10.
    verify: False verifies no certificate; a path names a file of authorities to trust besides the system's.
    verify_name: False accepts a certificate for another host.
    proxy: its URL; False for none, True for that of the system, which is the default.
    proxies: the same by scheme: {"http": ..., "https": ...}.
    rate: a RateLimit that calls may share.
    decode: False leaves content in the coding in which it came.
    compressed: True asks for content in a coding that is decoded.
    check_status: True raises HTTPStatusError for a status of 400 and above.
    progress: True shows a bar; a callable gets a Progress at most 20 times a second, and one at the end.
    trace: a callable that gets ("note" | "sent" | "received", line) for each line of a head and each decision.

Raises:
    Error: one of its classes, with `kind`, `identifier` and `arguments`. Exceptions of your own callables and
        generators arrive unchanged, and so does KeyboardInterrupt, within a second.
"""

_CALL_NAMES = (
    "params headers cookies auth content data json form files timeout limits retry follow_redirects "
    "verify verify_name proxy proxies rate decode compressed check_status progress trace"
).split()
_SAVE_NAMES = ["resume", "resume_unproven", "replace", "keep_time", "sha256"]

_SAVE_OPTIONS = """
Args:
    target: a file, or a folder, in which the server or the URL names the file; the current folder if left out.
    resume: True goes on with what an earlier call has left in FILE.part, if it is the same file.
    resume_unproven: with resume: even if nothing proves that it is the same file.
    replace: False refuses to replace a file.
    keep_time: True gives the file the time of Last-Modified.
    sha256: of the whole content, 64 hexadecimal digits; anything else is an error, and is not kept.
"""


def _described(first: str, options: list[str], more: str) -> Callable[[Any], Any]:
    """Gives a method the signature that its callers see, and the text about its arguments."""
    # The module inspect has a class for it, and takes as long to load as half of the rest.
    seen = eval(f"lambda self, {first}, *, {'=UNSET, '.join(options)}=UNSET: None", {"UNSET": UNSET})

    def describe(function: Any) -> Any:
        function.__wrapped__ = seen
        function.__doc__ = (function.__doc__ or "").replace("\n        ", "\n") + "\n" + more
        return function

    return describe


_call = _described("url", _CALL_NAMES, _OPTIONS)
_request = _described("method, url", _CALL_NAMES, _OPTIONS)
_save = _described(
    "url, target=None", _SAVE_NAMES + _CALL_NAMES, _SAVE_OPTIONS.rstrip() + _OPTIONS.replace("\nArgs:", "", 1)
)


@contextmanager
def _progress_of(options: dict[str, Any], url: Any) -> Iterator[None]:
    """A bar in the place of True, which is closed in the end."""
    progress = options.get("progress")
    if not isinstance(progress, bool):
        yield
        return
    options.pop("progress")
    if not progress:
        yield
        return
    title = os.path.basename(str(url).partition("?")[0].rstrip("/")) or str(url)
    bar = _progress.bar(title)
    options["progress"] = bar
    try:
        yield
    finally:
        bar.close()


class _Kept:
    """The cookies of a client, made when there is one. The extension asks it which of them go with a request."""

    def __init__(self) -> None:
        self.cookies: Cookies | None = None

    def all(self) -> Cookies:
        if self.cookies is None:
            from ._cookies import Cookies  # what it needs is slow to load, and most programs have no cookies

            self.cookies = Cookies()
        return self.cookies

    def journey(self, given: Any) -> Callable[[str, str, list[str]], str]:
        from ._cookies import Journey

        return Journey(self.all(), given or ()).field


class Client:
    """An HTTP client. It keeps its connections and its cookies for the next call.

    A client makes one call at a time: one that begins while another one runs, on another thread or in a callback, is
    refused with UsageError. ``interrupt`` may be called by any thread. For many calls at a time there is ``get_all``.

    Args:
        base_url: to which the URLs of calls are relative.
        headers, params, auth: for every call. They can be changed later, as attributes.
        cookies: names and values for every call, or a Cookies, which clients may share. False keeps none between calls.
        jobs: how many calls asyncio may wait for at a time, each on a thread of its own.
        per_host: how many of them to one host and port.
        options: what ``get`` takes, for every call that does not say otherwise.
    """

    def __init__(
        self,
        base_url: str = "",
        *,
        headers: Any = None,
        params: Any = None,
        auth: Any = None,
        cookies: CookieTypes | bool | None = None,
        jobs: int = 8,
        per_host: int = 6,
        **options: Any,
    ) -> None:
        self.headers = Headers(headers or ())
        self._kept = _Kept()
        self._cookie_source = _netrove.CookieSource(self._kept.journey)
        self._keeps_cookies = cookies is not False
        if not isinstance(cookies, (bool, type(None))):
            self.cookies = cookies
        self.params: Any = {} if params is None else params
        self.auth = auth
        self._proxies = options.pop("proxies", None)
        self._defaults = _netrove.Settings()
        self._defaults.url = str(base_url)
        self._check_status = options.pop("check_status", None)
        _settings.apply(self._defaults, options)
        self._core = _netrove.Client(self._defaults)
        self._jobs = jobs
        self._per_host = per_host
        self._pool: _netrove.Pool | None = None

    @property
    def cookies(self) -> Cookies:
        """What servers have set in earlier calls, and what the program sets for all."""
        return self._kept.all()

    @cookies.setter
    def cookies(self, cookies: CookieTypes) -> None:
        from ._cookies import Cookies

        self._kept.cookies = cookies if isinstance(cookies, Cookies) else Cookies(cookies)

    def _learn_cookies(self, result: Response | Error) -> None:
        response = result if isinstance(result, Response) else result.response
        if response is not None and self._keeps_cookies and (values := response._core.set_cookies):
            self.cookies._learn(response.url, values)

    def _ended(self, call: Callable[[], Any]) -> Any:
        try:
            response = call()
        except Error as failure:
            self._learn_cookies(failure)
            raise
        self._learn_cookies(response)
        return response

    async def _awaited(self, settings: _netrove.Settings, target: Path | None) -> Response:
        try:
            response = await _many.wait_for(self._own_pool(), settings, target)
        except Error as failure:
            self._learn_cookies(failure)
            raise
        self._learn_cookies(response)
        return response

    def _prepared(self, method: str, url: Any, options: dict[str, Any]) -> _netrove.Settings:
        defaults: dict[str, Any] = {}
        if self.params:
            defaults["params"] = self.params
        if self.auth is not None:
            defaults["auth"] = self.auth
        if len(self.headers):
            own = Headers(options.get("headers") or ())
            options["headers"] = [
                *(field for field in self.headers.multi_items() if field[0] not in own),
                *own.multi_items(),
            ]
        if self._proxies is not None:
            options.setdefault("proxies", self._proxies)
        if not self._keeps_cookies:
            return _settings.request(method, url, defaults, options)
        given = options.get("cookies")
        kept = self._kept.cookies
        if kept is not None and kept._own:
            options["cookies"] = given = {**kept._own, **dict(given or ())}
        settings = _settings.request(method, url, defaults, options)
        settings.cookies(self._cookie_source, given, kept is not None and len(kept.jar) > 0)
        return settings

    def _send(self, method: str, url: Any, options: dict[str, Any]) -> Response:
        if options:
            if options.pop("stream", False):
                return self._stream(method, url, options)
            if "progress" in options:
                with _progress_of(options, url):
                    return self._collect(method, url, options)
        return self._collect(method, url, options)

    def _collect(self, method: str, url: Any, options: dict[str, Any]) -> Response:
        check = options.pop("check_status", None)
        settings = self._prepared(method, url, options)
        settings.check_status = bool(self._check_status if check in (None, UNSET) else check)
        return self._ended(lambda: Response(*self._core.collect(settings)))

    def _stream(self, method: str, url: Any, options: dict[str, Any]) -> StreamedResponse:
        check = options.pop("check_status", None)
        settings = self._prepared(method, url, options)
        settings.check_status = bool(self._check_status if check in (None, UNSET) else check)
        return self._ended(lambda: StreamedResponse(_netrove.Stream(self._core, settings)))

    @_call
    def get(self, url: Any, **options: Any) -> Response:
        """Sends a GET request; the content is collected in memory."""
        return self._send("GET", url, options)

    @_call
    def head(self, url: Any, **options: Any) -> Response:
        """Sends a HEAD request."""
        return self._send("HEAD", url, options)

    @_call
    def options(self, url: Any, **options: Any) -> Response:
        """Sends an OPTIONS request."""
        return self._send("OPTIONS", url, options)

    @_call
    def post(self, url: Any, **options: Any) -> Response:
        """Sends a POST request."""
        return self._send("POST", url, options)

    @_call
    def put(self, url: Any, **options: Any) -> Response:
        """Sends a PUT request."""
        return self._send("PUT", url, options)

    @_call
    def patch(self, url: Any, **options: Any) -> Response:
        """Sends a PATCH request."""
        return self._send("PATCH", url, options)

    @_call
    def delete(self, url: Any, **options: Any) -> Response:
        """Sends a DELETE request."""
        return self._send("DELETE", url, options)

    @_request
    def request(self, method: str, url: Any, **options: Any) -> Response:
        """Sends a request with any method; the content is collected in memory."""
        return self._send(method.upper(), url, options)

    @_save
    def save(self, url: Any, target: Any = None, **options: Any) -> Response:
        """Receives content into a file that is whole or not there: it gets its name at the end. ``response.file`` is
        where it is. A status of 400 and above raises HTTPStatusError unless ``check_status`` is False."""
        with _progress_of(options, url):
            settings = self._prepared("GET", url, options)
            return self._ended(lambda: Response(self._core.save(settings, _target(target)), b""))

    def stream(self, url: Any, *more: Any, **options: Any) -> StreamedResponse:
        """Sends a request and returns when its head has come; the content is received while it is asked for::

            for piece in client.stream("https://example.org/log"):
                ...
            with client.stream("GET", "https://example.org/log") as response:
                for line in response.iter_lines():
                    ...

        A method other than GET goes before the URL. The arguments are those of ``get``."""
        method, url = ("GET", url) if not more else (url, *more)
        return self._stream(method.upper(), url, options)

    def get_all(
        self, urls: Iterable[Any], *, jobs: int = 8, per_host: int = 6, **options: Any
    ) -> Iterator[tuple[str, Response | Error]]:
        """Sends GET requests, ``jobs`` at a time and ``per_host`` to one host and port, and yields (URL, result) as they
        end; a result is a Response, or the Error that the call ended with::

            for url, result in client.get_all(urls, jobs=16, per_host=4):
                if isinstance(result, netrove.Response):
                    ...

        URLs are taken from ``urls`` when their time comes. The other arguments are those of ``get``; callables among
        them are called on threads of their own. An iterator that is dropped stops what still runs."""
        check = options.pop("check_status", None)

        def prepared() -> Iterator[_many.Prepared]:
            for url in urls:
                settings = self._prepared("GET", url, dict(options))
                settings.check_status = bool(self._check_status if check in (None, UNSET) else check)
                yield str(url), settings, None

        return _many.results(_netrove.Pool(self._defaults, jobs, per_host), 4 * jobs, prepared(), self._learn_cookies)

    def save_all(
        self, urls: Iterable[Any], target: Any = None, *, jobs: int = 8, per_host: int = 6, **options: Any
    ) -> Iterator[tuple[str, Response | Error]]:
        """The same as ``get_all``, but each content goes into a file, as with ``save``: ``urls`` are URLs, whose files
        go into the folder ``target``, or pairs (URL, file or folder)."""

        def prepared() -> Iterator[_many.Prepared]:
            for url, file in _many.pairs(urls, target):
                yield str(url), self._prepared("GET", url, dict(options)), _target(file)

        return _many.results(_netrove.Pool(self._defaults, jobs, per_host), 4 * jobs, prepared(), self._learn_cookies)

    async def _asend(self, method: str, url: Any, options: dict[str, Any]) -> Response:
        check = options.pop("check_status", None)
        settings = self._prepared(method, url, options)
        settings.check_status = bool(self._check_status if check in (None, UNSET) else check)
        return await self._awaited(settings, None)

    def _own_pool(self) -> _netrove.Pool:
        if self._pool is None:
            self._pool = _netrove.Pool(self._defaults, self._jobs, self._per_host)
        return self._pool

    @_call
    async def aget(self, url: Any, **options: Any) -> Response:
        """The same as ``get`` for asyncio, several at a time. Cancelled, it stops the transfer."""
        return await self._asend("GET", url, options)

    @_call
    async def ahead(self, url: Any, **options: Any) -> Response:
        """The same as ``head`` for asyncio."""
        return await self._asend("HEAD", url, options)

    def astream(self, url: Any, *more: Any, **options: Any) -> AsyncStream:
        """The same as ``stream`` for asyncio, several at a time::

            async with client.astream("https://example.org/log") as response:
                async for piece in response.aiter_bytes():
                    ...

        While the block runs the stream takes one of the client's ``jobs``; its end stops the transfer."""
        from ._astream import AsyncStream

        method, url = ("GET", url) if not more else (url, *more)
        check = options.pop("check_status", None)
        settings = self._prepared(method.upper(), url, options)
        settings.check_status = bool(self._check_status if check in (None, UNSET) else check)
        return AsyncStream(self._own_pool(), settings, self._learn_cookies)

    @_call
    async def apost(self, url: Any, **options: Any) -> Response:
        """The same as ``post`` for asyncio."""
        return await self._asend("POST", url, options)

    @_call
    async def aput(self, url: Any, **options: Any) -> Response:
        """The same as ``put`` for asyncio."""
        return await self._asend("PUT", url, options)

    @_call
    async def apatch(self, url: Any, **options: Any) -> Response:
        """The same as ``patch`` for asyncio."""
        return await self._asend("PATCH", url, options)

    @_call
    async def adelete(self, url: Any, **options: Any) -> Response:
        """The same as ``delete`` for asyncio."""
        return await self._asend("DELETE", url, options)

    @_request
    async def arequest(self, method: str, url: Any, **options: Any) -> Response:
        """The same as ``request`` for asyncio."""
        return await self._asend(method.upper(), url, options)

    @_save
    async def asave(self, url: Any, target: Any = None, **options: Any) -> Response:
        """The same as ``save`` for asyncio."""
        with _progress_of(options, url):
            return await self._awaited(self._prepared("GET", url, options), _target(target))

    def interrupt(self) -> None:
        """Ends the call under way, or the next one, within a second, with Interrupted. Any thread."""
        self._core.interrupt()

    def close(self) -> None:
        """Closes the connections, and stops what asyncio waits for; the client cannot be used any more."""
        self._core.close()
        if self._pool is not None:
            self._pool.close()

    def __enter__(self) -> Client:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    async def __aenter__(self) -> Client:
        return self

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        import asyncio  # which takes as long to load as all the rest

        await asyncio.to_thread(self.close)


def _target(target: Any) -> Path:
    from pathlib import Path

    if target is None:
        return Path(".")
    text = os.fspath(target)
    if isinstance(text, str) and text.endswith("/") and not os.path.isdir(text):
        raise FileNotFoundError(f"there is no folder {text}")
    return Path(target)


class _Own(threading.local):
    """The client of a thread for calls without one: its connections are kept for the next call."""

    client: Client | None = None
    busy = False


_own = _Own()


@contextmanager
def _any_client() -> Iterator[Client]:
    if _own.busy:  # a call from within a callback of another one
        with Client(cookies=False) as client:
            yield client
        return
    if _own.client is None or not _own.client._core.usable:
        _own.client = Client(cookies=False)
    _own.busy = True
    try:
        yield _own.client
    finally:
        _own.busy = False


def _single(name: str) -> Any:
    method = getattr(Client, name)

    def call(*arguments: Any, **options: Any) -> Any:
        if options.get("stream"):
            return getattr(Client(), name)(*arguments, **options)
        with _any_client() as client:
            return method(client, *arguments, **options)

    call.__name__ = call.__qualname__ = name
    call.__module__ = "netrove"
    call.__doc__ = method.__doc__
    call.__wrapped__ = MethodType(method.__wrapped__, Client)  # type: ignore[attr-defined]
    return call


get = _single("get")
head = _single("head")
options = _single("options")
post = _single("post")
put = _single("put")
patch = _single("patch")
delete = _single("delete")
request = _single("request")
save = _single("save")


def stream(url: Any, *more: Any, **options: Any) -> StreamedResponse:
    return Client().stream(url, *more, **options)


stream.__doc__ = Client.stream.__doc__


def get_all(
    urls: Iterable[Any], *, jobs: int = 8, per_host: int = 6, **options: Any
) -> Iterator[tuple[str, Response | Error]]:
    return Client().get_all(urls, jobs=jobs, per_host=per_host, **options)


def save_all(
    urls: Iterable[Any], target: Any = None, *, jobs: int = 8, per_host: int = 6, **options: Any
) -> Iterator[tuple[str, Response | Error]]:
    return Client().save_all(urls, target, jobs=jobs, per_host=per_host, **options)


get_all.__doc__ = Client.get_all.__doc__
save_all.__doc__ = Client.save_all.__doc__
