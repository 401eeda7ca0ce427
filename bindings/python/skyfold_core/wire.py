"""What travels on the pipe, as docs/wire-format.md tells it: codes, bounds, and the bytes of frames and of call payloads."""

import struct
from typing import Any

import msgpack

# Keys of a message.
TYPE = 1
DISPLAY_NAME = 2
TAG = 3
WORKER_ID = 4
OBJECT_ID = 5
SOURCE_WORKER_ID = 6
TARGET_WORKER_ID = 7
PAYLOAD = 8
OBJECTS = 9
USAGE_COUNT = 10

# Types of a message.
HELLO = 1
PING = 2
PONG = 3
MESSAGE = 4
REFERENCE_RELEASE = 5
INSTANCE_RELEASE = 6
WORKER_DEAD = 7
QUIT = 8
WORKER_ID_REUSED = 9

NOBODY = 0xFFFF  # As a worker id: none yet. As a target: whoever holds a reference to the object.
REGISTRY = 0  # The object id that everybody knows.
NO_REQUEST = 0xFFFFFFFF  # A call without a number, which is not answered.

HUB_FRAME_BYTES = 256 << 20  # Largest body that the hub reads.
WORKER_FRAME_BYTES = 1 << 30  # Largest body that a worker reads.
MOST_USES = 1_000_000_000  # Messages that may carry one object away until they are released.

_length = struct.Struct("<I")


MOST_VALUES = 16_000_000  # In one frame or payload. So many of the largest kind, empty maps, take 1.2 GB of memory.
_SMALL = 4096  # Bytes that cannot announce so much that looking at them first would be worth its time.


class MalformedFrame(Exception):
    """Bytes after which nobody can say where the next frame begins. The connection ends."""


def owner_of(object_id: int) -> int:
    return object_id & 0xFFFF


def frame(message: dict[int, Any]) -> bytes:
    body: bytes = msgpack.packb(message, unicode_errors="surrogateescape")
    return _length.pack(len(body)) + body


def unpack(data: bytes, **options: Any) -> Any:
    """One value. Any exception for what is none, or for too many values. Memory grows with the bytes, not with what they announce."""
    if len(data) > _SMALL:
        whole = msgpack.Unpacker(max_buffer_size=len(data))
        whole.feed(data)
        whole.skip()
        options.update(_bounded())
    return msgpack.unpackb(data, strict_map_key=False, unicode_errors="surrogateescape", **options)


def _bounded() -> dict[str, Any]:
    """Options that count the values."""
    count = 0

    def counted(container: Any) -> Any:
        nonlocal count
        count += 1 + len(container)
        if count > MOST_VALUES:
            raise ValueError(f"more than {MOST_VALUES} values")
        return container

    return {"max_array_len": MOST_VALUES, "max_map_len": MOST_VALUES, "list_hook": counted, "object_hook": counted}


def decode_frame(body: bytes) -> dict[Any, Any] | None:
    """The message; None for a value that is no message, which is passed over."""
    try:
        message = unpack(body)
    except Exception as error:  # A hash of a key, a time stamp, ... can fail besides the format itself.
        raise MalformedFrame(f"a frame of {len(body)} bytes is no MessagePack: {str(error) or type(error).__name__}") from error
    if type(message) is not dict:
        return None
    if body[0] != 0x80 | len(message):  # Another form of map, or an entry that occurs twice.
        _refuse_double_fields(body)
    return message


def _refuse_double_fields(body: bytes) -> None:
    unpacker = msgpack.Unpacker(max_buffer_size=len(body), strict_map_key=False, unicode_errors="surrogateescape")
    unpacker.feed(body)
    known = []
    for _ in range(unpacker.read_map_header()):
        key = unpacker.unpack()
        unpacker.skip()
        if isinstance(key, (int, float)) and TYPE <= key <= USAGE_COUNT:
            known.append(key)
    if len(known) != len(set(known)):
        raise MalformedFrame("a frame holds a field twice, and readers would not agree which one counts")


