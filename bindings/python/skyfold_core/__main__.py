"""Objects of a running application from the command line."""

import argparse
import asyncio
import base64
import json
import sys
from typing import Any

from . import Error, Reference, TypedBytes, Worker, connect
from .stubs import module_of
from .type_text import TypeTextError

FAILED = 1  # The object or its method has failed, or there is none.
NO_HUB = 3  # (2 is a wrong command line.)


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="python3 -m skyfold_core",
        description=__doc__,
        epilog="Exit codes: 0; 1 when the object or its method fails or is not found; 2 for a wrong command line; 3 without a hub.",
    )
    parser.add_argument("--pipe", metavar="PATH", help="of the hub; else $SKYFOLD_CORE_PIPE, else of the one that runs")
    parser.add_argument("--timeout", type=float, default=10.0, metavar="SECONDS", help="how long to wait (10)")
    commands = parser.add_subparsers(dest="command", required=True, metavar="COMMAND")
    call = commands.add_parser("call", help="call a method, and print its result as JSON")
    call.add_argument("class_name", metavar="CLASS")
    call.add_argument("method", metavar="METHOD")
    call.add_argument("arguments", nargs="*", metavar="ARG", help="JSON; what is none is a text")
    describe = commands.add_parser("describe", help="print what objects say of themselves as JSON")
    describe.add_argument("classes", nargs="+", metavar="CLASS")
    stubs = commands.add_parser("stubs", help="print a module with their classes, for type checkers and worker.find()")
    stubs.add_argument("classes", nargs="+", metavar="CLASS")
    # Options may stand behind the command as well.
    for command in (call, describe, stubs):
        command.add_argument("--pipe", default=argparse.SUPPRESS, help=argparse.SUPPRESS)
        command.add_argument("--timeout", type=float, default=argparse.SUPPRESS, help=argparse.SUPPRESS)
    return parser.parse_args()


def argument(text: str) -> Any:
    try:
        return json.loads(text)
    except ValueError:
        return text


def printable(value: Any) -> Any:
    """Of what JSON lacks: bytes as base 64, the rest as text."""
    if isinstance(value, bytes):
        return base64.b64encode(value).decode()
    if isinstance(value, TypedBytes):
        return {"mimeType": value.mime_type, "data": base64.b64encode(value.data).decode()}
    return str(value) if not isinstance(value, Reference) else repr(value)


async def carry_out(worker: Worker, options: argparse.Namespace) -> str:
    if options.command == "call":
        found = await worker.find(options.class_name, options.timeout)
        result = await found[options.method].within(options.timeout)(*map(argument, options.arguments))
        return json.dumps(result, default=printable, ensure_ascii=False)
    descriptions = []
    for name in options.classes:
        found = await worker.find(name, options.timeout)
        descriptions.append(await found["ipc.describe"].within(options.timeout)())
    if options.command == "stubs":
        return module_of(descriptions).rstrip("\n")
    return json.dumps(descriptions if len(descriptions) > 1 else descriptions[0], indent=4, default=printable)


async def run(options: argparse.Namespace) -> int:
    try:
        worker = await connect(options.pipe, name="skyfold_core")
    except Error as error:
        print(f"skyfold_core: {error}", file=sys.stderr)
        return NO_HUB
    async with worker:
        try:
            print(await carry_out(worker, options))
        except (Error, TypeTextError, ValueError, TypeError) as error:
            name = f"{error.class_name}: " if isinstance(error, Error) else ""
            print(f"skyfold_core: {name}{error}", file=sys.stderr)
            return FAILED
    return 0


if __name__ == "__main__":
    try:
        sys.exit(asyncio.run(run(parse_arguments())))
    except KeyboardInterrupt:
        sys.exit(130)
