"""How type checkers see the members of an object. At run time each is a `Member`."""

from __future__ import annotations

from collections.abc import AsyncIterator, Awaitable, Callable
from typing import ParamSpec, Protocol, TypeVar

from .listening import Stream, Subscription

P = ParamSpec("P")
R = TypeVar("R", covariant=True)
T = TypeVar("T")


class RemoteMethod(Protocol[P, R]):
    """A method: see `Member.__call__` and `Member.within`."""

    def __call__(self, *arguments: P.args, **named: P.kwargs) -> Awaitable[R]: ...

    def within(self, seconds: float) -> RemoteMethod[P, R]: ...


class RemoteEvent(Protocol[T]):
    """An event: see `Member.on`, `Member.listen` and `Member.next`."""

    def on(self, callback: Callable[[T], object]) -> Subscription: ...

    def listen(self) -> Stream[T]: ...

    def __aiter__(self) -> AsyncIterator[T]: ...

    async def next(self) -> T: ...


class RemoteProperty(Protocol[T]):
    """A property: see `Member.get`, `Member.watch` and `Member.on_change`."""

    def get(self) -> Awaitable[T]: ...

    def watch(self) -> Stream[T]: ...

    def on_change(self, callback: Callable[[T], object]) -> Subscription: ...
