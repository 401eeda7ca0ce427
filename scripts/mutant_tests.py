"""Runs a test program of ctest for scripts/mutate: with bounds, and so that nothing of it is left."""
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import time

LIMITS = ["prlimit", "--core=0", f"--data={3 << 30}", f"--fsize={1 << 29}"]  # A fault must not take the whole machine.


class Test:
    def __init__(self, name, command, folder=".", environment=()):
        self.name, self.folder = name, folder
        self.command = [part for part in command if part != "--gtest_brief=1"]  # Which keeps quiet about who was running.
        self.environment = dict(text.split("=", 1) for text in environment)
        self.isGoogleTest = command[0].endswith("_tests")
        self.seconds = 0.0  # Of a run with the unchanged libraries.
        self.unreliable = []  # What fails without any fault.
        self.own, self.reached = set(), set()  # Objects: what is linked in itself, and what of the libraries it can get to.

    def run(self, selected, seconds, stop, libraries=None):
        """What fails: the name of a test, "" if nothing does, and None if it was stopped."""
        options = ["--gtest_fail_fast", "--gtest_color=no", "--gtest_filter=" + selected] if self.isGoogleTest else []
        environment = {**os.environ, **self.environment, **({"LD_LIBRARY_PATH": str(libraries)} if libraries else {})}
        end = time.monotonic() + seconds
        with tempfile.TemporaryFile() as output:
            # Who computes without end is ended sooner than who waits, which others' load may cause.
            processor = int(20 + 3 * self.seconds if self.seconds else seconds)
            process = subprocess.Popen([*LIMITS, f"--cpu={processor}", "--", *self.command, *options], cwd=self.folder, env=environment,
                stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT, process_group=0)
            try:
                while process.poll() is None and time.monotonic() < end and not stop.is_set():
                    time.sleep(0.05)
                hung = process.poll() is None
            finally:
                killGroup(process)
            if hung and stop.is_set():
                return None
            output.seek(0)
            text = output.read()[-1_000_000:].decode(errors="replace")
        if process.returncode == 0 and not hung:
            return ""
        failed = re.search(r"^\[  FAILED  \] (\w+[./][\w./]+)", text, re.MULTILINE)
        begun = re.findall(r"^\[ RUN      \] (\S+)", text, re.MULTILINE)
        return failed[1] if failed else begun[-1] if begun else self.name

    def limit(self):
        return 30 + 6 * self.seconds

    def seenBy(self, objects, stop, clean):
        """The name of the test that sees the fault in these objects; empty if none does."""
        passedOver = list(self.unreliable)
        for _ in range(4):
            selected = "-" + ":".join(passedOver)
            name = self.run(selected, self.limit(), stop)
            if not name:
                return ""
            alone = name if self.isGoogleTest and name != self.name else selected
            again = self.run(alone, self.limit(), stop) or self.run(selected, self.limit(), stop)
            # Where the fault is compiled in, there are no unchanged libraries to compare with.
            if again and (self.own & objects or not self.run(alone, self.limit(), stop, clean)):
                return f"{self.name} {name}" if name != self.name else name
            if alone == selected:
                return ""
            passedOver.append(name)
        return ""


def killGroup(process):
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    process.wait()


def killStrays():
    """What tests have left: as their subreaper this process is the parent of all orphans."""
    for _ in range(20):
        strays = [int(pid) for file in pathlib.Path("/proc/self/task").glob("*/children") for pid in file.read_text().split()]
        for pid in strays:
            os.kill(pid, signal.SIGKILL)
            os.waitpid(pid, 0)
        if not strays:
            return
