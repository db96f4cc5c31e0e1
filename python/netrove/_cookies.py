"""Cookies that a client keeps from one call to the next (RFC 6265)."""

from __future__ import annotations

from collections.abc import Collection, Iterator, Mapping, MutableMapping, Sequence
from email.message import Message
from http.cookiejar import Cookie, CookieJar, DefaultCookiePolicy
from threading import RLock
from typing import Any, Union
from urllib.parse import urlsplit
from urllib.request import Request

CookieTypes = Union[Mapping[str, str], CookieJar]


class _Asked(Request):
    """A request that may have cookies."""

    mine: Collection[tuple[str, str, str]] = ()  # domain, path and name of those that it gets without the jar
    given: Collection[str] = ()  # names, which the program has set itself


class _Policy(DefaultCookiePolicy):
    """No cookie is sent twice, and none that is not fit for a header field."""

    def return_ok(self, cookie: Cookie, request: Any) -> bool:
        text = f"{cookie.name}={cookie.value}"
        return (
            cookie.name not in request.given
            and (cookie.domain, cookie.path, cookie.name) not in request.mine
            and text.isascii()
            and text.isprintable()
            and super().return_ok(cookie, request)
        )


class _Answer:
    """What a jar reads."""

    def __init__(self, values: Sequence[str]) -> None:
        self._head = Message()
        for value in values:
            self._head["Set-Cookie"] = value

    def info(self) -> Message:
        return self._head


class Cookies(MutableMapping[str, str]):
    """The cookies of a client, by name. Those that servers set go where they belong: to the host, the path and the
    scheme that the server named, until they expire. Those that a program sets, ``client.cookies["name"] = "value"``, go
    with the first request of each call and its redirects on the same origin, and win over others of that name.

    Clients may share one. ``jar`` is the ``http.cookiejar.CookieJar`` of those that servers have set.

    Args:
        cookies: names and values that the program sets, or a CookieJar, whose cookies are copied.
    """

    def __init__(self, cookies: CookieTypes = {}) -> None:
        self.jar = CookieJar(_Policy(strict_domain=True))
        self._own: dict[str, str] = {}
        self._lock = RLock()
        if isinstance(cookies, CookieJar):
            for cookie in cookies:
                self.jar.set_cookie(cookie)
        else:
            self.update(cookies)

    def __getitem__(self, name: str) -> str:
        if name in self._own:
            return self._own[name]
        for cookie in self._kept():
            if cookie.name == name:
                return cookie.value or ""
        raise KeyError(name)

    def __setitem__(self, name: str, value: str) -> None:
        self._own[name] = value

    def __delitem__(self, name: str) -> None:
        kept = [cookie for cookie in self._kept() if cookie.name == name]
        if not kept and name not in self._own:
            raise KeyError(name)
        self._own.pop(name, None)
        with self._lock:
            for cookie in kept:
                self.jar.clear(cookie.domain, cookie.path, cookie.name)

    def __iter__(self) -> Iterator[str]:
        return iter(dict.fromkeys([*self._own, *(cookie.name for cookie in self._kept())]))

    def __len__(self) -> int:
        return sum(1 for _ in self)

    def __repr__(self) -> str:
        return f"Cookies({dict(self)!r})"

    def _kept(self) -> list[Cookie]:
        with self._lock:
            return list(self.jar)

    def _learn(self, url: str, values: Sequence[str]) -> Sequence[Cookie]:
        """Keeps those that the response to a request for this URL sets, and returns them."""
        asked = _Asked(url)
        with self._lock:
            cookies = self.jar.make_cookies(_Answer(values), asked)  # type: ignore[arg-type]
            for cookie in cookies:
                self.jar.set_cookie_if_ok(cookie, asked)
        return cookies

    def _field(self, url: str, mine: Collection[tuple[str, str, str]], given: Collection[str]) -> str:
        """The value of the field Cookie for a request, but for what that gets otherwise."""
        asked = _Asked(url)
        asked.mine, asked.given = mine, given
        with self._lock:
            self.jar.add_cookie_header(asked)
        return asked.get_header("Cookie", "") or ""


class Journey:
    """The requests of one call: which cookies each of them gets. What a redirect sets is learned, and the library sends
    it by itself for the rest of the attempt."""

    def __init__(self, cookies: Cookies, given: Collection[str]) -> None:
        self._cookies = cookies
        self._given = given
        self._origin = ("", "")
        self._mine: set[tuple[str, str, str]] = set()

    def field(self, url: str, redirected_by: str, set_cookies: Sequence[str]) -> str:
        origin = urlsplit(url)[:2]
        if not redirected_by:
            self._mine.clear()
            self._origin = origin
        for cookie in self._cookies._learn(redirected_by, set_cookies) if set_cookies else ():
            self._mine.add((cookie.domain, cookie.path, cookie.name))
        return self._cookies._field(url, self._mine, self._given if origin == self._origin else ())
