#!/usr/bin/python3
"""How many calls a second go to a C++ service through the hub: one at a time, and 100 in flight.

Run it as `bindings/python/bench/calls.py [--build build/release] [--seconds 2]`; the build needs the targets hub, module_loader and
greeter. Prints the median of five rounds, their spread, and what the machine does besides.
"""

import argparse
import asyncio
import os
import pathlib
import statistics
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[3]
sys.path.insert(0, str(ROOT / "bindings/python"))

import skyfold_core  # noqa: E402

ROUNDS = 5


async def one_at_a_time(greeter: skyfold_core.Reference, until: float) -> int:
    count = 0
    while time.perf_counter() < until:
        for _ in range(50):
            if await greeter.greet("Ada") != "Hello, Ada!":
                sys.exit("a wrong answer")
        count += 50
    return count


async def in_flight(greeter: skyfold_core.Reference, until: float) -> int:
    async def caller() -> int:
        count = 0
        while time.perf_counter() < until:
            if await greeter.greet("Ada") != "Hello, Ada!":
                sys.exit("a wrong answer")
            count += 1
        return count

    return sum(await asyncio.gather(*(caller() for _ in range(100))))


async def measure(path: str, seconds: float) -> None:
    async with skyfold_core.connect(path) as worker:
        greeter = await worker.find("Greeter")
        for name, run in (("one at a time", one_at_a_time), ("100 in flight", in_flight)):
            rates = []
            for _ in range(ROUNDS):
                start = time.perf_counter()
                count = await run(greeter, start + seconds / ROUNDS)
                rates.append(count / (time.perf_counter() - start))
            print(f"{name}: {statistics.median(rates):,.0f} calls/s ({min(rates):,.0f} to {max(rates):,.0f})")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/release")
    parser.add_argument("--seconds", type=float, default=2.0, help="of each of the two")
    options = parser.parse_args()
    hub = subprocess.Popen([options.build / "programs/skyfold-hub"], stdout=subprocess.PIPE, text=True)
    assert hub.stdout is not None
    path = hub.stdout.readline().strip()
    pipe = "\\\\.\\pipe\\" + os.path.basename(path)
    loader = [options.build / "skyfold.module_loader", options.build / "modules/greeter.dll", pipe, "bench"]
    module = subprocess.Popen(loader)
    try:
        print(f"{os.cpu_count()} cores, load {os.getloadavg()[0]:.1f} before")
        asyncio.run(measure(path, options.seconds))
        print(f"load {os.getloadavg()[0]:.1f} after")
    finally:
        for process in (module, hub):
            process.terminate()
            process.wait()


if __name__ == "__main__":
    main()
