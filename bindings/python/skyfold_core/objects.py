"""The tables of one worker: its services, its references, and how often each has been sent or has come."""

from __future__ import annotations

import threading
import weakref
from typing import TYPE_CHECKING, Any

import msgpack

from . import wire
from .errors import DataFormatError, Error, RangeError
from .reference import Member, Reference, reference_class
from .remote import LocalObject, RemoteObject
from .service import Service
from .values import OBJECT, Packer, decode_plain, encode_plain

if TYPE_CHECKING:
    from .participant import Participant

Noted = dict[int, tuple[str, object]]  # By object id: the class name, and what keeps the object until it has been sent.


class Objects:
    def __init__(self, host: Participant) -> None:
        self._host = host
        self._next_sequence = 0
        self._services: weakref.WeakValueDictionary[int, Service] = weakref.WeakValueDictionary()
        self._held: dict[int, Service] = {}  # Those that other workers have references to.
        self._remotes: dict[int, RemoteObject] = {}
        self._dead_workers: set[int] = set()
        self._thread = threading.get_ident()
        self._dropped: list[RemoteObject] = []
        self._noted: Noted | None = None
        self._listed: dict[Any, Any] = {}  # OBJECTS of the message that is being read.
        self._packer = Packer(self._stand_in)
        self.request_numbers = RequestNumbers()

    def registry(self) -> Reference:
        remote = RemoteObject(self._host, wire.REGISTRY, "ipc::Registry")
        self._remotes[wire.REGISTRY] = remote
        return self._facade(remote)

    # --- What leaves

    def encode(self, value: Any) -> tuple[bytes, Noted | None]:
        """The value, and the objects in it."""
        try:
            return self._packer.pack(value), self._noted
        finally:
            self._noted = None

    def _stand_in(self, value: Any) -> Any:
        if isinstance(value, Reference):
            remote = value._object
            if remote.host is not self._host:
                raise Error(f"An object of {remote.host!r} can not be sent by {self._host!r}")
            if remote.is_outdated:
                return None
            return self._note(remote.object_id, remote.class_name, value)
        if isinstance(value, Service):
            self.share(value)
            return self._note(value._object_id, value._class_name, value)
        if isinstance(value, Member):
            raise DataFormatError(f"This can not be sent: {value!r} is a member, of which the value is got with get()")
        return encode_plain(value)

    def _note(self, object_id: int, class_name: str, holder: object) -> msgpack.ExtType:
        if self._noted is None:
            self._noted = {}
        self._noted[object_id] = (class_name, holder)
        return msgpack.ExtType(OBJECT, object_id.to_bytes(8, "little"))

    def share(self, service: Service) -> None:
        """Gives it an id of this worker. Error if it is another worker's."""
        host = self._host
        if service._host is host:
            if service._uses >= wire.MOST_USES:
                raise RangeError("An object has been sent more often than can be counted")
            return
        if service._host is not None and service._host.is_connected:
            raise Error(f"An object of {service._host!r} can not be sent by {host!r}")
        if not host.is_connected:
            raise Error("The worker is not connected")
        service._host = host
        service._object_id = self._next_sequence << 16 | host.worker_id
        service._uses = 0
        service._local = None
        self._next_sequence += 1
        self._services[service._object_id] = service

    def count_sent(self, noted: Noted) -> None:
        for object_id, (_, holder) in noted.items():
            remote = holder._object if isinstance(holder, Reference) else None
            service = remote.service if isinstance(remote, LocalObject) else holder
            if isinstance(service, Service):
                service._uses += 1
                self._held[object_id] = service

    def released(self, object_id: int, uses: int) -> None:
        service = self._held.get(object_id)
        if service is None or uses > service._uses:
            self._host.report(ValueError(f"the hub releases {uses} uses of object {object_id}, which has not so many"))
        if service is not None:
            service._uses = max(service._uses - uses, 0)
            if service._uses == 0:
                del self._held[object_id]

    # --- What comes

    def service(self, object_id: int) -> Service | None:
        return self._services.get(object_id)

    def remote(self, object_id: int) -> RemoteObject | None:
        return self._remotes.get(object_id)

    def read(self, payload: Any, listed: Any) -> tuple[dict[Any, Any], Error | None]:
        """The fields of a payload, and why a part of it could not be read. Counts the objects that it lists in any case."""
        if not listed:
            self._listed = {}
            fields, failure = self._unpack(payload)
        else:
            if type(listed) is not dict:
                raise ValueError("the objects of a message are no map")
            self._listed = listed
            try:
                fields, failure = self._unpack(payload)
            finally:
                # Here `fields` still holds the references that have just been made.
                self._count_received(listed)
                self._listed = {}
        if type(fields) is not dict:
            raise failure or ValueError("the payload of a message is no map")
        return fields, failure

    def _unpack(self, payload: Any) -> tuple[Any, Error | None]:
        if type(payload) is not bytes:
            raise ValueError("the payload of a message is no bytes")
        try:
            return wire.unpack(payload, timestamp=3, ext_hook=self._extension), None
        except Exception as error:  # One value cannot be made. Whose call it was can still be read: the caller must hear of it.
            failure = error if isinstance(error, Error) else _unreadable(error)
            return wire.unpack(payload, timestamp=2), failure

    def _extension(self, code: int, data: bytes) -> Any:
        if code != OBJECT:
            return decode_plain(code, data)
        if len(data) != 8:
            raise DataFormatError("an object whose id has not 8 bytes")
        return self._object(int.from_bytes(data, "little"))

    def _object(self, object_id: int) -> Reference:
        if object_id & 0xFFFF == self._host.worker_id:
            service = self._services.get(object_id)
            if service is None:
                raise DataFormatError("an object of this worker that has gone")
            return self.local_reference(service)
        remote = self._remotes.get(object_id)
        if remote is None:
            class_name = self._listed.get(object_id, "")
            remote = RemoteObject(self._host, object_id, class_name if isinstance(class_name, str) else "")
            remote.is_dead = wire.owner_of(object_id) in self._dead_workers
            self._remotes[object_id] = remote
        return self._facade(remote)

    def _count_received(self, listed: dict[Any, Any]) -> None:
        for object_id in listed:
            if type(object_id) is not int or object_id < 0 or object_id & 0xFFFF == self._host.worker_id:
                continue
            remote = self._remotes.get(object_id)
            if remote is not None:
                remote.uses += 1
            elif wire.owner_of(object_id) not in self._dead_workers:
                self._host.send_release(object_id, 1)

    # --- References

    def _facade(self, remote: RemoteObject) -> Reference:
        reference = remote.facade() if remote.facade is not None else None
        if reference is None:
            reference = reference_class(remote.class_name)(remote)
            remote.facade = weakref.ref(reference, lambda _: self._drop(remote))
        return reference

    def local_reference(self, service: Service) -> Reference:
        reference = service._local() if service._local is not None else None
        if reference is None:
            reference = reference_class(service._class_name)(LocalObject(self._host, service))
            service._local = weakref.ref(reference)
        return reference

    def _drop(self, remote: RemoteObject) -> None:
        """A reference has gone, in whichever thread. Its release waits for the loop, where it may have come again."""
        loop = self._host.loop
        if loop.is_closed():
            return
        if threading.get_ident() != self._thread:
            try:
                loop.call_soon_threadsafe(self._drop, remote)
            except RuntimeError:  # Closed meanwhile.
                pass
            return
        self._dropped.append(remote)
        if len(self._dropped) == 1:
            loop.call_soon(self._release_dropped)

    def _release_dropped(self) -> None:
        dropped, self._dropped = self._dropped, []
        for remote in dropped:
            if remote.facade is not None and remote.facade() is not None:
                continue
            if self._remotes.get(remote.object_id) is remote:
                del self._remotes[remote.object_id]
                remote.facade = None  # They hold each other.
                if remote.uses and not remote.is_dead:
                    self._host.send_release(remote.object_id, remote.uses)

    # --- Deaths

    def worker_died(self, worker_id: int) -> None:
        self._dead_workers.add(worker_id)
        self.request_numbers.forget(worker_id)
        self._mark_dead([each for each in self._remotes.values() if each.object_id & 0xFFFF == worker_id])

    def worker_id_reused(self, worker_id: int) -> None:
        if worker_id not in self._dead_workers:
            return
        self._dead_workers.remove(worker_id)
        for remote in [each for each in self._remotes.values() if each.object_id & 0xFFFF == worker_id]:
            remote.is_outdated = True
            del self._remotes[remote.object_id]

    def close(self) -> None:
        local = [reference._object for service in self._services.values() if service._local and (reference := service._local())]
        self._mark_dead([*self._remotes.values(), *local])
        for service in self._held.values():
            service._uses = 0
        self._held.clear()

    def _mark_dead(self, remotes: list[RemoteObject]) -> None:
        """All are dead before the first one says so: nobody who hears of it sees some of them alive."""
        dying = [remote for remote in remotes if not remote.is_dead]
        for remote in dying:
            remote.is_dead = True
        for remote in dying:
            remote.notify_dead()


