"""Values as they travel: which Python types they are, and how the few that MessagePack lacks are written."""

import dataclasses
import datetime
import fractions
from collections.abc import Callable
from enum import Enum
from typing import Any

import msgpack

from .errors import DataFormatError, Error, RangeError

OBJECT = 1  # Extension types inside of a payload.
FRACTION = 2
TYPED_BYTES = 3


@dataclasses.dataclass(frozen=True, slots=True)
class Fraction:
    """Two signed numbers of 32 bits, as they are: not reduced, and a denominator of 0 marks an invalid one."""

    numerator: int = 0
    denominator: int = 0

    def __float__(self) -> float:
        return self.numerator / self.denominator if self.denominator else 0.0


@dataclasses.dataclass(frozen=True, slots=True)
class TypedBytes:
    """Bytes with their MIME type, which is empty where nobody knows it."""

    data: bytes
    mime_type: str = ""


def encode_plain(value: Any) -> Any:
    """What stands for a value that MessagePack does not know. TypeError for one that does not travel."""
    if type(value) is int:
        raise RangeError(f"A whole number of {value.bit_length()} bits can not be sent: from -2**63 to 2**64 - 1 they travel")
    if isinstance(value, Enum):
        return value.name
    if isinstance(value, (Fraction, fractions.Fraction)):
        return msgpack.ExtType(FRACTION, _fraction(value))
    if isinstance(value, TypedBytes):
        data = msgpack.packb(value.mime_type) + msgpack.packb(bytes(value.data))
        return msgpack.ExtType(TYPED_BYTES, data)
    if isinstance(value, datetime.timedelta):
        return value // datetime.timedelta(microseconds=1)
    if isinstance(value, datetime.datetime):
        raise TypeError("a datetime without a time zone does not say which moment it is")
    if dataclasses.is_dataclass(value) and not isinstance(value, type):
        return {field.name: getattr(value, field.name) for field in dataclasses.fields(value)}
    # Subclasses of what MessagePack knows.
    if isinstance(value, (list, tuple, set, frozenset)):
        return list(value)
    for kind in (dict, str, int, float, bytes):
        if isinstance(value, kind):
            return kind(value)
    raise TypeError(f"a value of {type(value).__module__}.{type(value).__qualname__} does not travel")


def _fraction(value: Fraction | fractions.Fraction) -> bytes:
    numbers = (value.numerator, value.denominator)
    for number in numbers:
        if not -(1 << 31) <= number < 1 << 31:
            raise RangeError(f"a part of the fraction {numbers[0]}/{numbers[1]} does not fit 32 bits")
    return b"".join(map(msgpack.packb, numbers))


def decode_plain(code: int, data: bytes) -> Any:
    """The value of an extension but an object; of an unknown one `msgpack.ExtType`, which can be sent on."""
    if code == FRACTION:
        numerator, denominator = _two(data, int)
        for number in (numerator, denominator):
            if not -(1 << 31) <= number < 1 << 31:
                raise DataFormatError("a part of a fraction does not fit 32 bits")
        return Fraction(numerator, denominator)
    if code == TYPED_BYTES:
        mime_type, content = _two(data, str, bytes)
        return TypedBytes(content, mime_type)
    return msgpack.ExtType(code, data) if code >= 0 else None


def _two(data: bytes, first: type, second: type | None = None) -> tuple[Any, Any]:
    one, other = msgpack.unpackb(b"\x92" + data, unicode_errors="surrogateescape")  # As an array of two.
    if type(one) is not first or type(other) is not (second or first):
        raise DataFormatError("an extension value has not the two parts that it is made of")
    return one, other


class Packer:
    """Writes values. `default` stands in for what MessagePack does not know. Not re-entrant."""

    def __init__(self, default: Callable[[Any], Any]) -> None:
        options = {"default": default, "strict_types": True, "datetime": True}
        self._pack: Callable[[Any], bytes] = msgpack.Packer(**options).pack
        self._escaping: Callable[[Any], bytes] = msgpack.Packer(**options, unicode_errors="surrogateescape").pack

    def pack(self, value: Any) -> bytes:
        """RangeError for a number beyond 64 bits, DataFormatError for what does not travel."""
        try:
            return self._pack(value)
        except UnicodeEncodeError:
            return self._try_again(value)
        except Exception as error:
            raise _in_words(error) from error

    def _try_again(self, value: Any) -> bytes:
        """Names of files may hold bytes that are no text; they travel as they are."""
        try:
            return self._escaping(value)
        except Exception as error:
            raise _in_words(error) from error


def _in_words(error: Exception) -> Exception:
    if isinstance(error, Error):
        return error
    if isinstance(error, (ValueError, RecursionError)) and "recursion" in str(error):
        return DataFormatError("A value that is nested deeper than 511 levels, or holds itself, can not be sent")
    return DataFormatError(f"This can not be sent: {error}")
