"""What a worker knows of an object that it has a reference to: its calls under way, and who listens."""

from __future__ import annotations

import asyncio
import time
import weakref
from typing import TYPE_CHECKING, Any, TypeVar

from . import context, wire
from .errors import Ended, Error, ObjectDead, OperationTimedOut, from_record
from .listening import Listeners, Stream, Subscription

if TYPE_CHECKING:
    from .reference import Reference
    from .service import Service
    from .participant import Participant

C = TypeVar("C", bound="Call")

NO_LIMIT = float("inf")  # Of a call that inherits no deadline either.


def in_words(seconds: float) -> str:
    return f"{seconds:g} s" if seconds >= 1 else f"{seconds * 1000:g} ms"


class Call(asyncio.Future[Any]):
    """The result of a call. Cancelling it tells the other process that nobody waits any more."""

    # Keeps the reference, and so the object, until the call has ended.
    _reference: Reference | None = None
    _request_id = 0
    _method = ""
    _timer: asyncio.TimerHandle | None = None

    def cancel(self, msg: Any | None = None) -> bool:
        if not super().cancel(msg):
            return False
        if self._reference is not None:
            remote = self._reference._object
            self._end()
            remote.cancel(self._request_id)
        return True

    def _end(self) -> None:
        self._reference = None
        if self._timer is not None:
            self._timer.cancel()
            self._timer = None

    def _fulfil(self, result: Any) -> None:
        self._end()
        if not self.done():
            self.set_result(result)

    def _fail(self, error: BaseException) -> None:
        self._end()
        if not self.done():
            self.set_exception(error)
            if isinstance(error, Ended):
                self._log_traceback = False

    def _on_deadline(self, limit: float) -> None:
        reference = self._reference
        if reference is None or self.done():
            return
        remote = reference._object
        text = f"{remote.class_name}.{self._method} has not answered within {in_words(limit)}"
        self._fail(OperationTimedOut(text))
        remote.cancel(self._request_id)


class RemoteObject:
    """One entry of a worker's table. It outlives its `Reference` by the turn of the loop in which it is released."""

    def __init__(self, host: Participant, object_id: int, class_name: str) -> None:
        self.host = host
        self.object_id = object_id
        self.class_name = class_name
        self.uses = 0  # Messages that have brought the object here and are to be released.
        self.is_dead = False
        self.is_outdated = False  # The id of its dead owner names another worker now.
        self.facade: weakref.ref[Reference] | None = None
        self.deaths = Listeners()
        self._head = wire.message_head(object_id, wire.owner_of(object_id))
        self._pending: dict[int, Call] = {}
        self._counter = 0
        self._listeners: dict[str, Listeners] = {}
        self._properties: dict[str, PropertyWatch] = {}

    # --- Calls

    def call(
        self, reference: Reference, method: str, argument: Any, limit: float | None, made: type[C] = Call  # type: ignore[assignment]
    ) -> C:
        host = self.host
        call = made(loop=host.loop)
        if self.is_dead:
            call._fail(self.death(method))
            return call
        work = context.current.get()
        trace = work.trace
        microseconds = 0
        if limit == NO_LIMIT:
            limit, trace = None, 0
        elif work.deadline is not None:
            left = work.deadline - time.monotonic()
            limit = left if limit is None else min(limit, left)
        if limit is not None:
            limit = max(limit, 1e-6)
            microseconds = max(int(min(limit * 1e6, 1 << 62)), 1)
        request_id = self._next_request()
        try:
            encoded, noted = host.encode(argument)
            payload = wire.call_payload(encoded, host.method_part(method), request_id, microseconds, trace)
            self._send(payload, noted)
        except Exception as error:
            call._fail(error)
            return call
        call._reference = reference
        call._request_id = request_id
        call._method = method
        self._pending[request_id] = call
        if limit is not None:
            call._timer = host.loop.call_later(limit, call._on_deadline, limit)
        return call

    def cancel(self, request_id: int) -> None:
        if self._pending.pop(request_id, None) is not None and not self.is_dead:
            self.host.objects.request_numbers.cancelled(self.object_id, request_id)
            self._send(wire.cancel_payload(request_id), None)

    def _next_request(self) -> int:
        if self._counter == 0:
            self._counter = self.host.objects.request_numbers.last(self.object_id)
        while True:
            self._counter = (self._counter + 1) & 0xFFFFFFFF
            if self._counter not in (0, wire.NO_REQUEST) and self._counter not in self._pending:
                return self._counter

    def post(self, message: dict[str, Any]) -> None:
        """Sends it a message that is no call."""
        if not self.is_dead:
            self._send(*self.host.encode(message))

    def _send(self, payload: bytes, noted: dict[int, Any] | None) -> None:
        self.host.send_message(self._head, payload, noted)

    # --- What listens

    def listeners(self, event: str) -> Listeners:
        listeners = self._listeners.get(event)
        if listeners is None:
            listeners = self._listeners[event] = Listeners()
        return listeners

    def property(self, name: str) -> PropertyWatch:
        watch = self._properties.get(name)
        if watch is None:
            watch = self._properties[name] = PropertyWatch(self, name)
        return watch

    # --- What comes

    def on_message(self, fields: dict[Any, Any], failure: Exception | None, size: int) -> None:
        kind = fields.get("TYPE")
        if kind == "CALL_RESPONSE" or kind == "CALL_ERROR":
            call = self._pending.pop(fields.get("REQUEST_ID"), None)  # type: ignore[arg-type]
            if call is None:
                return
            if failure is not None:
                call._fail(failure)
            elif kind == "CALL_ERROR":
                call._fail(from_record(fields.get("ERROR")))
            else:
                call._fulfil(fields.get("RESULT"))
        elif kind == "EVENT" and failure is None:
            self._on_event(fields.get("EVENT_NAME"), fields.get("ARGUMENT"), size)
        elif failure is not None:
            raise failure

    def _on_event(self, name: Any, argument: Any, size: int) -> None:
        if (watch := self._properties.get(name)) is not None:
            watch.changed(argument, size)
        if (listeners := self._listeners.get(name)) is not None:
            listeners.tell(argument, size)
            if not listeners and self._listeners.get(name) is listeners:
                del self._listeners[name]

    # --- Its end

    def notify_dead(self) -> None:
        self.deaths.tell(None)
        self.deaths.end(self.death())
        pending, self._pending = self._pending, {}
        for request_id in sorted(pending):
            pending[request_id]._fail(self.death(pending[request_id]._method))
        listeners, self._listeners = self._listeners, {}
        for each in listeners.values():
            each.end(self.death())
        properties, self._properties = self._properties, {}
        for watch in properties.values():
            watch.listeners.end(self.death())

    def death(self, method: str = "") -> ObjectDead:
        name = f"{self.class_name or 'object'}.{method}" if method else self.class_name or "object"
        return ObjectDead(f"{name}: the object's worker has gone")


