"""Carries out the calls that come for the services of one worker."""

from __future__ import annotations

import asyncio
import contextvars
import functools
import time
from collections.abc import Awaitable, Callable
from typing import TYPE_CHECKING, Any

from . import context, wire
from .describe import describe_service
from .errors import Error, PromiseLost, RangeError, record_of

if TYPE_CHECKING:
    from .service import Service
    from .participant import Participant

MOST_SERVED = 100_000
MOST_SERVED_BYTES = 1 << 30
"""Calls that one worker carries out at a time. Further ones are refused."""

Key = tuple[int, int, int]  # Who calls, the object, the number of the call.


class Serving:
    def __init__(self, host: Participant) -> None:
        self._host = host
        self._tasks: dict[Key, asyncio.Task[None]] = {}
        self._bytes = 0  # Of all calls whose task has not ended.
        self._unanswered = 0  # Numbers, downwards, for calls that have none.

    def on_message(
        self, service: Service, source: int, fields: dict[Any, Any], failure: Exception | None, size: int
    ) -> None:
        kind = fields.get("TYPE")
        if kind == "CALL":
            request_id = fields.get("REQUEST_ID", wire.NO_REQUEST)
            if type(request_id) is not int or not 0 <= request_id <= wire.NO_REQUEST:
                raise ValueError("a call whose number is none")
            try:
                if failure is not None:
                    raise failure
                self._call(service, source, request_id, fields, size)
            except Exception as error:
                self._answer_error(service, source, request_id, error)
        elif kind == "CANCEL":
            self._cancel((source, service._object_id, fields.get("REQUEST_ID", wire.NO_REQUEST)))
        elif failure is not None:
            raise failure

    def worker_died(self, worker_id: int) -> None:
        for key in [key for key in self._tasks if key[0] == worker_id]:
            self._cancel(key)

    def close(self) -> None:
        for key in list(self._tasks):
            self._cancel(key)

    def _cancel(self, key: Key) -> None:
        if (task := self._tasks.pop(key, None)) is not None:
            task.cancel()

    def _call(self, service: Service, source: int, request_id: int, fields: dict[Any, Any], size: int) -> None:
        name = fields.get("METHOD_NAME")
        if not isinstance(name, str):
            raise RangeError("A message of an object has no METHOD_NAME")
        method = service._methods.get(name)
        if method is None:
            return self._answer(service, source, request_id, self._built_in(service, name))
        arguments, named = method.take(fields.get("ARGUMENT"))
        run = functools.partial(method.function, service, *arguments, **named)
        work = _context_of(fields)
        if not method.is_async:
            result = work.run(run)
            if not isinstance(result, Awaitable):
                return self._answer(service, source, request_id, result)
            run = functools.partial(_itself, result)
        if len(self._tasks) >= MOST_SERVED or self._bytes + size > MOST_SERVED_BYTES:
            raise RangeError(f"{service._class_name} is busy: {len(self._tasks)} calls are being carried out")
        task = self._start(service, source, request_id, run, work)
        self._bytes += size
        task.add_done_callback(lambda _: self._ended(size))

    def _ended(self, size: int) -> None:
        self._bytes -= size

    def _built_in(self, service: Service, name: str) -> Any:
        if name in service._properties:
            return getattr(service, name)
        if name == "ipc.describe":
            return describe_service(type(service))
        raise Error(f"{service._class_name} has no method {name}")

    def _start(
        self, service: Service, source: int, request_id: int, run: Callable[[], Awaitable[Any]], work: contextvars.Context
    ) -> asyncio.Task[None]:
        if request_id == wire.NO_REQUEST:
            self._unanswered -= 1
            key = (source, service._object_id, self._unanswered)
        else:
            key = (source, service._object_id, request_id)
            self._cancel(key)  # Who uses a number again does not wait for the first answer.
        task = self._host.loop.create_task(self._carry_out(service, key, run), context=work)
        self._tasks[key] = task
        return task

    async def _carry_out(self, service: Service, key: Key, run: Callable[[], Awaitable[Any]]) -> None:
        source, _, request_id = key
        this = asyncio.current_task()
        try:
            result = await run()
        except asyncio.CancelledError:
            if self._take(key, this):  # Nobody has asked for this: the service itself has.
                self._answer_error(service, source, request_id, PromiseLost("The service has forgotten the call"))
        except Exception as error:
            if self._take(key, this):
                self._answer_error(service, source, request_id, error)
        else:
            if self._take(key, this):
                try:
                    self._answer(service, source, request_id, result)
                except Exception as error:
                    self._answer_error(service, source, request_id, error)

    def _take(self, key: Key, task: asyncio.Task[None] | None) -> bool:
        """Whether an answer is still wanted."""
        if self._tasks.get(key) is not task:
            return False
        del self._tasks[key]
        return True

    def _answer(self, service: Service, source: int, request_id: int, result: Any) -> None:
        if 0 <= request_id < wire.NO_REQUEST:
            encoded, noted = self._host.encode(result)
            self._host.send_from(service, source, wire.result_payload(request_id, encoded), noted)

    def _answer_error(self, service: Service, source: int, request_id: int, error: Exception) -> None:
        if 0 <= request_id < wire.NO_REQUEST:
            try:
                encoded, _ = self._host.encode(record_of(error))
            except Error as unsendable:  # Its text is none.
                encoded, _ = self._host.encode(record_of(unsendable))
            self._host.send_from(service, source, wire.error_payload(request_id, encoded), None)
        else:
            text = f"A call of {service._class_name} that is not answered has failed"
            self._host.loop.call_exception_handler({"message": text, "exception": error})


async def _itself(result: Awaitable[Any]) -> Any:
    return await result


def _context_of(fields: dict[Any, Any]) -> contextvars.Context:
    """A context of its own, with what the caller tells: its time and its trace."""
    work = contextvars.Context()
    left, trace = fields.get("TIME_LEFT"), fields.get("TRACE")
    if left is None and trace is None:
        return work
    deadline = time.monotonic() + left / 1e6 if isinstance(left, int) and left > 0 else None
    work.run(context.current.set, context.WorkContext(deadline, trace if isinstance(trace, int) and trace > 0 else 0))
    return work
