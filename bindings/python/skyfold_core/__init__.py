"""Objects of a skyfold-core application from Python: find them, call them, listen to them, offer some.

    async with skyfold_core.connect() as worker:
        greeter = await worker.find("Greeter")
        print(await greeter.greet("Ada"))
"""

from .bus import MessageBus
from .connecting import connect, connect_launched
from .context import remaining_time, trace, trace_id, within
from .errors import (
    ConnectionFailed,
    DataFormatError,
    Ended,
    EndOfStreamError,
    Error,
    FileError,
    Frame,
    InputOutputError,
    NullPointerError,
    ObjectDead,
    OperationTimedOut,
    PromiseLost,
    RangeError,
)
from .listening import Stream, Subscription
from .pipes import PIPE_VARIABLE
from .reference import Member, Reference
from .remote import Call
from .service import Event, Property, Service
from .typed import RemoteEvent, RemoteMethod, RemoteProperty
from .values import Fraction, TypedBytes
from .worker import Worker

__all__ = [
    "Call",
    "ConnectionFailed",
    "DataFormatError",
    "EndOfStreamError",
    "Ended",
    "Error",
    "Event",
    "FileError",
    "Fraction",
    "Frame",
    "InputOutputError",
    "Member",
    "MessageBus",
    "NullPointerError",
    "ObjectDead",
    "OperationTimedOut",
    "PIPE_VARIABLE",
    "PromiseLost",
    "Property",
    "RangeError",
    "Reference",
    "RemoteEvent",
    "RemoteMethod",
    "RemoteProperty",
    "Service",
    "Stream",
    "Subscription",
    "TypedBytes",
    "Worker",
    "connect",
    "connect_launched",
    "remaining_time",
    "trace",
    "trace_id",
    "within",
]

__version__ = "0.1.0"
