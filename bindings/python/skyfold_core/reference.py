"""References to objects, as those who call, hear and watch them have."""

from __future__ import annotations

from collections.abc import Callable
from typing import TYPE_CHECKING, Any, ClassVar

from .listening import Listeners, Stream, Subscription

if TYPE_CHECKING:
    from .remote import Call, RemoteObject

_classes: dict[str, type[Reference]] = {}


def reference_class(class_name: str) -> type[Reference]:
    return _classes.get(class_name, Reference)


def argument_of(positional: tuple[Any, ...], named: dict[str, Any]) -> Any:
    """How arguments travel: none as nil, one as itself, several as an array, named ones as a map."""
    if named:
        if positional:
            raise TypeError("Arguments are all named, which makes one map of them, or none is")
        return named
    return positional[0] if len(positional) == 1 else positional or None


class Reference:
    """An object in another process, or in this one. Its members are attributes: `await greeter.greet("Ada")`.

    The object lives as long as anybody has a reference to it. Two references to one object are the same Python object as long as one
    of them is kept. `reference["a name"]` reaches members whose name is no attribute, or is one of those below.

    A derived class `class Greeter(Reference, class_name="Greeter")` declares the members for type checkers; see
    `python3 -m skyfold_core stubs`. References of that class are made with it.
    """

    __slots__ = ("_object", "__weakref__")
    _class_name: ClassVar[str] = ""
    _object: RemoteObject

    def __init_subclass__(cls, class_name: str = "", **others: Any) -> None:
        super().__init_subclass__(**others)
        cls._class_name = class_name or cls.__name__
        _classes[cls._class_name] = cls

    def __init__(self, remote: RemoteObject) -> None:
        self._object = remote

    def __getattr__(self, name: str) -> Member:
        if name[:1] == "_":
            raise AttributeError(f"{name} is no member of an object: reference[{name!r}] is, if it has one of that name")
        return Member(self, name)

    def __getitem__(self, name: str) -> Member:
        return Member(self, name)

    @property
    def class_name(self) -> str:
        """As its owner shares it; hub, registry and error messages name it so."""
        return self._object.class_name

    @property
    def object_id(self) -> int:
        """64 bits; the low 16 name the worker that owns it."""
        return self._object.object_id

    @property
    def is_dead(self) -> bool:
        """Whether its process, or the connection to the hub, has gone."""
        return self._object.is_dead

    def on_death(self, callback: Callable[[], object]) -> Subscription:
        """Calls back once, when the object's process has gone; soon, if it has already."""
        remote = self._object
        if remote.is_dead:
            remote.host.loop.call_soon(callback)
            return Subscription(remote.host.loop, Listeners(), lambda _: None, None)
        return Subscription(remote.host.loop, remote.deaths, lambda _: callback(), self)

    def __repr__(self) -> str:
        state = ", dead" if self.is_dead else ""
        return f"<{self.class_name or 'object'} {self.object_id >> 16} of worker {self.object_id & 0xFFFF}{state}>"


class Member:
    """A method, an event or a property of an object: which one it is, its owner knows."""

    __slots__ = ("_limit", "_name", "_reference")

    def __init__(self, reference: Reference, name: str, limit: float | None = None) -> None:
        self._reference = reference
        self._name = name
        self._limit = limit

    # --- A method

    def __call__(self, *arguments: Any, **named: Any) -> Call:
        """Calls it, at once; the result is to be awaited. Cancelling that cancels the call in the other process.

        Fails with the exception that the method raises (an `Error`), with `ObjectDead` when the object's process goes, with
        `OperationTimedOut` at the time limit, and with `RangeError` or `DataFormatError` for arguments that do not travel.
        """
        reference = self._reference
        return reference._object.call(reference, self._name, argument_of(arguments, named), self._limit)

    def within(self, seconds: float) -> Member:
        """The method with a time limit: `await oracle.ask.within(0.5)("Why?")`. A shorter one of the caller's holds, unless this
        is `float("inf")`."""
        return Member(self._reference, self._name, seconds)

    # --- An event

    def on(self, callback: Callable[[Any], object]) -> Subscription:
        """Calls back with each event: None, its one argument, or the list of its arguments."""
        remote = self._reference._object
        return Subscription(remote.host.loop, remote.listeners(self._name), callback, self._reference)

    def listen(self) -> Stream[Any]:
        """Hears the event from now on: `async for event in kitchen.progress.listen()`. `async for ... in kitchen.progress` is short."""
        remote = self._reference._object
        stream: Stream[Any] = Stream(remote.host.loop, remote.listeners(self._name), self._reference)
        if remote.is_dead:
            stream._end(remote.death())
        return stream

    __aiter__ = listen

    async def next(self) -> Any:
        """The next event, counted from when this is called."""
        with self.listen() as stream:
            return await stream.next()

    # --- A property

    def get(self) -> Call:
        """Its value."""
        return self._reference._object.call(self._reference, self._name, None, self._limit)

    def watch(self) -> Stream[Any]:
        """Its value now, and then each new one, none left out and none twice: `async for degrees in heating.temperature.watch()`."""
        watch = self._reference._object.property(self._name)
        stream: Stream[Any] = Stream(self._reference._object.host.loop, watch.listeners, self._reference)
        watch.greet(stream, self._reference)
        return stream

    def on_change(self, callback: Callable[[Any], object]) -> Subscription:
        """Calls back with its value, in a later turn of the loop, and then with each new one."""
        watch = self._reference._object.property(self._name)
        subscription = Subscription(self._reference._object.host.loop, watch.listeners, callback, self._reference)
        watch.greet(subscription, self._reference)
        return subscription

    def __repr__(self) -> str:
        return f"<{self._name} of {self._reference!r}>"
