"""The arguments of the calls, as _client.py takes them."""

from collections.abc import Callable, Iterable, Iterator, Mapping
from os import PathLike
from types import TracebackType
from typing import Any, TypeAlias, TypedDict, overload

from typing_extensions import Unpack

from ._astream import AsyncStream
from ._cookies import Cookies, CookieTypes
from ._errors import Error
from ._headers import Headers, HeaderTypes
from ._netrove import RateLimit
from ._response import Response, StreamedResponse
from ._values import Limits, Login, Progress, Retry, Seconds

Pairs: TypeAlias = Mapping[str, Any] | Iterable[tuple[str, Any]]
Params: TypeAlias = Pairs | str
Auth: TypeAlias = Login | tuple[str, str]
Content: TypeAlias = Any
Files: TypeAlias = Mapping[str, Any] | Iterable[tuple[str, Any]]
Timeout: TypeAlias = Seconds | tuple[Seconds | None, Seconds | None]
Target: TypeAlias = str | PathLike[str]

# What a client takes for all its calls.
class Defaults(TypedDict, total=False):
    timeout: Timeout | None
    limits: Limits | None
    retry: int | Retry | None
    follow_redirects: bool | int | None
    verify: bool | str | PathLike[str] | None
    verify_name: bool | None
    proxy: str | bool | None
    proxies: Mapping[str, str | None] | None
    rate: RateLimit | None
    decode: bool | None
    compressed: bool | None
    check_status: bool | None
    progress: bool | Callable[[Progress], object] | None
    trace: Callable[[str, str], object] | None

class Options(Defaults, total=False):
    params: Params | None
    headers: HeaderTypes | None
    cookies: Mapping[str, str] | None
    auth: Auth | None
    content: Content | None
    data: Content | Pairs | None
    json: Any
    form: Pairs | None
    files: Files | None
    stream: bool
    allow_redirects: bool | int | None

class SaveOptions(Options, total=False):
    resume: bool | None
    resume_unproven: bool | None
    replace: bool | None
    keep_time: bool | None
    sha256: str | None

class Client:
    headers: Headers
    params: Any
    auth: Auth | None
    @property
    def cookies(self) -> Cookies: ...
    @cookies.setter
    def cookies(self, cookies: CookieTypes) -> None: ...
    def __init__(
        self,
        base_url: str = "",
        *,
        headers: HeaderTypes | None = ...,
        params: Params | None = ...,
        auth: Auth | None = ...,
        cookies: CookieTypes | bool | None = ...,
        jobs: int = ...,
        per_host: int = ...,
        **options: Unpack[Defaults],
    ) -> None: ...
    def get(self, url: str, **options: Unpack[Options]) -> Response: ...
    def head(self, url: str, **options: Unpack[Options]) -> Response: ...
    def options(self, url: str, **options: Unpack[Options]) -> Response: ...
    def post(self, url: str, **options: Unpack[Options]) -> Response: ...
    def put(self, url: str, **options: Unpack[Options]) -> Response: ...
    def patch(self, url: str, **options: Unpack[Options]) -> Response: ...
    def delete(self, url: str, **options: Unpack[Options]) -> Response: ...
    def request(self, method: str, url: str, **options: Unpack[Options]) -> Response: ...
    def save(self, url: str, target: Target | None = ..., **options: Unpack[SaveOptions]) -> Response: ...
    @overload
    def stream(self, url: str, **options: Unpack[Options]) -> StreamedResponse: ...
    @overload
    def stream(self, method: str, url: str, **options: Unpack[Options]) -> StreamedResponse: ...
    def get_all(
        self,
        urls: Iterable[str], *, jobs: int = ..., per_host: int = ..., **options: Unpack[Options]
    ) -> Iterator[tuple[str, Response | Error]]: ...
    def save_all(
        self,
        urls: Iterable[str] | Iterable[tuple[str, Target]],
        target: Target | None = ...,
        *,
        jobs: int = ...,
        per_host: int = ...,
        **options: Unpack[SaveOptions],
    ) -> Iterator[tuple[str, Response | Error]]: ...
    async def aget(self, url: str, **options: Unpack[Options]) -> Response: ...
    async def ahead(self, url: str, **options: Unpack[Options]) -> Response: ...
    @overload
    def astream(self, url: str, **options: Unpack[Options]) -> AsyncStream: ...
    @overload
    def astream(self, method: str, url: str, **options: Unpack[Options]) -> AsyncStream: ...
    async def apost(self, url: str, **options: Unpack[Options]) -> Response: ...
    async def aput(self, url: str, **options: Unpack[Options]) -> Response: ...
    async def apatch(self, url: str, **options: Unpack[Options]) -> Response: ...
    async def adelete(self, url: str, **options: Unpack[Options]) -> Response: ...
    async def arequest(self, method: str, url: str, **options: Unpack[Options]) -> Response: ...
    async def asave(self, url: str, target: Target | None = ..., **options: Unpack[SaveOptions]) -> Response: ...
    def interrupt(self) -> None: ...
    def close(self) -> None: ...
    def __enter__(self) -> Client: ...
    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None: ...
    async def __aenter__(self) -> Client: ...
    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None: ...

def get(url: str, **options: Unpack[Options]) -> Response: ...
def head(url: str, **options: Unpack[Options]) -> Response: ...
def options(url: str, **options: Unpack[Options]) -> Response: ...
def post(url: str, **options: Unpack[Options]) -> Response: ...
def put(url: str, **options: Unpack[Options]) -> Response: ...
def patch(url: str, **options: Unpack[Options]) -> Response: ...
def delete(url: str, **options: Unpack[Options]) -> Response: ...
def request(method: str, url: str, **options: Unpack[Options]) -> Response: ...
def save(url: str, target: Target | None = ..., **options: Unpack[SaveOptions]) -> Response: ...
@overload
def stream(url: str, **options: Unpack[Options]) -> StreamedResponse: ...
@overload
def stream(method: str, url: str, **options: Unpack[Options]) -> StreamedResponse: ...
def get_all(
    urls: Iterable[str], *, jobs: int = ..., per_host: int = ..., **options: Unpack[Options]
) -> Iterator[tuple[str, Response | Error]]: ...
def save_all(
    urls: Iterable[str] | Iterable[tuple[str, Target]],
    target: Target | None = ...,
    *,
    jobs: int = ...,
    per_host: int = ...,
    **options: Unpack[SaveOptions],
) -> Iterator[tuple[str, Response | Error]]: ...
