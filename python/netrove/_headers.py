"""Header fields, whose names are compared without regard to case."""

from __future__ import annotations

from collections.abc import Iterable, Iterator, Mapping, MutableMapping

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Union

    HeaderTypes = Union[Mapping[str, str], Iterable[tuple[str, str]]]


class Headers(MutableMapping[str, str]):
    """Fields in the order of the wire. A name may occur several times: ``headers[name]`` is all its values, joined by
    ", "; ``get_list`` has them one by one, and ``items`` each field by itself."""

    def __init__(self, fields: HeaderTypes = ()) -> None:
        pairs = fields.items() if isinstance(fields, Mapping) else fields
        self._fields = [(name, value) for name, value in pairs]

    def get_list(self, name: str) -> list[str]:
        """All values of that name, in order."""
        wanted = name.lower()
        return [value for own, value in self._fields if own.lower() == wanted]

    def multi_items(self) -> list[tuple[str, str]]:
        """All fields as (name, value), repeated names included."""
        return list(self._fields)

    def add(self, name: str, value: str) -> None:
        """Adds a field at the end, whatever is there."""
        self._fields.append((name, value))

    def __getitem__(self, name: str) -> str:
        values = self.get_list(name)
        if not values:
            raise KeyError(name)
        return ", ".join(values)

    def __setitem__(self, name: str, value: str) -> None:
        self.pop(name, None)
        self._fields.append((name, value))

    def __delitem__(self, name: str) -> None:
        wanted = name.lower()
        kept = [field for field in self._fields if field[0].lower() != wanted]
        if len(kept) == len(self._fields):
            raise KeyError(name)
        self._fields = kept

    def __iter__(self) -> Iterator[str]:
        seen = set()
        for name, _ in self._fields:
            if name.lower() not in seen:
                seen.add(name.lower())
                yield name

    def __len__(self) -> int:
        return len({name.lower() for name, _ in self._fields})

    def __contains__(self, name: object) -> bool:
        return isinstance(name, str) and any(own.lower() == name.lower() for own, _ in self._fields)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Mapping):
            return NotImplemented
        theirs = other if isinstance(other, Headers) else Headers(other)
        return {name.lower(): self[name] for name in self} == {name.lower(): theirs[name] for name in theirs}

    def __repr__(self) -> str:
        return f"Headers({self._fields!r})"
