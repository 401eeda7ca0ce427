"""Objects that this process offers to others."""

from __future__ import annotations

import functools
import inspect
import weakref
from collections.abc import Callable
from typing import TYPE_CHECKING, Any, ClassVar, Generic, TypeVar, overload

from .errors import DataFormatError
from .reference import Reference, argument_of

if TYPE_CHECKING:
    from .worker import Worker

T = TypeVar("T")


class Service:
    """An object that others call: derive from it, and each public method can be called by its name.

        class Greeter(skyfold_core.Service):
            greeted = skyfold_core.Event(str)
            mood = skyfold_core.Property("fine")

            async def greet(self, name: str) -> str:
                self.greeted(name)
                return f"Hello, {name}!"

    Others find it once `await worker.offer(Greeter())` has registered it, or are given it as an argument or a result. Objects of C++
    are told apart by a name with namespaces: `class Greeter(skyfold_core.Service, class_name="app::Greeter")`.

    A method gets one argument as it is, and the elements of an array where it takes several; one that has nothing but keyword
    arguments gets the entries of a map. An `async` one is cancelled when its caller cancels, has no time left, or dies. What it raises
    is the caller's failure. A service belongs to one worker, and lives while somebody holds it here or a reference to it elsewhere.
    """

    _class_name: ClassVar[str] = "Service"
    _methods: ClassVar[dict[str, Method]] = {}
    _events: ClassVar[dict[str, Event]] = {}
    _properties: ClassVar[dict[str, Property[Any]]] = {}

    # Of the worker that it has been shared by.
    _worker: Worker | None = None
    _object_id = -1
    _uses = 0  # Messages that have carried it away, and that the hub has not said to be over.
    _local: weakref.ref[Reference] | None = None

    def __init_subclass__(cls, class_name: str = "", **others: Any) -> None:
        super().__init_subclass__(**others)
        cls._class_name = class_name or cls.__name__
        members = {name: getattr(cls, name) for name in dir(cls) if not name.startswith("_")}
        cls._methods = {name: Method(cls, name, value) for name, value in members.items() if inspect.isfunction(value)}
        cls._events = {name: value for name, value in members.items() if isinstance(value, Event)}
        cls._properties = {name: value for name, value in members.items() if isinstance(value, Property)}


class Event:
    """An event of a service: calling it tells everybody who has a reference. Its types are for who asks what the service has."""

    def __init__(self, *types: Any) -> None:
        self.types = types
        self._name = ""

    def __set_name__(self, owner: type, name: str) -> None:
        self._name = name

    @overload
    def __get__(self, service: None, owner: type) -> Event: ...

    @overload
    def __get__(self, service: Service, owner: type) -> Callable[..., None]: ...

    def __get__(self, service: Service | None, owner: type) -> Event | Callable[..., None]:
        return self if service is None else functools.partial(_fire, service, self._name)


class Property(Generic[T]):
    """A value of a service that everybody who has a reference can read and watch; assigning it tells them, unless it is the same.

    `type`, else that of the first value, is for who asks what the service has.
    """

    def __init__(self, value: T, type: Any = None) -> None:
        self.type = type or value.__class__
        self._first = value
        self._name = ""

    def __set_name__(self, owner: type, name: str) -> None:
        self._name = name

    @overload
    def __get__(self, service: None, owner: type) -> Property[T]: ...

    @overload
    def __get__(self, service: Service, owner: type) -> T: ...

    def __get__(self, service: Service | None, owner: type) -> Property[T] | T:
        return self if service is None else service.__dict__.get(self._name, self._first)

    def __set__(self, service: Service, value: T) -> None:
        old = self.__get__(service, type(service))
        if type(old) is type(value) and old == value:
            return
        service.__dict__[self._name] = value
        _fire(service, self._name, value)


def _fire(service: Service, event: str, *arguments: Any, **named: Any) -> None:
    if service._worker is not None:
        service._worker.fire(service, event, argument_of(arguments, named))


class Method:
    """A method of a service, and how it takes what came for it."""

    def __init__(self, cls: type[Service], name: str, function: Callable[..., Any]) -> None:
        self.function = function
        self.is_async = inspect.iscoroutinefunction(function)
        self.signature = inspect.signature(function)
        parameters = list(self.signature.parameters.values())[1:]
        positional = [p for p in parameters if p.kind in (p.POSITIONAL_ONLY, p.POSITIONAL_OR_KEYWORD)]
        self._least = sum(p.default is p.empty for p in positional)
        self._most = len(positional)
        if any(p.kind is p.VAR_POSITIONAL for p in parameters):
            self._most = 1 << 32
        self._named = {p.name: p.default is p.empty for p in parameters if p.kind is p.KEYWORD_ONLY}
        self._takes_any_name = any(p.kind is p.VAR_KEYWORD for p in parameters)
        self._takes_map = self._most == 0 and bool(self._named or self._takes_any_name)
        self._name = f"{cls._class_name}.{name}"

    def take(self, argument: Any) -> tuple[tuple[Any, ...], dict[str, Any]]:
        """The arguments to call with. DataFormatError where they do not fit."""
        if self._takes_map:
            return (), self._take_map({} if argument is None else argument)
        if self._most == 0:
            return (), {}
        if self._most == 1:
            return (() if argument is None and self._least == 0 else (argument,)), {}
        if isinstance(argument, list) and self._least <= len(argument) <= self._most:
            return tuple(argument), {}
        if argument is None and self._least == 0:
            return (), {}
        if self._least <= 1 and not isinstance(argument, list):
            return (argument,), {}
        wanted = f"{self._least}" if self._least == self._most else f"{self._least} or more"
        raise DataFormatError(f"{self._name}: expected an array of {wanted}, got {argument!r:.100}")

    def _take_map(self, argument: Any) -> dict[str, Any]:
        if not isinstance(argument, dict) or not all(isinstance(key, str) for key in argument):
            raise DataFormatError(f"{self._name}: expected a map of named arguments, got {argument!r:.100}")
        for name, is_needed in self._named.items():
            if is_needed and name not in argument:
                raise DataFormatError(f"{self._name}: there is no argument {name} in {argument!r:.100}")
        if self._takes_any_name:
            return argument
        return {name: value for name, value in argument.items() if name in self._named}
