# What can break here: what a stranger tries first. The README's first lines, the command line, how the hub is found.
import asyncio
import json
import os
import pathlib
import re
import socket
import subprocess
import sys
import tempfile
import unittest.mock
from typing import Any

import skyfold_core
from skyfold_core.stubs import module_of
from skyfold_core.type_text import TypeReader, TypeTextError
from support import Application, ApplicationTest, PlayedHub

README = pathlib.Path(skyfold_core.__file__).parents[1] / "README.md"


class ToolsTest(ApplicationTest):
    modules = ("1_one_call", "2_events", "3_property", "4_objects")

    def run_python(self, *arguments: str, **environment: str) -> subprocess.CompletedProcess[str]:
        command = [sys.executable, "-B", *arguments]
        return subprocess.run(command, env=os.environ | environment, capture_output=True, text=True, timeout=30)

    def tool(self, *arguments: str) -> subprocess.CompletedProcess[str]:
        return self.run_python("-m", "skyfold_core", "--pipe", self.application.path, *arguments)

    async def test_the_programs_of_the_readme_run_as_they_are(self) -> None:
        first, second = re.findall(r"```python\n(.*?)```", README.read_text(), re.DOTALL)
        ran = await asyncio.to_thread(self.run_python, "-c", first, SKYFOLD_CORE_PIPE=self.application.pipe)
        self.assertEqual((ran.stdout, ran.stderr), ("Hello, Ada!\n", ""))
        offering: dict[str, Any] = {"skyfold_core": skyfold_core, "__name__": "offering"}
        exec(second, offering)
        with unittest.mock.patch.dict(os.environ, SKYFOLD_CORE_PIPE=self.application.pipe):
            main = asyncio.ensure_future(offering["main"]())
            await asyncio.sleep(0)  # It has read the variable.
        while "events" not in await (greeter := await self.worker.find("Greeter"))["ipc.describe"]():
            pass  # It is the module's one, which has none.
        greeted = greeter.greeted.listen()
        self.assertEqual([await greeter.greet("Bob"), await greeted.next()], ["Hello, Bob!", "Bob"])
        main.cancel()

    def test_the_version_is_that_of_the_library(self) -> None:
        lists = (README.parents[2] / "CMakeLists.txt").read_text()
        self.assertIn(f"VERSION {skyfold_core.__version__}", lists)

    def test_the_command_line_says_what_has_come_and_what_has_failed(self) -> None:
        for arguments, code, out, error in (
            (("call", "Greeter", "greet", "Ada"), 0, '"Hello, Ada!"\n', ""),
            (("call", "Greeter", "greet", "3"), 1, "", "skyfold_core: DataFormatException: Greeter.greet: expected a text, got 3\n"),
            (("call", "Nobody", "greet", "--timeout", "0.01"), 1, "", "Object of class Nobody is not available"),
            (("call", "Greeter", "greet", "--pipe", "/nowhere"), 3, "", "skyfold_core: There is no hub at /nowhere"),
            (("call",), 2, "", "CLASS"),
            (("--help",), 0, "stubs", ""),
        ):
            ran = self.tool(*arguments)
            self.assertEqual(ran.returncode, code, ran)
            self.assertIn(out, ran.stdout)
            self.assertIn(error, ran.stderr)
        described = json.loads(self.tool("describe", "Heating").stdout)
        self.assertEqual(described["properties"], {"temperature": "int32"})

    async def test_stubs_are_a_module_whose_classes_are_found(self) -> None:
        made = await asyncio.to_thread(self.tool, "stubs", "Greeter", "Kitchen", "Heating", "Bank")
        self.assertEqual((made.returncode, made.stderr), (0, ""))
        for line in (
            "greet: RemoteMethod[[str], str]",
            "progress: RemoteEvent[tuple[str, int]]",
            "temperature: RemoteProperty[int]",
            "open: RemoteMethod[[Clerk | Service], Account]",
        ):
            self.assertIn("    " + line + "\n", made.stdout)
        module: dict[str, type[skyfold_core.Reference]] = {"__name__": "made"}
        exec(made.stdout, module)
        greeter = await self.worker.find(module["Greeter"])
        self.assertEqual((type(greeter), await greeter.greet("Ada")), (module["Greeter"], "Hello, Ada!"))

    def test_what_others_say_of_themselves_becomes_no_code(self) -> None:
        reader = TypeReader()
        for text, annotation in (
            ("optional<Box { width: int32; next: optional<Box>; }>", "Box | None"),
            ("variant<text, Colour { red | green }, text>", "tuple[int, str | Literal['red', 'green']]"),
            ("map<text, list<tuple<double, timestamp>>>", "dict[str, list[tuple[float, datetime.datetime]]]"),
            ("Point [ x: int8; label: text; ]", "tuple[int, str]"),
            *((bad, "Any") for bad in ("", "a{", "a{b|", "x[y:", "list<", "list<text>>", "Foo<int>", "a b", "import os", "x\ny")),
            *((bad, "Any") for bad in ("list<" * 60 + "text" + ">" * 60, "C { __import__('os') }", "class { a: text; }", "é")),
        ):
            self.assertEqual(reader.read(text), annotation)
        self.assertIn("    next: Box | None", reader.structures["Box"])
        for bad in (5, {}, {"interface": "a b"}, {"interface": "A", "methods": {"x y": {}}}, {"interface": "A", "events": []}):
            with self.assertRaises(TypeTextError):
                module_of([bad])

    async def test_the_one_application_that_runs_is_found_and_of_several_none_is_taken(self) -> None:
        folder = self.enterContext(tempfile.TemporaryDirectory())
        self.enterContext(unittest.mock.patch.dict(os.environ, XDG_RUNTIME_DIR=folder))
        with self.assertRaisesRegex(skyfold_core.ConnectionFailed, "No application runs"):
            await skyfold_core.connect()
        self.addCleanup(Application().end)
        with socket.socket(socket.AF_UNIX) as killed:
            killed.bind(folder + "/core-pipes/skyfold-00000000-0000-0000-0000-000000000000")
        async with skyfold_core.connect() as worker:
            self.assertTrue(worker.is_connected)
        self.addCleanup(Application().end)
        with self.assertRaisesRegex(skyfold_core.ConnectionFailed, "Several applications run"):
            await skyfold_core.connect()

    async def test_who_is_launched_as_a_module_says_its_tag(self) -> None:
        async with PlayedHub() as hub:
            arguments = ["skyfold", "modules/thumbs.dll", hub.path, "a tag"]
            async with skyfold_core.connect_launched(arguments):
                await hub.barrier()
                self.assertEqual(hub.heard[0], {1: 1, 2: "thumbs", 3: "a tag"})
        with self.assertRaises(ValueError):
            skyfold_core.connect_launched(["skyfold"])
