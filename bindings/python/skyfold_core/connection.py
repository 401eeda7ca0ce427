"""The pipe to the hub: bytes to frames, and frames to bytes, which leave together once a turn of the loop."""

import asyncio
from collections.abc import Callable

from .errors import ConnectionFailed, RangeError
from .wire import WORKER_FRAME_BYTES, MalformedFrame

_PAUSING_BYTES = 64 << 20  # When more waits for a hub that does not read, it is read no further either.
_MOST_QUEUED_BYTES = 1 << 30  # When more waits nothing more is taken.


class Connection(asyncio.Protocol):
    """Belongs to its loop's thread, like all that is built on it."""

    def __init__(
        self,
        loop: asyncio.AbstractEventLoop,
        on_frame: Callable[[bytes], None],
        on_lost: Callable[[Exception | None], None],
        most_frame_bytes: int = WORKER_FRAME_BYTES,
    ) -> None:
        self._loop = loop
        self._on_frame = on_frame
        self._on_lost = on_lost
        self._most_frame_bytes = most_frame_bytes
        self._transport: asyncio.Transport | None = None
        self._begun = bytearray()  # Of a frame that has not come whole.
        self._missing = 0  # Bytes that `_begun` needs at least before it is looked at again.
        self._queue: list[bytes] = []
        self._failure: Exception | None = None
        self.is_paused = False  # The hub does not keep up with what is sent.
        self.lost: asyncio.Future[None] = loop.create_future()

    # --- What leaves

    def send(self, frame: bytes) -> None:
        """Nothing once the connection has ended."""
        if not self._queue:
            self._loop.call_soon(self._flush)
        self._queue.append(frame)

    def require_room(self) -> None:
        """RangeError when the hub has not taken what was sent before."""
        if self._transport is not None and self._transport.get_write_buffer_size() > _MOST_QUEUED_BYTES:
            raise RangeError(f"More than {_MOST_QUEUED_BYTES} bytes wait for the hub, which does not read them")

    def _flush(self) -> None:
        queue, self._queue = self._queue, []
        if self._transport is not None and queue:
            self._transport.write(queue[0] if len(queue) == 1 else b"".join(queue))

    def close(self) -> None:
        """What was sent leaves first, if the hub reads it."""
        self._flush()
        if self._transport is not None:
            self._transport.close()

    def abort(self) -> None:
        if self._transport is not None:
            self._transport.abort()

    def fail(self, reason: str) -> None:
        """Ends the connection to a hub that does not keep to the format."""
        if self._failure is None:
            self._failure = ConnectionFailed(f"The hub does not speak as hubs do: {reason}")
        self.abort()

    # --- What asyncio calls

    def connection_made(self, transport: asyncio.BaseTransport) -> None:
        assert isinstance(transport, asyncio.Transport)
        self._transport = transport
        transport.set_write_buffer_limits(high=_PAUSING_BYTES)

    def data_received(self, data: bytes) -> None:
        if self._begun:
            self._begun += data
            if len(self._begun) < self._missing:
                return
            data = bytes(self._begun)
            self._begun = bytearray()
        at, end = 0, len(data)
        try:
            while end - at >= 4:
                size = int.from_bytes(data[at : at + 4], "little")
                if not 0 < size <= self._most_frame_bytes:
                    raise MalformedFrame(f"a frame of {size} bytes: from 1 to {self._most_frame_bytes} are allowed")
                next_at = at + 4 + size
                if next_at > end:
                    self._missing = next_at - at
                    break
                self._on_frame(data[at + 4 : next_at])
                at = next_at
                if self._failure is not None:
                    return
            else:
                self._missing = 4
        except MalformedFrame as error:
            self.fail(str(error))
            return
        if at < end:
            self._begun += data[at:]

    def pause_writing(self) -> None:
        """What is read makes answers: who does not read them is not read, so that what waits here has a bound."""
        self.is_paused = True
        if self._transport is not None and not self._transport.is_closing():
            self._transport.pause_reading()

    def resume_writing(self) -> None:
        self.is_paused = False
        if self._transport is not None and not self._transport.is_closing():
            self._transport.resume_reading()

    def connection_lost(self, error: Exception | None) -> None:
        self._transport = None
        self._queue.clear()
        self._begun = bytearray()
        if not self.lost.done():
            self.lost.set_result(None)
        self._on_lost(self._failure or error)
