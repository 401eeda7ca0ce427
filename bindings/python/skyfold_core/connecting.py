"""How a program joins an application."""

import asyncio
import os
import signal
import sys
from collections.abc import Generator
from typing import Any

from . import pipes
from .participant import Participant
from .worker import Worker

HELLO_SECONDS = 30.0  # As long as the hub waits for a HELLO.


class Connecting:
    """What `connect()` gives: `async with` it, or `await` it and `close()` the worker."""

    def __init__(self, path: str | None, name: str | None, tag: str, timeout: float) -> None:
        self._path = path
        self._name = name or os.path.basename(sys.argv[0] or "") or "python"
        self._tag = tag
        self._timeout = timeout
        self._worker: Worker | None = None

    def __await__(self) -> Generator[Any, None, Worker]:
        return self._join().__await__()

    async def __aenter__(self) -> Worker:
        self._worker = await self._join()
        return self._worker

    async def __aexit__(self, *_: object) -> None:
        if self._worker is not None:
            await self._worker.close()

    async def _join(self) -> Worker:
        path = pipes.socket_path(self._path) if self._path else pipes.find()
        participant = Participant(asyncio.get_running_loop(), self._name)
        await participant.join(path, self._tag, self._timeout)
        return Worker(participant)


def connect(
    path: str | None = None, *, name: str | None = None, tag: str = "", timeout: float = HELLO_SECONDS
) -> Connecting:
    r"""Joins the application whose hub is at `path`: a socket, or a pipe's name `\\.\pipe\NAME`.

    Without one, that which the environment variable SKYFOLD_CORE_PIPE names, or the only one that this user runs. `name` is for
    people, `tag` for the application's module manager, which knows its launches by it.

    ConnectionFailed if there is no hub, or it does not speak as hubs do; OperationTimedOut if it says nothing for `timeout` seconds.
    """
    return Connecting(path, name, tag, timeout)


def connect_launched(arguments: list[str] | None = None, *, name: str | None = None) -> Connecting:
    """Joins the application that has launched this program as a module: `PROGRAM MODULE PIPE TAG` is how it does that.

    Ctrl-C reaches all processes of an application, of which the main program alone reacts to it: this one ignores it from here on.
    To be called in the main thread. ValueError for other arguments.
    """
    arguments = sys.argv if arguments is None else arguments
    if len(arguments) != 4:
        raise ValueError(f"{arguments[0] if arguments else 'This program'} is launched by an application: MODULE PIPE TAG")
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    module = os.path.splitext(os.path.basename(arguments[1]))[0]
    return Connecting(arguments[2], name or module, arguments[3], HELLO_SECONDS)
