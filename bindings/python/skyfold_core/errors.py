"""Exceptions that cross processes: each has a class of the same name on the other side, a message and details."""

import os
import reprlib
import traceback
from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any, ClassVar

_classes: dict[str, type["Error"]] = {}


_brief = reprlib.Repr()
_brief.maxlevel, _brief.maxstring, _brief.maxother = 3, 60, 60
brief = _brief.repr
"""The text of a value for people, of bounded length and depth whatever the value is."""


@dataclass(frozen=True, slots=True)
class Frame:
    """One place of a stack trace of another process. What it does not know is empty or 0."""

    symbol: str = ""
    file: str = ""
    line: int = 0
    module: str = ""
    address: int = 0


class Error(Exception):
    """A failure with a message and details, which is the same on both sides of a call.

    A class of one's own has the name that its C++ counterpart has, whose ending "Exception" may be "Error" or missing here:
    `class OverdrawnError(Error)` is the C++ `OverdrawnException`. `wire_name="..."` says another one. One that nobody declares
    here arrives as the nearest there is, this class, with its name in `class_name`.

    `error_code`, `errno`, `uv_errno` and `win_error` are numbers of 32 bits; `stack_trace` is that of the process that failed.
    """

    wire_name: ClassVar[str] = "RuntimeException"

    # What a derived class whose constructor calls no other leaves out.
    message: str = ""
    detail: str | None = None
    path: str | None = None
    errno: int | None = None
    uv_errno: int | None = None
    win_error: int | None = None
    error_code: int | None = None
    stack_trace: Sequence[Frame] = ()
    class_name: str = wire_name

    def __init_subclass__(cls, wire_name: str = "", **others: Any) -> None:
        super().__init_subclass__(**others)
        base = cls.__name__.removesuffix("Exception").removesuffix("Error")
        cls.wire_name = cls.class_name = wire_name or base + "Exception"
        _classes[cls.wire_name] = cls

    def __init__(
        self,
        message: str = "",
        *,
        detail: str | None = None,
        path: str | None = None,
        errno: int | None = None,
        uv_errno: int | None = None,
        win_error: int | None = None,
        error_code: int | None = None,
    ) -> None:
        super().__init__(message)
        self.message = str(message)
        self.detail = detail
        self.path = path
        self.errno = errno
        self.uv_errno = uv_errno
        self.win_error = win_error
        self.error_code = error_code

    def __str__(self) -> str:
        return self.message or " ".join(map(str, self.args))


class RangeError(Error, ValueError):
    """A value is missing, out of range or of another kind."""


class NullPointerError(Error):
    """A reference that refers to nothing was used."""


class DataFormatError(Error, ValueError):
    """Bytes, texts or arguments that do not follow their format."""


class EndOfStreamError(Error):
    """Something ended early."""


class InputOutputError(Error, wire_name="IOException"):
    """The system refused an operation: `errno` or `uv_errno` say why."""


class FileError(InputOutputError):
    """... on the file `path`."""


class OperationTimedOut(Error, TimeoutError):  # type: ignore[misc]
    """A call, a look-up or a connection took longer than its caller waits."""


class Ended(Error):
    """The object that was asked has ended. That is to be expected: a call that nobody awaits does not log it."""


class PromiseLost(Error):
    """A service has forgotten a call."""


class ObjectDead(Ended):
    """The worker of an object has gone, and the object with it."""


class ConnectionFailed(Error, ConnectionError):  # type: ignore[misc]
    """There is no hub, or it does not speak as hubs do."""


_details: dict[str, tuple[str, type[str] | type[int]]] = {
    "DETAIL": ("detail", str),
    "PATH": ("path", str),
    "ERRNO": ("errno", int),
    "UV_ERRNO": ("uv_errno", int),
    "WIN_ERROR": ("win_error", int),
    "ERROR_CODE": ("error_code", int),
}
_MOST_FRAMES = 64  # Of a stack trace that is sent.
_HERE = os.path.dirname(__file__)


def record_of(error: BaseException) -> dict[str, Any]:
    """What travels of an exception. One that is no `Error` is a RuntimeException whose message names its class."""
    if isinstance(error, Error):
        record: dict[str, Any] = {"CLASS_NAME": error.class_name, "MESSAGE": str(error), "TYPE": "FN_EXCEPTION"}
        for key, (name, _) in _details.items():
            value = getattr(error, name)
            if isinstance(value, str) or (isinstance(value, int) and -(1 << 31) <= value < 1 << 32):
                record[key] = value
    else:
        text = f"{type(error).__name__}: {error}" if str(error) else type(error).__name__
        record = {"CLASS_NAME": Error.wire_name, "MESSAGE": text, "TYPE": "FN_EXCEPTION"}
    places = [f for f in traceback.extract_tb(error.__traceback__) if os.path.dirname(f.filename) != _HERE]
    if frames := places[-_MOST_FRAMES:]:
        record["STACK_TRACE"] = [
            {"address": 0, "moduleName": "", "symbolName": f.name, "fileName": f.filename, "fileLine": f.lineno or 0}
            for f in reversed(frames)
        ]
    return record


def from_record(record: Any) -> Error:
    """The exception that a CALL_ERROR tells of. Whatever was sent gives one."""
    if not isinstance(record, dict) or record.get("TYPE") != "FN_EXCEPTION":
        return Error(record if isinstance(record, str) else brief(record))
    name = record.get("CLASS_NAME")
    name = name if isinstance(name, str) else ""
    message = record.get("MESSAGE")
    error = _new(_classes.get(name, Error), message if isinstance(message, str) else "")
    error.class_name = name or Error.wire_name
    for key, (attribute, kind) in _details.items():
        value = record.get(key)
        if type(value) is kind:
            setattr(error, attribute, value)
    error.stack_trace = _frames(record.get("STACK_TRACE"))
    return error


def _new(cls: type[Error], message: str) -> Error:
    """A class of the application's may have a constructor of its own, which is not called."""
    error = cls.__new__(cls, message)  # type: ignore[call-arg]
    Error.__init__(error, message)
    return error


def _frames(trace: Any) -> list[Frame]:
    def of(frame: dict[str, Any], key: str, default: Any) -> Any:
        value = frame.get(key)
        return value if type(value) is type(default) else default

    if not isinstance(trace, list):
        return []
    return [
        Frame(of(f, "symbolName", ""), of(f, "fileName", ""), of(f, "fileLine", 0), of(f, "moduleName", ""), of(f, "address", 0))
        for f in trace
        if isinstance(f, dict)
    ]


_classes["RuntimeException"] = _classes["Exception"] = Error
