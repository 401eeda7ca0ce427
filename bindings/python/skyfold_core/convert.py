"""Turns what came into what a service's annotations say, or says why it does not fit."""

from __future__ import annotations

import dataclasses
import datetime
import types
import typing
from collections.abc import Callable
from enum import Enum
from typing import Any

from .errors import DataFormatError, brief
from .reference import Reference

Converter = Callable[[Any], Any]
"""Gives the value, or raises `Mismatch`."""


class Mismatch(Exception):
    """`path` leads from the argument to the value that did not fit."""

    def __init__(self, expected: str, got: Any, path: str = "") -> None:
        super().__init__(expected)
        self.expected = expected
        self.got = got
        self.path = path


def itself(value: Any) -> Any:
    return value


def describe_mismatch(place: str, mismatch: Mismatch) -> DataFormatError:
    return DataFormatError(f"{place}{mismatch.path}: expected {mismatch.expected}, got {brief(mismatch.got)}")


def converter(kind: Any, inside: tuple[Any, ...] = ()) -> Converter:
    """For an annotation; `itself` for one that says nothing of what travels."""
    if isinstance(kind, type) and (exact := _exact.get(kind)) is not None:
        return exact
    origin, arguments = typing.get_origin(kind), typing.get_args(kind)
    if origin in (typing.Union, types.UnionType):
        rest = [each for each in arguments if each is not type(None)]
        if len(rest) == 1 and len(rest) < len(arguments):
            one = converter(rest[0], inside)
            return itself if one is itself else lambda value: None if value is None else one(value)
    elif origin in (list, set, frozenset) or (origin is tuple and arguments[1:] == (Ellipsis,)):
        return _elements(origin, converter(arguments[0], inside))
    elif origin is dict:
        return _entries(converter(arguments[0], inside), converter(arguments[1], inside))
    elif origin is tuple:
        return _tuple([converter(each, inside) for each in arguments])
    elif isinstance(kind, type) and issubclass(kind, Enum):
        return _enumeration(kind)
    elif isinstance(kind, type) and issubclass(kind, Reference):
        return _reference(kind)
    elif isinstance(kind, type) and dataclasses.is_dataclass(kind) and kind not in inside:
        return _structure(kind, inside)
    return itself


def _of(kind: type, expected: str) -> Converter:
    def convert(value: Any) -> Any:
        if type(value) is not kind:
            raise Mismatch(expected, value)
        return value

    return convert


def _float(value: Any) -> float:
    if type(value) is int or type(value) is float:
        return float(value)
    raise Mismatch("a number", value)


def _duration(value: Any) -> datetime.timedelta:
    return datetime.timedelta(microseconds=_exact[int](value))


_exact: dict[type, Converter] = {
    bool: _of(bool, "a boolean"),
    int: _of(int, "an integer"),
    str: _of(str, "a text"),
    bytes: _of(bytes, "bytes"),
    float: _float,
    datetime.timedelta: _duration,
    datetime.datetime: _of(datetime.datetime, "a time stamp"),
}


def _within(path: str, one: Converter, value: Any) -> Any:
    try:
        return one(value)
    except Mismatch as mismatch:
        mismatch.path = path + mismatch.path
        raise


def _elements(container: type, one: Converter) -> Converter:
    def convert(value: Any) -> Any:
        if type(value) is not list:
            raise Mismatch("an array", value)
        elements = value if one is itself else [_within(f", element {i}", one, each) for i, each in enumerate(value)]
        return elements if container is list else container(elements)

    return convert


def _entries(key: Converter, one: Converter) -> Converter:
    def convert(value: Any) -> Any:
        if type(value) is not dict:
            raise Mismatch("a map", value)
        return {key(name): _within(f", field {name}", one, each) for name, each in value.items()}

    return convert


def _tuple(all_of: list[Converter]) -> Converter:
    def convert(value: Any) -> Any:
        if type(value) is not list or len(value) != len(all_of):
            raise Mismatch(f"an array of {len(all_of)}", value)
        return tuple(_within(f", element {i}", one, each) for i, (one, each) in enumerate(zip(all_of, value)))

    return convert


def _enumeration(kind: type[Enum]) -> Converter:
    def convert(value: Any) -> Any:
        if type(value) is not str or value not in kind.__members__:
            raise Mismatch(f"a name of {kind.__name__} ({' | '.join(kind.__members__)})", value)
        return kind[value]

    return convert


def _reference(kind: type[Reference]) -> Converter:
    def convert(value: Any) -> Any:
        if not isinstance(value, kind):
            raise Mismatch("an object", value)
        return value

    return convert


def _structure(kind: type, inside: tuple[Any, ...]) -> Converter:
    """Entries that are unknown are passed over, and missing ones keep their default."""
    hints = typing.get_type_hints(kind)
    fields = {f.name: converter(hints[f.name], (*inside, kind)) for f in dataclasses.fields(kind) if f.init}

    def convert(value: Any) -> Any:
        if type(value) is not dict:
            raise Mismatch("a map", value)
        known = {name: _within(f", field {name}", fields[name], each) for name, each in value.items() if name in fields}
        try:
            return kind(**known)
        except TypeError:
            raise Mismatch(f"a map with all fields of {kind.__name__}", value) from None

    return convert
