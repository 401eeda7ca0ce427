"""What the commands have in common: options, what is kept of a run, progress, signals and exit codes."""

import argparse
import datetime
import json
import os
import signal
import sys

from processes import BenchError


def positive(kind):
    def read(text):
        if (number := kind(text)) <= 0:
            raise argparse.ArgumentTypeError("must be more than 0")
        return number
    return read


def parser(program, description):
    made = argparse.ArgumentParser(prog=program, description=description, formatter_class=argparse.RawDescriptionHelpFormatter)
    made.add_argument("--json", metavar="FILE", help="also write every value measured there")
    made.add_argument("--programs", required=True, help=argparse.SUPPRESS)
    return made


def add_plan(to, scenarios, smoke):
    """Which scenarios, how long and how often."""
    names = {scenario.name: scenario for scenario in scenarios}

    def scenario(name):
        if name not in names:
            raise argparse.ArgumentTypeError(f"no such scenario: {name}")
        return names[name]

    to.add_argument("scenarios", nargs="*", metavar="SCENARIO", type=scenario, help="of " + ", ".join(names) + " (default: all)")
    to.add_argument("--quick", dest="plan", action="store_const", const="quick", default="full", help="short measurements, for a first look")
    to.add_argument("--smoke", dest="plan", action="store_const", const="smoke", help=f"{smoke} and very short: are the results right? No table")
    to.add_argument("--repeat", type=positive(int), metavar="N", help="how often each measurement is made")


def begin(**values):
    """What is kept of a run: when and where, and how it was before."""
    with open("/proc/loadavg") as file:
        load = float(file.read().split()[0])
    with open("/proc/cpuinfo") as file:
        models = [line.split(":")[1].strip() for line in file if line.startswith("model name")]
    machine = {"cores": len(os.sched_getaffinity(0)), "processor": models[0] if models else os.uname().machine,
               "kernel": os.uname().release, "load": load}
    return {"machine": machine, "date": datetime.date.today().isoformat(), **values}


def write_json(path, result):
    with open(path, "w") as file:
        json.dump(result, file, indent=2)
        file.write("\n")


class Progress:
    """One line on a terminal that says what is being measured; nothing elsewhere."""

    def __call__(self, text):
        if sys.stderr.isatty():
            print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)

    def __enter__(self):
        return self

    def __exit__(self, kind, error, trace):
        self("")
        return False


def run(main):
    """Runs `main()`. A signal ends it as an exception does, so that no process is left behind."""
    signal.signal(signal.SIGINT, signal.default_int_handler)  # Also where the shell has had it ignored.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    try:
        main()
    except BenchError as error:
        sys.exit(f"bench: {error}")
    except KeyboardInterrupt:
        sys.exit(130)
