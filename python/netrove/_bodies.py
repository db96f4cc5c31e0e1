"""Content of requests."""

from __future__ import annotations

import io
import os
from collections.abc import Callable, Iterable, Iterator, Mapping

from . import _netrove
from ._errors import UsageError

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any, Union

    Pairs = Union[Mapping[str, Any], Iterable[tuple[str, Any]]]

_PIECE = 262144  # bytes that are read from a file at a time
_BINARY = "application/octet-stream"


def pairs(values: Pairs) -> list[tuple[str, str]]:
    """Names and values as text: a list gives its name to each value, and None is left out."""
    result = []
    for name, value in values.items() if isinstance(values, Mapping) else values:
        many = isinstance(value, Iterable) and not isinstance(value, (str, bytes, bytearray))
        for single in value if many else (value,):
            if single is not None:
                result.append((_text(name), _text(single)))
    return result


def _text(value: Any) -> str:
    if isinstance(value, bool):
        return "true" if value else "false"
    return value.decode() if isinstance(value, (bytes, bytearray)) else str(value)


def _is_buffer(value: Any) -> bool:
    try:
        memoryview(value)
    except TypeError:
        return False
    return True


def _file_pieces(file: Any) -> Callable[[], Iterator[Any]]:
    start = file.tell() if _seekable(file) else None

    def pieces() -> Iterator[Any]:
        if start is not None:
            file.seek(start)
        while piece := file.read(_PIECE):
            yield piece

    return pieces


def _seekable(file: Any) -> bool:
    return bool(getattr(file, "seekable", lambda: False)())


def _file_length(file: Any) -> int | None:
    if not _seekable(file) or isinstance(file, io.TextIOBase):
        return None
    start = file.tell()
    end = file.seek(0, os.SEEK_END)
    file.seek(start)
    return int(end - start)


def raw(value: Any, content_type: str = "") -> _netrove.Body:
    """What is sent as it is: bytes and everything with a buffer, text in UTF-8, open files from where they stand, paths,
    and whatever can be iterated over, piece by piece. A generator can be sent once; other iterables start anew."""
    if isinstance(value, str):
        return _netrove.text_body(value, content_type)
    if isinstance(value, _netrove.Body):
        return value
    if _is_buffer(value):
        return _netrove.buffer_body(value, content_type)
    if isinstance(value, os.PathLike):
        from pathlib import Path

        return _netrove.file_body(Path(value), content_type)
    if hasattr(value, "read"):
        return _netrove.pieces_body(_file_pieces(value), _file_length(value), _seekable(value), content_type)
    if callable(value):
        return _netrove.pieces_body(lambda: iter(value()), None, True, content_type)
    if isinstance(value, Iterable):
        return _netrove.pieces_body(lambda: iter(value), None, not isinstance(value, Iterator), content_type)
    raise TypeError(f"content is bytes, text, a file, a path or an iterable, not {type(value).__name__}")


def _is_pairs(value: Any) -> bool:
    if isinstance(value, Mapping):
        return True
    return isinstance(value, (list, tuple)) and all(isinstance(item, tuple) and len(item) == 2 for item in value)


def _part(name: str, value: Any) -> tuple[str, _netrove.Body, str]:
    """A file of a form: its content, or (filename, content) or (filename, content, type)."""
    filename = kind = None
    if isinstance(value, tuple):
        if not 2 <= len(value) <= 3:
            raise TypeError("a file of a form is its content, (filename, content) or (filename, content, type)")
        filename, kind = value[0], value[2] if len(value) == 3 else None
        value = value[1]
    if filename is None:
        own = value if isinstance(value, os.PathLike) else getattr(value, "name", None)
        filename = os.path.basename(os.fspath(own)) if isinstance(own, (str, os.PathLike)) else name
    if kind is None:
        import mimetypes

        kind = mimetypes.guess_type(filename)[0] or _BINARY
    return name, raw(value, kind), filename


def body(content: Any, data: Any, json: Any, form: Any, files: Any, has_json: bool) -> _netrove.Body | None:
    """The body of a request by its arguments; None where there is none."""
    if data is not None and (_is_pairs(data) or files is not None):
        if form is not None:
            raise UsageError("the form of this call is given twice: by form and by data", kind="usage")
        form, data = data, None
    kinds = [
        name
        for name, given in [
            ("content", content is not None),
            ("data", data is not None),
            ("json", has_json),
            ("form", form is not None or files is not None),
        ]
        if given
    ]
    if len(kinds) > 1:
        raise UsageError(f"the content of this call is given twice: by {kinds[0]} and by {kinds[1]}", kind="usage")
    if has_json:
        import json as encoder

        text = encoder.dumps(json, ensure_ascii=False, allow_nan=False, separators=(",", ":"))
        return _netrove.text_body(text, "application/json")
    if files is not None:
        items = files.items() if isinstance(files, Mapping) else files
        texts = [(name, _netrove.text_body(value, "text/plain;charset=utf-8"), "") for name, value in pairs(form or {})]
        return _netrove.multipart_body(texts + [_part(name, value) for name, value in items])
    if form is not None:
        return _netrove.form_body(pairs(form))
    if content is not None or data is not None:
        return raw(content if content is not None else data)
    return None
