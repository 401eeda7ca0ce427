"""The files of the tree, for scripts that check them or work on a copy."""
import json
import os
import pathlib
import shlex
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent
COMMANDS = ROOT / "build" / "lint"  # Where the commands of all sources are; nothing is built there.


def list_files(*endings):
    """Their names, as scripts/list-files prints them; all of them, or those with one of the endings."""
    listed = subprocess.run([ROOT / "scripts/list-files"], check=True, capture_output=True, text=True).stdout.splitlines()
    return [name for name in listed if name.endswith(endings or "")]


def copy_files(names, source, target):
    """Copies only what differs, so that only that is compiled, and removes what else there is outside of build/: CMake takes all
    that it finds."""
    names = set(names)
    for name in names:
        file, copy = source / name, target / name
        if not copy.is_file() or copy.read_bytes() != file.read_bytes():
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(file, copy)
    for copy in [file for file in target.rglob("*") if file.is_file()]:
        name = str(copy.relative_to(target))
        if not name.startswith("build/") and name not in names:
            copy.unlink()


def compile_commands():
    """For each source of the dev build how it is compiled, without the names of source and output."""
    subprocess.run([ROOT / "scripts/build", "-q", "lint", "build.ninja"], check=True)
    commands = {}
    for entry in json.loads((COMMANDS / "compile_commands.json").read_text()):
        words = shlex.split(entry["command"])
        commands[os.path.relpath(entry["file"], ROOT)] = words[:words.index("-o")]
    return commands
