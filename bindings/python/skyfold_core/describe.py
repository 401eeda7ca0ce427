"""What a service declares, as `ipc.describe` tells it, and how Python's types are named there."""

from __future__ import annotations

import dataclasses
import datetime
import fractions
import types
import typing
from enum import Enum
from typing import TYPE_CHECKING, Any

from .reference import Reference
from .values import Fraction, TypedBytes

if TYPE_CHECKING:
    from .service import Method, Service

_names = {
    bool: "bool",
    int: "int64",
    float: "double",
    str: "text",
    bytes: "bytes",
    type(None): "nothing",
    datetime.datetime: "timestamp",
    datetime.timedelta: "duration",
    Reference: "object",
    Fraction: "value",
    fractions.Fraction: "value",
    TypedBytes: "value",
}


def type_name(kind: Any, inside: tuple[Any, ...] = ()) -> str:
    """The name of a Python type in descriptions; "value" for what can be anything."""
    if kind is None:
        return "nothing"
    if (name := _names.get(kind) if isinstance(kind, type) else None) is not None:
        return name
    origin, arguments = typing.get_origin(kind), typing.get_args(kind)
    if origin in (typing.Union, types.UnionType):
        rest = [each for each in arguments if each is not type(None)]
        return f"optional<{type_name(rest[0], inside)}>" if len(rest) == 1 and len(arguments) == 2 else "value"
    if origin in (list, set, frozenset) or (origin is tuple and arguments[1:] == (Ellipsis,)):
        return f"list<{type_name(arguments[0], inside)}>"
    if origin in (dict, tuple):
        kind_name = "map" if origin is dict else "tuple"
        return f"{kind_name}<{', '.join(type_name(each, inside) for each in arguments)}>"
    if isinstance(kind, type):
        return _class_name(kind, inside)
    return "value"


def _class_name(kind: type, inside: tuple[Any, ...]) -> str:
    from .service import Service

    if issubclass(kind, (Reference, Service)):
        return f"object {kind._class_name}"
    if issubclass(kind, Enum):
        return f"{kind.__name__} {{ {' | '.join(member.name for member in kind)} }}"
    if dataclasses.is_dataclass(kind):
        if kind in inside:
            return kind.__name__
        hints = typing.get_type_hints(kind)
        fields = (f"{f.name}: {type_name(hints[f.name], (*inside, kind))};" for f in dataclasses.fields(kind))
        return f"{kind.__name__} {{ {' '.join(fields)} }}"
    return "value"


def describe_service(service: type[Service]) -> dict[str, Any]:
    """The answer to `ipc.describe`."""
    description: dict[str, Any] = {"interface": service._class_name}
    parts = {
        "methods": {name: _describe_method(method) for name, method in service._methods.items()},
        "events": {name: [type_name(kind) for kind in event.types] for name, event in service._events.items()},
        "properties": {name: type_name(each.type) for name, each in service._properties.items()},
    }
    description.update((kind, members) for kind, members in parts.items() if members)
    return description


def _describe_method(method: Method) -> dict[str, Any]:
    hints = method.hints
    if method.takes_map:
        arguments = ["map<text, value>"]
    else:
        arguments = [type_name(hints.get(p.name, Any)) for p in method.parameters if p.kind is not p.KEYWORD_ONLY]
    return {"arguments": arguments, "result": type_name(hints.get("return", Any))}
