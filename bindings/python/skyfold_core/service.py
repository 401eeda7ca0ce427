"""Objects that this process offers to others."""

from __future__ import annotations

import functools
import inspect
import typing
import weakref
from collections.abc import Callable
from typing import TYPE_CHECKING, Any, ClassVar, Generic, TypeVar, overload

from .convert import Converter, Mismatch, converter, describe_mismatch
from .errors import DataFormatError, brief
from .reference import Reference, argument_of

if TYPE_CHECKING:
    from .participant import Participant

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
    arguments gets the entries of a map. What comes is checked against the annotations, and made what they say where that is a
    dataclass, an enumeration or a `timedelta`. An `async` method is cancelled when its caller cancels, has no time left, or dies.
    What a method raises is the caller's failure.

    A service belongs to one worker, and lives while somebody holds it here or a reference to it elsewhere.
    """

    _class_name: ClassVar[str] = "Service"
    _methods: ClassVar[dict[str, Method]] = {}
    _events: ClassVar[dict[str, Event]] = {}
    _properties: ClassVar[dict[str, Property[Any]]] = {}

    # Of the worker that it has been shared by.
    _host: Participant | None = None
    _object_id = -1
    _uses = 0  # Messages that have carried it away, and that the hub has not said to be over.
    _local: weakref.ref[Reference] | None = None

    def __init_subclass__(cls, class_name: str = "", **others: Any) -> None:
        super().__init_subclass__(**others)
        cls._class_name = class_name or cls.__name__
        members = {name: inspect.getattr_static(cls, name) for name in dir(cls) if not name.startswith("_")}
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
    if service._host is not None:
        service._host.fire(service, event, argument_of(arguments, named))


class Method:
    """A method of a service, and how it takes what came for it."""

    def __init__(self, cls: type[Service], name: str, function: Callable[..., Any]) -> None:
        self.function = function
        self.is_async = inspect.iscoroutinefunction(function)
        self.parameters = list(inspect.signature(function).parameters.values())[1:]
        self._positional = [p for p in self.parameters if p.kind in (p.POSITIONAL_ONLY, p.POSITIONAL_OR_KEYWORD)]
        self._named = {p.name: p for p in self.parameters if p.kind is p.KEYWORD_ONLY}
        self._takes_any_name = any(p.kind is p.VAR_KEYWORD for p in self.parameters)
        self._least = sum(p.default is p.empty for p in self._positional)
        self._most = len(self._positional)
        if any(p.kind is p.VAR_POSITIONAL for p in self.parameters):
            self._most = 1 << 32
        self._name = f"{cls._class_name}.{name}"

    @property
    def takes_map(self) -> bool:
        return self._most == 0 and bool(self._named or self._takes_any_name)

    @functools.cached_property
    def hints(self) -> dict[str, Any]:
        """Its annotations. They may name classes that are declared behind the service."""
        try:
            return typing.get_type_hints(self.function)
        except Exception:  # Names that type checkers alone know.
            return {}

    @functools.cached_property
    def _converters(self) -> list[Converter]:
        """Of the positional parameters."""
        return [converter(self.hints.get(p.name, Any)) for p in self._positional]

    @functools.cached_property
    def _named_converters(self) -> dict[str, Converter]:
        return {name: converter(self.hints.get(name, Any)) for name in self._named}

    def take(self, argument: Any) -> tuple[tuple[Any, ...], dict[str, Any]]:
        """The arguments to call with, as their annotations say. DataFormatError where they do not fit."""
        if self.takes_map:
            return (), self._take_map({} if argument is None else argument)
        arguments = self._spread(argument)
        try:
            for number, convert in enumerate(self._converters[: len(arguments)]):
                arguments[number] = convert(arguments[number])
        except Mismatch as mismatch:
            place = f", argument {number + 1}" if self._most > 1 else ""
            raise describe_mismatch(self._name + place, mismatch) from None
        return tuple(arguments), {}

    def _spread(self, argument: Any) -> list[Any]:
        if self._most == 0:
            return []
        if argument is None and self._least == 0:
            return []
        if self._most == 1:
            return [argument]
        if isinstance(argument, list) and self._least <= len(argument) <= self._most:
            return list(argument)
        if self._least <= 1 and not isinstance(argument, list):
            return [argument]
        wanted = f"{self._least}" if self._least == self._most else f"{self._least} or more"
        raise DataFormatError(f"{self._name}: expected an array of {wanted}, got {brief(argument)}")

    def _take_map(self, argument: Any) -> dict[str, Any]:
        if not isinstance(argument, dict) or not all(isinstance(key, str) for key in argument):
            raise DataFormatError(f"{self._name}: expected a map of named arguments, got {brief(argument)}")
        for name, parameter in self._named.items():
            if parameter.default is parameter.empty and name not in argument:
                raise DataFormatError(f"{self._name}: there is no argument {name} in {brief(argument)}")
        taken = {}
        for name, value in argument.items():
            try:
                if name in self._named:
                    taken[name] = self._named_converters[name](value)
                elif self._takes_any_name:
                    taken[name] = value
            except Mismatch as mismatch:
                raise describe_mismatch(f"{self._name}, argument {name}", mismatch) from None
        return taken
