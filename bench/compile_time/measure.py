#!/usr/bin/env python3
"""How long does a file with an interface take to compile, beside the same written by hand? In turn, in seconds of processor time.
Started by scripts/bench compile-time [RUNS]."""

import itertools
import json
import os
import resource
import shlex
import statistics
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
COMMANDS = os.path.join(HERE, "..", "..", "build", "release", "compile_commands.json")
GOALS = {"-O1": 2, "-O3": 2.3}  # Most times by hand.
PARTS = {"service and calls": [], "service alone": ["-DSERVICE_ALONE"]}


def compiler():
    """The command of the build without names of files."""
    with open(COMMANDS) as file:
        command = next(entry["command"] for entry in json.load(file) if entry["file"].endswith("compile_time/typed.cpp"))
    words = shlex.split(command)
    return words[:words.index("-o")]


def seconds(options, file):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run([*options, "-S", "-o", "/dev/null", os.path.join(HERE, file)], check=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def main():
    runs = int(sys.argv[1]) if len(sys.argv) > 1 else 5
    flags = compiler()
    for (part, defined), (level, goal) in itertools.product(PARTS.items(), GOALS.items()):
        options = [*flags, *defined, level]
        pairs = [(seconds(options, "typed.cpp"), seconds(options, "by_hand.cpp")) for _ in range(runs)]
        ratio = statistics.median(typed / by_hand for typed, by_hand in pairs)
        typed, by_hand = (statistics.median(column) for column in zip(*pairs))
        print(f"{part}, {level}: {typed:.2f} s, by hand {by_hand:.2f} s: {ratio:.2f} times, goal at most {goal}: {'met' if ratio <= goal else 'MISSED'}")


main()