def _unreadable(error: Exception) -> DataFormatError:
    return DataFormatError(f"The other side has sent what can not be read: {str(error) or type(error).__name__}")


class RequestNumbers:
    """Where the references of one worker begin to number their calls: at 1, or behind the calls that earlier references to the same
    object have cancelled. The answer to such a call may still come, and would end a new call of the same number."""

    _MOST_OBJECTS = 1000  # Of one owner. One more empties the table, and the highest number holds for all.

    def __init__(self) -> None:
        self._of_all: dict[int, int] = {}
        self._owners: dict[int, dict[int, int]] = {}

    def last(self, object_id: int) -> int:
        owner = wire.owner_of(object_id)
        return self._owners.get(owner, {}).get(object_id, self._of_all.get(owner, 0))

    def cancelled(self, object_id: int, request_id: int) -> None:
        owner = wire.owner_of(object_id)
        objects = self._owners.setdefault(owner, {})
        if len(objects) >= self._MOST_OBJECTS and object_id not in objects:
            self._of_all[owner] = max(self._of_all.get(owner, 0), *objects.values())
            objects.clear()
        objects[object_id] = max(self.last(object_id), request_id)

    def forget(self, owner: int) -> None:
        self._owners.pop(owner, None)
        self._of_all.pop(owner, None)
