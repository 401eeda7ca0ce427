"""Who hears events, property changes, deaths and bus messages: callbacks, and streams to iterate over."""

import asyncio
from collections import deque
from collections.abc import Callable
from typing import Any, Generic, Self, TypeVar
from weakref import WeakSet

from .errors import ObjectDead, RangeError

T = TypeVar("T")

MOST_WAITING = 100_000
MOST_WAITING_BYTES = 256 << 20
"""What may wait in a stream for its reader. More ends the stream with a RangeError."""


class Listeners:
    """Those who hear one thing. Who is told may end its own hearing, or another's. A stream that nobody keeps is none any more."""

    def __init__(self) -> None:
        self._subscriptions: list[Subscription] = []
        self._streams: WeakSet[Stream[Any]] = WeakSet()

    def __bool__(self) -> bool:
        return bool(self._subscriptions or self._streams)

    def add(self, listener: "Subscription | Stream[Any]") -> None:
        if isinstance(listener, Stream):
            self._streams.add(listener)
        else:
            self._subscriptions.append(listener)

    def remove(self, listener: "Subscription | Stream[Any]") -> None:
        if isinstance(listener, Stream):
            self._streams.discard(listener)
        elif listener in self._subscriptions:
            self._subscriptions.remove(listener)

    def _everybody(self) -> "list[Subscription | Stream[Any]]":
        return [*self._streams, *self._subscriptions]

    def tell(self, value: Any, size: int = 0) -> None:
        """`size`: the bytes that it came in."""
        for listener in self._everybody():
            listener._tell(value, size)

    def end(self, failure: Exception) -> None:
        """Nothing more comes: streams raise `failure`, callbacks hear no more."""
        listeners = self._everybody()
        self._streams.clear()
        self._subscriptions.clear()
        for listener in listeners:
            listener._end(failure)


class Subscription:
    """A callback that is called until `cancel()`, or until the end of `with` around it. It keeps what it listens to alive.

    What the callback raises goes to the loop's exception handler.
    """

    def __init__(self, loop: asyncio.AbstractEventLoop, to: Listeners, callback: Callable[[Any], object], keeps: object) -> None:
        self._loop = loop
        self._to: Listeners | None = to
        self._callback = callback
        self._keeps = keeps
        to.add(self)

    def cancel(self) -> None:
        if self._to is not None:
            self._to.remove(self)
        self._end(None)

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self.cancel()

    def _tell(self, value: Any, _: int = 0) -> None:
        if self._to is None:
            return
        try:
            self._callback(value)
        except Exception as error:
            text = f"A listener has failed: {self._callback!r}"
            self._loop.call_exception_handler({"message": text, "exception": error})

    def _end(self, failure: Exception | None) -> None:
        self._to = self._keeps = None
        if failure is not None and not isinstance(failure, ObjectDead):
            text = f"A listener hears no more: {self._callback!r}"
            self._loop.call_exception_handler({"message": text, "exception": failure})


class Stream(Generic[T]):
    """What comes, in its order, for one reader: `async for value in stream`. It listens from when it is made, and keeps what it
    listens to alive, until `cancel()` or the end of `with` around it.

    Ends with what has ended the hearing, e.g. `ObjectDead`, behind all that came before.
    """

    def __init__(self, loop: asyncio.AbstractEventLoop, to: Listeners, keeps: object) -> None:
        self._loop = loop
        self._to: Listeners | None = to
        self._keeps = keeps
        self._waiting: deque[tuple[T, int]] = deque()
        self._bytes = 0
        self._reader: asyncio.Future[None] | None = None
        self._failure: Exception | None = None
        to.add(self)

    def cancel(self) -> None:
        """Ends it for its reader, too."""
        self._waiting.clear()
        self._leave()
        self._wake()

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self.cancel()

    def __aiter__(self) -> Self:
        return self

    async def __anext__(self) -> T:
        while not self._waiting:
            if self._failure is not None:
                raise self._failure
            if self._to is None:
                raise StopAsyncIteration
            if self._reader is not None:
                raise RuntimeError("A stream has one reader")
            self._reader = self._loop.create_future()
            try:
                await self._reader
            finally:
                self._reader = None
        value, size = self._waiting.popleft()
        self._bytes -= size
        return value

    async def next(self) -> T:
        """The next one."""
        return await self.__anext__()

    def _tell(self, value: T, size: int = 0) -> None:
        if self._to is None:
            return
        if len(self._waiting) >= MOST_WAITING or self._bytes + size > MOST_WAITING_BYTES:
            text = f"{len(self._waiting)} values of {self._bytes} bytes wait in a stream whose reader is too slow"
            self._leave()
            self._end(RangeError(text))
            return
        self._waiting.append((value, size))
        self._bytes += size
        self._wake()

    def _end(self, failure: Exception) -> None:
        self._failure = failure
        self._to = self._keeps = None
        self._wake()

    def _leave(self) -> None:
        if self._to is not None:
            self._to.remove(self)
        self._to = self._keeps = None

    def _wake(self) -> None:
        if self._reader is not None and not self._reader.done():
            self._reader.set_result(None)