class PropertyWatch:
    """A property that is watched: asked for once, and then told of. A change before the answer is not heard: the answer, which
    comes behind it, holds it."""

    def __init__(self, remote: RemoteObject, name: str) -> None:
        self.listeners = Listeners()
        self._remote = remote
        self._name = name
        self._asking: _Asking | None = None
        self._has_value = False
        self._value: Any = None

    def greet(self, listener: Stream[Any] | Subscription, reference: Reference) -> None:
        """Sees to it that a new listener is told the value: when it comes, or in a later turn, as it is then."""
        if self._has_value:
            self.listeners.remove(listener)
            self._remote.host.loop.call_soon(self._admit, listener)
        elif self._asking is None:
            # The value is for who watches later, too: who asks first has no deadline.
            self._asking = self._remote.call(reference, self._name, None, NO_LIMIT, _Asking)
            if self._asking.done():
                self._answered(None, self._asking.exception())
            else:
                self._asking._watch = self

    def changed(self, value: Any, size: int) -> None:
        if self._has_value:
            self._value = value
            self.listeners.tell(value, size)

    def _admit(self, listener: Stream[Any] | Subscription) -> None:
        if listener._to is not None:
            self.listeners.add(listener)
            listener._tell(self._value)

    def _answered(self, value: Any, failure: BaseException | None) -> None:
        self._asking = None
        if failure is not None:
            self.listeners.end(failure if isinstance(failure, Error) else Error(str(failure)))
            return
        self._has_value = True
        self._value = value
        self.listeners.tell(value)


class _Asking(Call):
    """Tells its watch at once: the next message may be a change."""

    _watch: PropertyWatch | None = None

    def _fulfil(self, result: Any) -> None:
        super()._fulfil(result)
        if self._watch is not None:
            self._watch._answered(result, None)

    def _fail(self, error: BaseException) -> None:
        super()._fail(error)
        self.exception()  # The listeners are told.
        if self._watch is not None:
            self._watch._answered(None, error)


class LocalObject(RemoteObject):
    """A service of the same worker, seen as others see it. What is sent comes in a later turn of the loop, as encoded bytes."""

    def __init__(self, host: Participant, service: Service) -> None:
        super().__init__(host, service._object_id, type(service)._class_name)
        self.service = service
        self.is_dead = not host.is_connected

    def _send(self, payload: bytes, noted: dict[int, Any] | None) -> None:
        self.host.loop.call_soon(self.host.deliver_to_service, self.service, payload, noted)
