"""One participant as hub and objects see it: what it says and what it hears. `Worker` is what applications see of it."""

from __future__ import annotations

import asyncio
import functools
import logging
from collections.abc import Callable
from typing import Any

import msgpack

from . import wire
from .connection import Connection
from .errors import ConnectionFailed, Error, OperationTimedOut, RangeError
from .listening import Listeners
from .objects import Objects
from .reference import Reference
from .remote import in_words
from .serving import Serving
from .service import Service

log = logging.getLogger("skyfold_core")

_CLOSING_SECONDS = 0.2  # How long the end of a connection waits for the hub: one that is alive takes far less.


class Participant:
    """Belongs to its loop's thread."""

    def __init__(self, loop: asyncio.AbstractEventLoop, name: str) -> None:
        self.loop = loop
        self.name = name
        self.worker_id = wire.NOBODY
        self.objects = Objects(self)
        self.encode = self.objects.encode
        self.serving = Serving(self)
        self._connection = Connection(loop, self._on_frame, self._on_lost)
        self._hello: asyncio.Future[None] = loop.create_future()
        self.quit: asyncio.Future[None] = loop.create_future()
        self.on_quit = Listeners()
        self.failure: Exception | None = None
        self._is_over = False
        self._reports = 0

    @property
    def is_connected(self) -> bool:
        return not self._is_over and self.worker_id != wire.NOBODY

    def __repr__(self) -> str:
        return f"<worker {self.worker_id} ({self.name})>" if self.is_connected else f"<worker ({self.name}), not connected>"

    # --- Joining and leaving

    async def join(self, path: str, tag: str, timeout: float) -> None:
        try:
            async with asyncio.timeout(timeout):
                await self.loop.create_unix_connection(lambda: self._connection, path)
                hello = {wire.TYPE: wire.HELLO, wire.DISPLAY_NAME: self.name, wire.TAG: tag}
                self._connection.send(wire.frame(hello))
                await self._hello
        except TimeoutError:
            self._abandon()
            raise OperationTimedOut(f"The hub at {path} has not answered within {in_words(timeout)}") from None
        except OSError as error:
            self._abandon()
            if isinstance(error, ConnectionFailed):
                raise
            text = f"There is no hub at {path}: {error.strerror or error}"
            raise ConnectionFailed(text, errno=error.errno, path=path) from error
        except BaseException:
            self._abandon()
            raise

    async def close(self) -> None:
        if not self._is_over:
            self._connection.close()
            self._end(None)
        await asyncio.wait([self._connection.lost], timeout=_CLOSING_SECONDS)
        self._connection.abort()

    def _abandon(self) -> None:
        self._connection.abort()
        self._end(None)

    # --- What leaves

    method_part = staticmethod(functools.lru_cache(4096)(wire.method_part))

    def send_message(self, head: bytes, payload: bytes, noted: dict[int, Any] | None) -> None:
        """`noted` are the objects in the payload, by their ids. RangeError for a frame that the hub would not read."""
        if self._is_over:
            return
        if not noted:
            frame = wire.message_frame(head, payload)
        else:
            names = {object_id: name for object_id, (name, _) in noted.items()}
            frame = wire.message_frame(head, payload, b"\x09" + msgpack.packb(names, unicode_errors="surrogateescape"))
        if len(frame) - 4 > wire.HUB_FRAME_BYTES:
            raise RangeError(f"A message of {len(frame)} bytes: the hub takes {wire.HUB_FRAME_BYTES}")
        if self._connection.is_paused:
            self._connection.require_room()
        self._connection.send(frame)
        if noted:
            self.objects.count_sent(noted)

    def send_from(self, service: Service, target: int, payload: bytes, noted: dict[int, Any] | None) -> None:
        """From an object of this worker to references to it: those of worker `target`, or all of them (NOBODY)."""
        if target != self.worker_id and (target != wire.NOBODY or service._uses > 0):
            self.send_message(wire.message_head(service._object_id, target), payload, noted)
        if target in (self.worker_id, wire.NOBODY) and service._local is not None:
            reference = service._local()
            if reference is not None:
                self.loop.call_soon(self._deliver_to_reference, reference, payload, noted)

    def fire(self, service: Service, event: str, argument: Any) -> None:
        encoded, noted = self.encode(argument)
        self.send_from(service, wire.NOBODY, wire.event_payload(event, encoded), noted)

    def send_release(self, object_id: int, uses: int) -> None:
        if not self._is_over:
            self._connection.send(
                wire.frame({wire.TYPE: wire.REFERENCE_RELEASE, wire.OBJECT_ID: object_id, wire.USAGE_COUNT: uses})
            )

    # --- What comes

    def _on_frame(self, body: bytes) -> None:
        message = wire.decode_frame(body)
        try:
            if message is None:
                raise ValueError("a frame that is no map")
            kind = message.get(wire.TYPE, 0)
            if kind == wire.MESSAGE:
                self._on_message(message)
            elif (handler := _handlers.get(kind)) is not None:
                handler(self, message)
        except Exception as error:
            self.report(error)

    def report(self, error: Exception) -> None:
        """Says what was passed over: the first hundred times, since a peer could fill the log."""
        self._reports += 1
        if self._reports <= 100:
            is_known = isinstance(error, (ValueError, Error))
            log.warning("Passing over a message: %s", str(error) or type(error).__name__, exc_info=not is_known)

    def _on_message(self, message: dict[Any, Any]) -> None:
        object_id = wire.integer(message, wire.OBJECT_ID, 64)
        source = wire.integer(message, wire.SOURCE_WORKER_ID)
        payload: Any = message.get(wire.PAYLOAD)
        fields, failure = self.objects.read(payload, message.get(wire.OBJECTS))
        if object_id & 0xFFFF == self.worker_id:
            service = self.objects.service(object_id)
            if service is not None:
                self.serving.on_message(service, source, fields, failure, len(payload))
        elif (remote := self.objects.remote(object_id)) is not None:
            remote.on_message(fields, failure, len(payload))

    def deliver_to_service(self, service: Service, payload: bytes, _: Any) -> None:
        """What a local reference sends; the last argument keeps the objects in it alive."""
        if self._is_over:
            return
        try:
            self.serving.on_message(service, self.worker_id, *self.objects.read(payload, None), len(payload))
        except Exception as error:
            self.report(error)

    def _deliver_to_reference(self, reference: Reference, payload: bytes, _: Any) -> None:
        if reference._object.is_dead:
            return
        try:
            reference._object.on_message(*self.objects.read(payload, None), len(payload))
        except Exception as error:
            self.report(error)

    def _on_hello(self, message: dict[Any, Any]) -> None:
        worker_id = wire.integer(message, wire.WORKER_ID)
        if worker_id == wire.NOBODY or self.worker_id != wire.NOBODY:
            raise ValueError("a HELLO that gives no id, or a second one")
        self.worker_id = worker_id
        if not self._hello.done():
            self._hello.set_result(None)

    def _on_ping(self, _: dict[Any, Any]) -> None:
        self._connection.send(wire.frame({wire.TYPE: wire.PONG}))

    def _on_instance_release(self, message: dict[Any, Any]) -> None:
        uses = wire.integer(message, wire.USAGE_COUNT, 31)
        self.objects.released(wire.integer(message, wire.OBJECT_ID, 64), uses)

    def _on_worker_dead(self, message: dict[Any, Any]) -> None:
        worker_id = wire.integer(message, wire.WORKER_ID)
        if worker_id == self.worker_id:
            raise ValueError("the hub says that this worker is dead")
        self.objects.worker_died(worker_id)
        self.serving.worker_died(worker_id)

    def _on_worker_id_reused(self, message: dict[Any, Any]) -> None:
        self.objects.worker_id_reused(wire.integer(message, wire.WORKER_ID))

    def _tell_quit(self, _: Any = None) -> None:
        if not self.quit.done():
            self.quit.set_result(None)
            self.on_quit.tell(None)

    # --- The end

    def _on_lost(self, error: Exception | None) -> None:
        if self._is_over:
            return
        self.failure = error
        if isinstance(error, ConnectionFailed):
            log.error("%s", error)
        self._end(error or ConnectionFailed("The hub has closed the connection"))

    def _end(self, failure: Exception | None) -> None:
        if self._is_over:
            return
        self._is_over = True
        if not self._hello.done():
            if failure is None:
                self._hello.cancel()
            else:
                lost = failure if isinstance(failure, ConnectionFailed) else ConnectionFailed(f"The hub has gone: {failure}")
                self._hello.set_exception(lost)
        self.serving.close()
        self.objects.close()
        self._tell_quit()


_handlers: dict[Any, Callable[[Participant, dict[Any, Any]], None]] = {
    wire.HELLO: Participant._on_hello,
    wire.PING: Participant._on_ping,
    wire.INSTANCE_RELEASE: Participant._on_instance_release,
    wire.WORKER_DEAD: Participant._on_worker_dead,
    wire.QUIT: Participant._tell_quit,
    wire.WORKER_ID_REUSED: Participant._on_worker_id_reused,
}
