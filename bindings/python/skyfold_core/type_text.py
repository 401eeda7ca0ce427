"""Reads the names of types in descriptions, like `optional<Picture { width: int32; pixels: bytes; }>`, and says them in Python."""

import keyword
import re

from .errors import brief

_token = re.compile(r"[A-Za-z_]\w*(?:::\w+)*|[<>{}\[\],;|:]")

_plain = {
    "bool": "bool",
    "float": "float",
    "double": "float",
    "text": "str",
    "bytes": "bytes",
    "duration": "int",
    "timestamp": "datetime.datetime",
    "value": "Any",
    "nothing": "None",
}
_integer = re.compile(r"u?int(8|16|32|64)")

_MOST_LENGTH = 100_000  # Of a text, and its depth: whoever describes itself may say anything.
_MOST_DEPTH = 50


class TypeTextError(ValueError):
    """A text that names no type."""


def python_name(name: str) -> str:
    """The last part of a C++ name, as a name in Python. TypeTextError if it is none."""
    last = name.rpartition("::")[2]
    if not last.isidentifier() or keyword.iskeyword(last) or last.startswith("__"):
        raise TypeTextError(f"{brief(name)} is no name")
    return last


class TypeReader:
    """Turns texts into annotations, and collects the structures and classes that they mention, by their names."""

    def __init__(self) -> None:
        self.structures: dict[str, str] = {}  # The source of each.
        self.objects: set[str] = set()  # Classes, by the name that they are shared as.

    def read(self, text: str, is_argument: bool = False) -> str:
        """The annotation; "Any" for a text that names no type that Python has a name for. An argument may be an own `Service`
        where an object is wanted."""
        tokens = _token.findall(text) if len(text) <= _MOST_LENGTH else []
        if "".join(tokens) != "".join(text.split()):
            return "Any"
        parser = _Parser(self, tokens, " | Service" if is_argument else "")
        try:
            annotation = parser.type(0)
            parser.take("")
        except TypeTextError:
            return "Any"
        return annotation


class _Parser:
    def __init__(self, reader: TypeReader, tokens: list[str], or_object: str) -> None:
        self._reader = reader
        self._or_object = or_object
        self._tokens = [*tokens, ""]
        self._at = 0

    @property
    def _next(self) -> str:
        return self._tokens[self._at]

    def take(self, token: str) -> None:
        if self._next != token:
            raise TypeTextError(f"expected {token or 'the end'!r} of a type, got {brief(self._next)}")
        self._at += 1

    def _name(self) -> str:
        name = self._next
        if not name or not (name[0].isalpha() or name[0] == "_"):
            raise TypeTextError(f"expected a name, got {name!r}")
        self._at += 1
        return name

    def type(self, depth: int) -> str:
        if depth > _MOST_DEPTH:
            raise TypeTextError("a type that is nested too deeply")
        name = self._name()
        if self._next == "<":
            return self._generic(name, depth)
        if self._next in ("{", "["):
            return self._structure(python_name(name), depth)
        if name == "object" and self._next and (self._next[0].isalpha() or self._next[0] == "_"):
            shared = self._name()
            self._reader.objects.add(shared)
            return python_name(shared) + self._or_object
        if name == "object":
            return "Reference" + self._or_object
        if _integer.fullmatch(name):
            return "int"
        return _plain.get(name) or python_name(name)  # A structure inside of itself.

    def _generic(self, name: str, depth: int) -> str:
        self.take("<")
        parts = [self.type(depth + 1)]
        while self._next == ",":
            self.take(",")
            parts.append(self.type(depth + 1))
        self.take(">")
        if name == "optional" and len(parts) == 1:
            return f"{parts[0]} | None"
        if name == "variant":  # The number of the alternative, and its value.
            return f"tuple[int, {' | '.join(dict.fromkeys(parts))}]"
        if name in ("list", "map", "tuple"):
            return f"{'dict' if name == 'map' else name}[{', '.join(parts)}]"
        raise TypeTextError(f"{brief(name)} is no container")

    def _structure(self, name: str, depth: int) -> str:
        if self._next == "[":
            types = [kind for _, kind in self._fields("[", "]", depth)]
            return f"tuple[{', '.join(types) or '()'}]"
        if self._tokens[min(self._at + 2, len(self._tokens) - 1)] in ("|", "}"):
            return self._enumeration()
        fields = self._fields("{", "}", depth)
        lines = [f"    {python_name(field)}: {kind}" for field, kind in fields] or ["    pass"]
        self._reader.structures[name] = "\n".join([f"class {name}(TypedDict, total=False):", *lines])
        return name

    def _enumeration(self) -> str:
        names = []
        self.take("{")
        while self._next != "}":
            names.append(self._name())
            if self._next == "|":
                self.take("|")
        self.take("}")
        return f"Literal[{', '.join(repr(name) for name in names)}]"

    def _fields(self, begin: str, end: str, depth: int) -> list[tuple[str, str]]:
        fields = []
        self.take(begin)
        while self._next != end:
            name = self._name()
            self.take(":")
            fields.append((name, self.type(depth + 1)))
            self.take(";")
        self.take(end)
        return fields
