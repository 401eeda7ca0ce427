"""The processes of one measurement: started, listened to, and ended together."""

import ctypes
import json
import os
import select
import signal
import subprocess
import tempfile
import time

_libc = ctypes.CDLL(None)
_PR_SET_PDEATHSIG = 1


def _die_with_parent():
    # Also a killed orchestrator leaves nobody behind. The setting survives exec.
    _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGKILL)


class BenchError(Exception):
    """A measurement that did not come out."""


class Process:
    """A driver, or a program of the system it drives, whose standard output is read line by line."""

    def __init__(self, name, command, environment):
        self.name = name
        self._errors = tempfile.TemporaryFile()
        self._unread = b""
        # A group of its own: Ctrl-C reaches the orchestrator alone, which ends everybody in order.
        self._popen = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=self._errors, env=environment,
            process_group=0, preexec_fn=_die_with_parent)

    @property
    def pid(self):
        return self._popen.pid

    def line(self, prefix, seconds):
        """The rest of the next line that starts with `prefix`; other lines are passed over."""
        deadline = time.monotonic() + seconds
        while True:
            text = self._next_line(deadline)
            if text.startswith(prefix):
                return text[len(prefix):].strip()

    def _next_line(self, deadline):
        while b"\n" not in self._unread:
            if not select.select([self._popen.stdout], [], [], max(deadline - time.monotonic(), 0))[0]:
                raise BenchError(f"{self.name}: no answer in time")
            chunk = os.read(self._popen.stdout.fileno(), 65536)
            if not chunk:
                raise BenchError(f"{self.name}: ended early")
            self._unread += chunk
        text, self._unread = self._unread.split(b"\n", 1)
        return text.decode(errors="replace")

    def errors(self):
        self._errors.seek(0)
        return self._errors.read().decode(errors="replace").strip()

    def kill(self):
        try:
            os.killpg(self.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass

    def reap(self):
        self._popen.wait()
        self._popen.stdout.close()
        self._errors.close()


class Stage:
    """A system's processes, mostly around one hub, in a folder of their own. On leaving it all are killed: they hold nothing that
    would have to be saved, and a clean end is not what is measured."""

    def __init__(self, system, scenario):
        self._system = system
        self._scenario = scenario
        self._processes = []
        self._address = None

    def __enter__(self):
        self._directory = tempfile.TemporaryDirectory(prefix="bench-")
        self._environment = self._system.environment(self._directory.name)
        return self

    def __exit__(self, kind, error, trace):
        errors = "".join(f"\n  {p.name} says: {text}" for p in self._processes if (text := p.errors()))
        for process in self._processes:
            process.kill()
        for process in self._processes:
            process.reap()
        self._directory.cleanup()
        if isinstance(error, BenchError):
            raise BenchError(f"{self._system.name}, {self._scenario}: {error}{errors}")
        return False

    @property
    def directory(self):
        return self._directory.name

    def start(self, role, **parameters):
        """Starts a role and waits until it is ready. Who gives the others its address comes first; that is the hub, if there
        is one. None for the hub of a system without one."""
        if role == "hub" and not self._system.has_hub:
            return None
        if gives_address := self._system.gives_address(role):
            parameters["directory"] = tempfile.mkdtemp(dir=self.directory)  # Several may give an address of the same name.
        elif self._address:
            parameters["address"] = self._address
        process = Process(role, self._system.command(role, self._scenario, parameters), self._environment)
        self._processes.append(process)
        rest = process.line(self._system.ready_prefix(role), 10)
        if gives_address:
            self._address = self._system.address(rest)
        return process


def report(process, seconds):
    """The numbers that a driver hands over at its end."""
    return json.loads(process.line("report ", seconds))


def bytes_written(process):
    """Bytes the process has handed to write system calls so far."""
    with open(f"/proc/{process.pid}/io") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("wchar:"))


class ProcessorTime:
    """Seconds that the main threads of processes have run since this was made."""

    def __init__(self, *processes):
        self._processes = processes
        self._before = self._sum()

    def seconds(self):
        return self._sum() - self._before

    def _sum(self):
        return sum(self._nanoseconds(process) for process in self._processes) / 1e9

    @staticmethod
    def _nanoseconds(process):
        with open(f"/proc/{process.pid}/schedstat") as file:
            return int(file.read().split()[0])


def memory(process):
    """PSS and private dirty memory in KiB, once two looks in a row see the same."""
    before = None
    for _ in range(20):
        time.sleep(0.1)
        fields = {}
        with open(f"/proc/{process.pid}/smaps_rollup") as file:
            for line in file.readlines()[1:]:
                name, value = line.split(":")
                fields[name] = int(value.split()[0])
        now = {"pss": fields["Pss"], "private_dirty": fields["Private_Dirty"]}
        if now == before:
            break
        before = now
    return now
