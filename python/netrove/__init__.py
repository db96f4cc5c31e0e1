"""HTTP for Python on the library netrove.

    import netrove
    page = netrove.get("https://example.org/").text
    netrove.save("https://example.org/big.bin", "big.bin", resume=True, progress=True)
"""

from __future__ import annotations

import atexit
import os
import threading

from . import _netrove
from ._client import Client, delete, get, get_all, head, options, patch, post, put, request, save, save_all, stream
from ._errors import (
    ConnectionError,
    ConnectTimeout,
    ContentError,
    Error,
    FileError,
    HTTPStatusError,
    Interrupted,
    InvalidURL,
    NameResolutionError,
    ProxyError,
    ReadTimeout,
    RequestError,
    SSLError,
    Timeout,
    TooManyRedirects,
    UsageError,
)
from ._headers import Headers
from ._netrove import RateLimit
from ._netrove import __version__ as __version__
from ._response import Response, StreamedResponse

TYPE_CHECKING = False  # as type checkers know it; typing is slow to load
if TYPE_CHECKING:
    from json import JSONDecodeError
    from typing import Any

    from ._astream import AsyncStreamedResponse
    from ._cookies import Cookies
    from ._values import BasicAuth, DigestAuth, Limits, Login, Progress, Retry

# Names that other libraries have for these.
Session = Client
RequestException = Error
HTTPError = HTTPStatusError
ConnectError = ConnectionError
TimeoutException = Timeout

__all__ = [
    "AsyncStreamedResponse",
    "BasicAuth",
    "Client",
    "ConnectError",
    "ConnectTimeout",
    "ConnectionError",
    "ContentError",
    "Cookies",
    "DigestAuth",
    "Error",
    "FileError",
    "HTTPError",
    "HTTPStatusError",
    "Headers",
    "Interrupted",
    "InvalidURL",
    "JSONDecodeError",
    "Limits",
    "Login",
    "NameResolutionError",
    "Progress",
    "ProxyError",
    "RateLimit",
    "ReadTimeout",
    "RequestError",
    "RequestException",
    "Response",
    "Retry",
    "SSLError",
    "Session",
    "StreamedResponse",
    "Timeout",
    "TimeoutException",
    "TooManyRedirects",
    "UsageError",
    "delete",
    "get",
    "get_all",
    "head",
    "options",
    "patch",
    "post",
    "put",
    "request",
    "save",
    "save_all",
    "stream",
]


# What these need takes long to load, as do the modules that functions import when they need them.
_LATER = {
    "._astream": ["AsyncStreamedResponse"],
    "._cookies": ["Cookies"],
    "._values": ["BasicAuth", "DigestAuth", "Limits", "Login", "Progress", "Retry"],
    "json": ["JSONDecodeError"],
}


def _show(name: str) -> None:
    public = globals().get(name)
    if isinstance(public, type) and public.__module__.startswith("netrove."):
        public.__module__ = "netrove"  # what tracebacks show is what programs import


def __getattr__(name: str) -> Any:
    for module, names in _LATER.items():
        if name in names:
            from importlib import import_module

            globals()[name] = getattr(import_module(module, __name__), name)
            _show(name)
            return globals()[name]
    raise AttributeError(f"module 'netrove' has no attribute '{name}'")


def __dir__() -> list[str]:
    return sorted({*globals(), *__all__})


for _name in __all__:
    _show(_name)


def _note_main_thread() -> None:
    ident = threading.main_thread().ident
    if ident is not None:
        _netrove.set_main_thread(ident)


_note_main_thread()
os.register_at_fork(after_in_child=_note_main_thread)
atexit.register(_netrove.stop_all)
