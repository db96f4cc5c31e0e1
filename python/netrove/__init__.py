"""HTTP for Python on the library netrove.

    import netrove
    page = netrove.get("https://example.org/").text
    netrove.save("https://example.org/big.bin", "big.bin", resume=True, progress=True)
"""

from __future__ import annotations

import atexit
import os
import threading
from typing import TYPE_CHECKING, Any

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
from ._settings import BasicAuth, DigestAuth, Limits, Login, Progress, Retry

if TYPE_CHECKING:
    from json import JSONDecodeError

    from ._astream import AsyncStreamedResponse
    from ._cookies import Cookies

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


def __getattr__(name: str) -> Any:
    # What these need takes long to load, as do the modules that functions import when they need them.
    if name == "Cookies":
        from ._cookies import Cookies

        return Cookies
    if name == "AsyncStreamedResponse":
        from ._astream import AsyncStreamedResponse

        return AsyncStreamedResponse
    if name == "JSONDecodeError":
        from json import JSONDecodeError

        return JSONDecodeError
    raise AttributeError(f"module 'netrove' has no attribute '{name}'")


for _name in __all__:
    _public = globals().get(_name)
    if isinstance(_public, type) and _public.__module__.startswith("netrove."):
        _public.__module__ = "netrove"  # what tracebacks show is what programs import


def _note_main_thread() -> None:
    ident = threading.main_thread().ident
    if ident is not None:
        _netrove.set_main_thread(ident)


_note_main_thread()
os.register_at_fork(after_in_child=_note_main_thread)
atexit.register(_netrove.stop_all)
