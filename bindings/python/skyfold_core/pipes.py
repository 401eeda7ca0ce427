"""Where the pipe of a running application is."""

import os
import re
import socket
import stat
from pathlib import Path

from .errors import ConnectionFailed

PIPE_VARIABLE = "SKYFOLD_CORE_PIPE"
"""The environment variable that names the pipe for programs that are not told one."""

_PREFIX = "\\\\.\\pipe\\"
_UUID = re.compile(r"[\w.-]*-[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}")


def folder() -> Path:
    """Where this user's pipes are; it need not exist."""
    runtime = os.environ.get("XDG_RUNTIME_DIR", "")
    if runtime.startswith("/") and os.path.isdir(runtime) and os.stat(runtime).st_uid == os.geteuid():
        return Path(runtime, "core-pipes")
    temporary = os.environ.get("TMPDIR", "")
    return Path(temporary if temporary.startswith("/") else "/tmp", f"core-pipes-{os.geteuid()}")


def socket_path(pipe: str) -> str:
    r"""The socket that stands for the pipe `\\.\pipe\NAME`; any other path is the socket itself."""
    if not pipe.startswith(_PREFIX):
        return pipe
    name = pipe.removeprefix(_PREFIX)
    if name in ("", ".") or "/" in name or "\0" in name or ".." in name:
        raise ConnectionFailed(f'"{pipe}" is no name of a pipe')
    return str(folder() / name)


def running() -> list[str]:
    """The sockets of the hubs of this user that run."""
    where = folder()
    try:
        status = where.lstat()
        names = sorted(os.listdir(where))
    except FileNotFoundError:
        return []
    if not stat.S_ISDIR(status.st_mode) or status.st_uid != os.geteuid() or status.st_mode & 0o077:
        raise ConnectionFailed(f"{where} is not this user's alone: no pipe in it can be trusted")
    return [str(where / name) for name in names if _UUID.fullmatch(name) and _answers(str(where / name))]


def _answers(path: str) -> bool:
    """Whether somebody listens: a process that was killed leaves its socket behind."""
    with socket.socket(socket.AF_UNIX) as probe:
        probe.settimeout(1)
        try:
            probe.connect(path)
        except OSError:
            return False
        return True


def find() -> str:
    """The pipe that the environment names, or that of the one application that runs."""
    if named := os.environ.get(PIPE_VARIABLE):
        return socket_path(named)
    found = running()
    if len(found) == 1:
        return found[0]
    if not found:
        raise ConnectionFailed(f"No application runs: there is no hub in {folder()}, and {PIPE_VARIABLE} is not set")
    raise ConnectionFailed("Several applications run: " + ", ".join(found) + f". Say which one, or set {PIPE_VARIABLE}")
