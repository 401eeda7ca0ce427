"""One participant of an application: it finds objects and offers some."""

from __future__ import annotations

import asyncio
import contextvars
from collections.abc import Callable
from typing import Self, TypeVar, overload

from .bus import MessageBus
from .errors import Error
from .listening import Subscription
from .participant import Participant
from .reference import Reference
from .service import Service

R = TypeVar("R", bound=Reference)

_MOST_SECONDS = 1e9  # Of a time-out; as good as none.
_GRACE_SECONDS = 5.0  # How long the hub may be late with the end of a time-out.


class Worker:
    """A participant of an application, made by `connect()`. It and all that comes of it belong to its loop's thread."""

    def __init__(self, participant: Participant) -> None:
        self._participant = participant
        self._registry = participant.objects.registry()
        self._bus: asyncio.Task[MessageBus] | None = None

    @property
    def loop(self) -> asyncio.AbstractEventLoop:
        return self._participant.loop

    @property
    def worker_id(self) -> int:
        """16 bits, given by the hub. Those of the dead are given out again one day."""
        return self._participant.worker_id

    @property
    def is_connected(self) -> bool:
        """Until `close()`, or the end of the hub."""
        return self._participant.is_connected

    @property
    def failure(self) -> Exception | None:
        """What has ended the connection; None where `close()` has, or the hub in good order."""
        return self._participant.failure

    @overload
    async def find(self, what: type[R], timeout: float = 10.0) -> R: ...

    @overload
    async def find(self, what: str, timeout: float = 10.0) -> Reference: ...

    async def find(self, what: str | type[Reference], timeout: float = 10.0) -> Reference:
        """The object of that class, in whichever process it is; waits `timeout` seconds until somebody offers one, at most.

        OperationTimedOut after that, ObjectDead if the hub goes.
        """
        name = what if isinstance(what, str) else what._class_name
        seconds = min(max(timeout, 0.0), _MOST_SECONDS)
        look_up = self._registry["getInstance"].within(seconds + _GRACE_SECONDS)
        found = await look_up({"className": name, "timeout": int(seconds * 1000)})
        if not isinstance(found, Reference):
            raise Error(f"The registry has given no object of class {name}")
        if not isinstance(what, str) and not isinstance(found, what):
            raise Error(f"The object found as {name} is of class {found.class_name} here")
        return found

    async def offer(self, service: Service, priority: int = 0) -> None:
        """Registers an object under its class, for everybody, until this worker ends. Who looks for the class is given the one of the
        highest priority (32 bits), and of several the latest."""
        await self._registry["registerInstance"]({"instance": service, "priority": priority})

    def reference(self, service: Service) -> Reference:
        """A reference to an object of this worker, by which it is called as others call it."""
        self._participant.objects.share(service)
        return self._participant.objects.local_reference(service)

    async def bus(self) -> MessageBus:
        """The message bus of the application: the same one each time."""
        if self._bus is None or (self._bus.done() and (self._bus.cancelled() or self._bus.exception() is not None)):
            # Whoever asks first is not the only one who waits: no deadline of theirs.
            joining = MessageBus.join(self._participant, self.find)
            self._bus = self.loop.create_task(joining, context=contextvars.Context())
        return await asyncio.shield(self._bus)

    def on_quit(self, callback: Callable[[], object]) -> Subscription:
        """Calls back once when the application is about to end, or the hub has gone; soon, if that has been."""
        if self._participant.quit.done():
            self.loop.call_soon(callback)
        return Subscription(self.loop, self._participant.on_quit, lambda _: callback(), None)

    async def until_quit(self) -> None:
        """Waits until the application is about to end, or the hub has gone. What a program that offers objects does."""
        await asyncio.shield(self._participant.quit)

    async def close(self) -> None:
        """Ends it: what has been sent leaves, then all its calls fail and what it offers is gone for everybody."""
        await self._participant.close()

    async def __aenter__(self) -> Self:
        return self

    async def __aexit__(self, *_: object) -> None:
        await self.close()

    def __repr__(self) -> str:
        return repr(self._participant)