def integer(message: dict[Any, Any], key: int, bits: int = 16) -> int:
    """An unsigned field. ValueError if it is missing or does not fit."""
    value = message.get(key)
    if type(value) is not int or not 0 <= value < 1 << bits:
        raise ValueError(f"field {key} is no number of {bits} bits")
    return value


# --- Frames of the calls, which are assembled of what never changes and what does


def message_head(object_id: int, target: int) -> bytes:
    """A MESSAGE up to its payload."""
    return b"".join((b"\x85\x01\x04\x05", msgpack.packb(object_id), b"\x07", msgpack.packb(target), b"\x08"))


NO_OBJECTS = b"\x09\x80"


def message_frame(head: bytes, payload: bytes, objects: bytes = NO_OBJECTS) -> bytes:
    size = len(payload)
    if size < 0x100:
        lead = b"\xc4" + size.to_bytes(1, "big")
    elif size < 0x10000:
        lead = b"\xc5" + size.to_bytes(2, "big")
    else:
        lead = b"\xc6" + size.to_bytes(4, "big")
    return b"".join((_length.pack(len(head) + len(lead) + size + len(objects)), head, lead, payload, objects))


def _text(text: str) -> bytes:
    packed: bytes = msgpack.packb(text, unicode_errors="surrogateescape")
    return packed


_ARGUMENT = _text("ARGUMENT")
_METHOD_NAME = _text("METHOD_NAME")
_EVENT_NAME = _text("EVENT_NAME")
_REQUEST_ID = _text("REQUEST_ID") + b"\xce"
_TIME_LEFT = _text("TIME_LEFT") + b"\xd3"
_TRACE = _text("TRACE") + b"\xcf"
_CALL = _text("TYPE") + _text("CALL")
_EVENT = _text("TYPE") + _text("EVENT")
_CANCEL = _text("TYPE") + _text("CANCEL")
_RESPONSE = _text("TYPE") + _text("CALL_RESPONSE")
_ERROR = _text("TYPE") + _text("CALL_ERROR")
_RESULT_KEY = _text("RESULT")
_ERROR_KEY = _text("ERROR")


def method_part(name: str) -> bytes:
    """The middle of a call: the same for all calls of a method."""
    return _METHOD_NAME + _text(name) + _REQUEST_ID


def call_payload(argument: bytes, method: bytes, request_id: int, microseconds: int, trace: int) -> bytes:
    """A call; `microseconds` that its caller waits and `trace` are 0 where there is none. Keys go in their order."""
    number = request_id.to_bytes(4, "big")
    if not microseconds and not trace:
        return b"".join((b"\x84", _ARGUMENT, argument, method, number, _CALL))
    fields = 4
    extra = b""
    if microseconds:
        fields += 1
        extra = _TIME_LEFT + microseconds.to_bytes(8, "big", signed=True)
    if trace:
        fields += 1
        extra += _TRACE + trace.to_bytes(8, "big")
    return b"".join((bytes((0x80 | fields,)), _ARGUMENT, argument, method, number, extra, _CALL))


def cancel_payload(request_id: int) -> bytes:
    return b"\x82" + _REQUEST_ID + request_id.to_bytes(4, "big") + _CANCEL


def result_payload(request_id: int, result: bytes) -> bytes:
    return b"".join((b"\x83", _REQUEST_ID, request_id.to_bytes(4, "big"), _RESULT_KEY, result, _RESPONSE))


def error_payload(request_id: int, error: bytes) -> bytes:
    return b"".join((b"\x83", _ERROR_KEY, error, _REQUEST_ID, request_id.to_bytes(4, "big"), _ERROR))


def event_payload(name: str, argument: bytes) -> bytes:
    return b"".join((b"\x83", _ARGUMENT, argument, _EVENT_NAME, _text(name), _EVENT))
