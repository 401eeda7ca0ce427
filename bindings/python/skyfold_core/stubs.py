"""Declarations of the members of objects, for type checkers, made from what the objects say of themselves."""

from typing import Any

from .errors import brief
from .type_text import TypeReader, TypeTextError, python_name

_HEAD = '''"""Made by `python3 -m skyfold_core stubs`. Each class can be given to `worker.find()`."""

from __future__ import annotations

import datetime
from typing import Any, Literal, TypedDict

from skyfold_core import Reference, RemoteEvent, RemoteMethod, RemoteProperty, Service'''


def module_of(descriptions: list[Any]) -> str:
    """The text of a module with a class for each of them, which is one for Python and for type checkers (.py and .pyi).

    TypeTextError for a description that is none.
    """
    reader = TypeReader()
    classes: dict[str, str] = {}
    for description in descriptions:
        if not isinstance(description, dict) or not isinstance(shared := description.get("interface"), str):
            raise TypeTextError(f"{brief(description)} describes no object")
        classes[shared] = _class(reader, shared, description)
    for shared in sorted(reader.objects - set(classes)):
        classes[shared] = _class(reader, shared, {})
    return "\n\n\n".join([_HEAD, *reader.structures.values(), *classes.values()]) + "\n"


def _class(reader: TypeReader, shared: str, description: dict[str, Any]) -> str:
    name = python_name(shared)
    lines = [f"class {name}(Reference, class_name={shared!r}):"]
    for member, types in _part(description, "methods"):
        if not isinstance(types, dict):
            raise TypeTextError(f"{brief(member)} is described by no map")
        arguments = ", ".join(_types(reader, types.get("arguments"), True))
        result = _types(reader, [types.get("result")])[0]
        lines.append(f"    {member}: RemoteMethod[[{arguments}], {result}]")
    for member, types in _part(description, "events"):
        kinds = _types(reader, types)
        carried = kinds[0] if len(kinds) == 1 else f"tuple[{', '.join(kinds)}]" if kinds else "None"
        lines.append(f"    {member}: RemoteEvent[{carried}]")
    for member, kind in _part(description, "properties"):
        lines.append(f"    {member}: RemoteProperty[{_types(reader, [kind])[0]}]")
    return "\n".join(lines if len(lines) > 1 else [*lines, "    pass"])


def _part(description: dict[str, Any], kind: str) -> list[tuple[str, Any]]:
    members = description.get(kind, {})
    if not isinstance(members, dict) or not all(isinstance(name, str) for name in members):
        raise TypeTextError(f"the {kind} of an object are no map")
    return [(python_name(name), members[name]) for name in sorted(members) if not name.startswith("_")]


def _types(reader: TypeReader, texts: Any, are_arguments: bool = False) -> list[str]:
    if not isinstance(texts, list) or not all(isinstance(text, str) for text in texts):
        raise TypeTextError(f"{brief(texts)} are no types")
    return [reader.read(text, are_arguments) for text in texts]
