"""Real processes to talk to, and a hub that says whatever a test wants."""

import asyncio
import functools
import inspect
import logging
import os
import pathlib
import signal
import struct
import subprocess
import tempfile
import unittest
from typing import Any

import msgpack
import skyfold_core

BUILD = pathlib.Path(os.environ.get("TEST_BINARY_DIR", "build/dev"))
logging.getLogger("asyncio").setLevel(logging.ERROR)  # Says of each step that it took long, which is the machine's load.
logging.getLogger("skyfold_core").setLevel(logging.CRITICAL)  # Says what makes no sense, which tests send by the dozen.

PATIENCE = 60.0  # Seconds; far more than anything here takes, also under a sanitizer on a machine that has much to do.


class Application:
    """A hub and modules, as processes."""

    def __init__(self, *modules: str) -> None:
        self.hub = subprocess.Popen([BUILD / "programs/skyfold-hub"], stdout=subprocess.PIPE, text=True)
        assert self.hub.stdout is not None
        self.path = self.hub.stdout.readline().strip()
        self.pipe = "\\\\.\\pipe\\" + os.path.basename(self.path)
        self.modules = {name: self.launch(name) for name in modules}

    def launch(self, module: str) -> subprocess.Popen[bytes]:
        return subprocess.Popen([BUILD / "skyfold.module_loader", BUILD / f"modules/{module}.dll", self.pipe, "tag"])

    def end(self) -> None:
        for process in (*self.modules.values(), self.hub):
            process.send_signal(signal.SIGTERM)
        for process in (*self.modules.values(), self.hub):
            process.wait()
        assert self.hub.stdout is not None
        self.hub.stdout.close()


class AsyncTest(unittest.IsolatedAsyncioTestCase):
    """Whatever a test awaits, it ends."""

    def __init_subclass__(cls) -> None:
        for name, test in list(vars(cls).items()):
            if name.startswith("test_") and inspect.iscoroutinefunction(test):
                setattr(cls, name, cls._bounded(test))

    @staticmethod
    def _bounded(test: Any) -> Any:
        @functools.wraps(test)
        async def run(self: Any) -> None:
            async with asyncio.timeout(PATIENCE):
                await test(self)

        return run


class ApplicationTest(AsyncTest):
    """Tests with a worker of one application, which is the same for all tests of the class."""

    modules: tuple[str, ...] = ()

    @classmethod
    def setUpClass(cls) -> None:
        cls.application = Application(*cls.modules)
        cls.addClassCleanup(cls.application.end)

    async def asyncSetUp(self) -> None:
        self.worker = await skyfold_core.connect(self.application.path, name="test")
        self.addAsyncCleanup(self.worker.close)

    async def until(self, condition: Any) -> None:
        """Waits for what another process is to bring about, a round trip to the hub at a time."""
        while not condition():
            await self.worker._registry["setInstancesHidden"](False)


def frame(value: Any) -> bytes:
    return raw(msgpack.packb(value))


def raw(body: bytes) -> bytes:
    return struct.pack("<I", len(body)) + body


def message(object_id: int, target: int, payload: Any, objects: Any = None, source: int = 1) -> bytes:
    body = payload if isinstance(payload, bytes) else msgpack.packb(payload)
    return frame({1: 4, 5: object_id, 6: source, 7: target, 8: body, 9: objects or {}})


class PlayedHub:
    """A hub that says HELLO, the worker's id being 3, and then what it is told."""

    def __init__(self, hello: bytes = frame({1: 1, 4: 3})) -> None:
        self._hello = hello
        self._folder = tempfile.TemporaryDirectory()
        self.path = self._folder.name + "/hub"
        self.heard: list[Any] = []
        self.reads = asyncio.Event()  # What has come is read while it is set.
        self.reads.set()

    async def __aenter__(self) -> "PlayedHub":
        self._server = await asyncio.start_unix_server(self._serve, self.path)
        return self

    async def __aexit__(self, *_: object) -> None:
        self._server.close()
        self.writer.close()
        await self._server.wait_closed()
        self._folder.cleanup()

    async def _serve(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        self.writer = writer
        writer.write(self._hello)
        try:
            while await self.reads.wait():
                (size,) = struct.unpack("<I", await reader.readexactly(4))
                self.heard.append(msgpack.unpackb(await reader.readexactly(size), strict_map_key=False))
        except (asyncio.IncompleteReadError, ConnectionError):
            pass

    async def barrier(self) -> None:
        """Until the worker has read all that was written: it answers PINGs in their order."""
        pongs = self.heard.count({1: 3})
        self.writer.write(frame({1: 2}))
        while self.heard.count({1: 3}) == pongs:
            await asyncio.sleep(0)

    def calls(self) -> list[Any]:
        """The payloads that have come."""
        return [msgpack.unpackb(each[8]) for each in self.heard if each[1] == 4]
