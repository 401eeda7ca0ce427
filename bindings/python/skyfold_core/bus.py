"""The message bus of an application: bodies posted under a namespace, heard in every process."""

from __future__ import annotations

from collections.abc import Awaitable, Callable
from typing import TYPE_CHECKING, Any

from .errors import Error
from .listening import Listeners, Stream, Subscription
from .reference import Reference

if TYPE_CHECKING:
    from .participant import Participant

CLASS_NAME = "ipc::MessageBus"
MOST_STICKY = 100_000  # Namespaces, and bytes of their bodies: as many as the hub's relay keeps.
MOST_STICKY_BYTES = 64 << 20


class MessageBus:
    """Posts messages and hears them, those of this process included, which come by way of the hub as all others do.

    A sticky message is kept for its namespace until the next sticky one, for whoever comes later.
    """

    def __init__(self, host: Participant, relay: Reference) -> None:
        self._host = host
        self._relay = relay
        self._sticky: dict[str, tuple[Any, int]] = {}  # With the bytes of each.
        self._sticky_bytes = 0
        self._listeners: dict[str, Listeners] = {}
        self._hearing = relay["busMessage"].on(self._on_message)

    def post(self, namespace: str, body: Any = None, *, sticky: bool = False) -> None:
        """Tells everybody. RangeError or DataFormatError for a body that does not travel."""
        payload = {"workerId": self._host.worker_id, "namespace": namespace, "body": body, "sticky": sticky}
        self._relay._object.post({"TYPE": "BUS_MESSAGE", "PAYLOAD": payload})

    def sticky(self, namespace: str, default: Any = None) -> Any:
        """The latest sticky body of the namespace."""
        return self._sticky.get(namespace, (default, 0))[0]

    def listen(self, namespace: str) -> Stream[Any]:
        """Hears the bodies that come from now on: `async for body in bus.listen("com.example.mood")`. Ends when the hub does."""
        stream: Stream[Any] = Stream(self._host.loop, self._listeners_of(namespace), self)
        if self._relay.is_dead:
            stream._end(self._relay._object.death())
        return stream

    def on(self, namespace: str, callback: Callable[[Any], object]) -> Subscription:
        """Calls back with each body that comes from now on."""
        return Subscription(self._host.loop, self._listeners_of(namespace), callback, self)

    def _listeners_of(self, namespace: str) -> Listeners:
        return self._listeners.setdefault(namespace, Listeners())

    def _on_message(self, message: Any) -> None:
        if not isinstance(message, dict) or not isinstance(namespace := message.get("namespace", ""), str):
            return
        body = message.get("body")
        if message.get("sticky") is True:
            self._keep(namespace, body)
        listeners = self._listeners.get(namespace)
        if listeners is not None:
            listeners.tell(body)
            if not listeners:
                self._listeners.pop(namespace, None)

    def _keep(self, namespace: str, body: Any) -> None:
        try:
            size = len(namespace) + len(self._host.encode(body)[0])
        except Error:  # Nested too deeply to be sent on; the relay keeps none that is.
            return
        total = self._sticky_bytes + size - self._sticky.get(namespace, (None, 0))[1]
        if total <= MOST_STICKY_BYTES and (namespace in self._sticky or len(self._sticky) < MOST_STICKY):
            self._sticky[namespace] = body, size
            self._sticky_bytes = total

    async def _fetch(self) -> None:
        """What was kept before. It comes behind all that was heard until then, and is as new."""
        messages = await self._relay["getStickyMessages"]()
        for message in messages if isinstance(messages, list) else ():
            if isinstance(message, dict) and isinstance(namespace := message.get("namespace"), str):
                self._keep(namespace, message.get("body"))

    def _end(self) -> None:
        for listeners in self._listeners.values():
            listeners.end(self._relay._object.death())

    @classmethod
    async def join(cls, host: Participant, find: Callable[[str, float], Awaitable[Reference]]) -> MessageBus:
        relay = await find(CLASS_NAME, 20.0)
        bus = cls(host, relay)
        relay.on_death(bus._end)
        await bus._fetch()
        return bus
