"""What is asked for, and how: arguments of calls as settings of the library."""

from __future__ import annotations

import math
import os
from collections.abc import Callable, Mapping

from . import _bodies, _netrove
from ._errors import UsageError
from ._headers import Headers

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

    from ._values import Limits, Progress, Seconds


class _Unset:
    def __repr__(self) -> str:
        return "..."


UNSET: Any = _Unset()


def seconds(value: Seconds) -> float:
    """As a number; infinity for no limit."""
    number = value.total_seconds() if hasattr(value, "total_seconds") else float(value)
    if math.isnan(number):
        raise ValueError("a time is a number of seconds or a timedelta")
    return number


def _set_limits(to: _netrove.Settings, limits: Limits) -> None:
    for name in ("connect", "response", "data", "attempt", "total"):
        if (value := getattr(limits, name)) is not None:
            setattr(to, name, seconds(value))
    for name in ("memory", "content"):
        if (value := getattr(limits, name)) is not None:
            setattr(to, name, min(value, 2**63) if value != math.inf else 2**63)


def _set_timeout(to: _netrove.Settings, timeout: Any) -> None:
    if isinstance(timeout, tuple):
        connect, rest = timeout
    else:
        connect = rest = timeout
    to.connect = math.inf if connect is None else seconds(connect)
    to.response = to.data = math.inf if rest is None else seconds(rest)


def _set_auth(to: _netrove.Settings, auth: Any) -> None:
    if isinstance(auth, tuple):
        from ._values import Login

        auth = Login(*auth)
    to.login(auth.user, auth.password, auth.bearer, list(auth.schemes))


def _set_retry(to: _netrove.Settings, retry: Any) -> None:
    if isinstance(retry, int):
        from ._values import Retry

        retry = Retry(attempts=retry)
    for name, own in (
        ("attempts", "attempts"),
        ("unsafe", "retry_unsafe"),
        ("any", "retry_any"),
    ):
        if (value := getattr(retry, name)) is not None:
            setattr(to, own, value)
    if retry.wait is not None:
        to.retry_wait = seconds(retry.wait)
    if retry.longest_wait is not None:
        to.retry_longest_wait = seconds(retry.longest_wait)
    if retry.statuses is not None:
        to.retry_statuses = list(retry.statuses)


def _set_redirects(to: _netrove.Settings, follow: bool | int) -> None:
    if follow is not True:
        to.redirects = int(follow)


def _set_verify(to: _netrove.Settings, verify: Any) -> None:
    if isinstance(verify, (str, os.PathLike)):
        to.authorities = os.fspath(verify)
    else:
        to.verify = bool(verify)


def _set_cookies(to: _netrove.Settings, cookies: Mapping[str, str]) -> None:
    to.field("Cookie", "; ".join(f"{name}={value}" for name, value in cookies.items()))


def _set_proxy(to: _netrove.Settings, proxy: str | bool) -> None:
    if isinstance(proxy, str):
        to.proxy = proxy
    else:
        to.system_proxy = proxy


def _set_progress(to: _netrove.Settings, progress: Callable[[Progress], object]) -> None:
    from ._values import Progress

    to.progress = lambda *counts: progress(Progress(*counts))


def _set_plainly(name: str) -> Callable[[_netrove.Settings, Any], None]:
    return lambda to, value: setattr(to, name, value)


# By the name of the argument. None says nothing, but for `timeout`.
_SETTERS: dict[str, Callable[[_netrove.Settings, Any], None]] = {
    "cookies": _set_cookies,
    "auth": _set_auth,
    "limits": _set_limits,
    "timeout": _set_timeout,
    "retry": _set_retry,
    "follow_redirects": _set_redirects,
    "verify": _set_verify,
    "verify_name": _set_plainly("verify_name"),
    "proxy": _set_proxy,
    "rate": _set_plainly("rate"),
    "decode": _set_plainly("decode"),
    "compressed": _set_plainly("compressed"),
    "check_status": _set_plainly("check_status"),
    "progress": _set_progress,
    "trace": _set_plainly("trace"),
    "resume": _set_plainly("resume"),
    "resume_unproven": _set_plainly("resume_unproven"),
    "replace": _set_plainly("replace"),
    "keep_time": _set_plainly("keep_time"),
    "sha256": _set_plainly("sha256"),
}

# Names that other libraries have for these.
_OTHER_NAMES = {"allow_redirects": "follow_redirects"}


def _proxy_of(proxies: Mapping[str, str | None], url: str) -> str | bool | None:
    """What requests calls `proxies`: by scheme, with or without "://", or for all."""
    scheme = url.partition("://")[0].lower()
    for key in (scheme, scheme + "://", "all", "all://"):
        if key in proxies:
            return proxies[key] or False
    return None


def apply(to: _netrove.Settings, options: Mapping[str, Any]) -> None:
    """Sets what the arguments of a call say."""
    for name, value in options.items():
        setter = _SETTERS.get(_OTHER_NAMES.get(name, name))
        if setter is None:
            raise TypeError(f"there is no argument '{name}'")
        if value is UNSET or (value is None and name != "timeout"):
            continue
        setter(to, value)


def with_params(url: str, params: Any) -> str:
    """The URL with further names and values in its query."""
    if params is None:
        return url
    if not isinstance(params, str):
        from urllib.parse import urlencode

        params = urlencode(_bodies.pairs(params))
    query: str = params
    if not query:
        return url
    url, mark, fragment = url.partition("#")
    return url + ("&" if "?" in url else "?") + query + mark + fragment


def request(
    method: str, url: Any, defaults: Mapping[str, Any], options: dict[str, Any]
) -> _netrove.Settings:
    """The settings of one call. `defaults` are those of the client that may have been changed since it was made."""
    to = _netrove.Settings()
    to.method = method
    if not options and not defaults:
        to.url = str(url)
        return to
    params = options.pop("params", None)
    url = with_params(str(url), defaults.get("params"))
    to.url = url = with_params(url, params)
    headers = options.pop("headers", None)
    for name, value in Headers(headers or ()).multi_items():
        to.field(name, value)
    given = {name: options.pop(name, None) for name in ("content", "data", "form", "files")}
    json = options.pop("json", UNSET)
    has_json = json is not UNSET and json is not None
    if (content := _bodies.body(json=json, has_json=has_json, **given)) is not None:
        to.body = content
    if (proxies := options.pop("proxies", None)) is not None and options.get("proxy") is None:
        options["proxy"] = _proxy_of(proxies, url)
    if options.get("auth") is None and defaults.get("auth") is not None:
        options["auth"] = defaults["auth"]
    apply(to, options)
    return to
