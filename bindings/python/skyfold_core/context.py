"""For whom work is done: how long the caller waits, and the trace that all calls for one request share.

Calls inherit both from the call that is being served, or from `within()` and `trace()` around them.
"""

import time
from collections.abc import Iterator
from contextlib import contextmanager
from contextvars import ContextVar
from typing import NamedTuple


class WorkContext(NamedTuple):
    deadline: float | None = None  # Of time.monotonic(), in seconds.
    trace: int = 0  # 64 bits; 0 for none.


current: ContextVar[WorkContext] = ContextVar("skyfold_core.work", default=WorkContext())


def remaining_time() -> float | None:
    """Seconds until whoever asked for the work that runs here gives up; negative if it has, None if there is no limit."""
    deadline = current.get().deadline
    return None if deadline is None else deadline - time.monotonic()


def trace_id() -> int:
    """The number that all calls for one request share, in all processes; 0 without one."""
    return current.get().trace


@contextmanager
def within(seconds: float) -> Iterator[None]:
    """All calls that are made inside end within this time, in all processes that they lead to. A shorter limit around it holds."""
    work = current.get()
    deadline = time.monotonic() + seconds
    if work.deadline is not None:
        deadline = min(deadline, work.deadline)
    token = current.set(work._replace(deadline=deadline))
    try:
        yield
    finally:
        current.reset(token)


@contextmanager
def trace(number: int) -> Iterator[None]:
    """All calls that are made inside, in all processes, carry this number of 64 bits."""
    if not 0 < number < 1 << 64:
        raise ValueError(f"{number} is no trace: a number from 1, of 64 bits")
    token = current.set(current.get()._replace(trace=number))
    try:
        yield
    finally:
        current.reset(token)
