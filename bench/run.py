#!/usr/bin/env python3
"""How fast is a call through the hub, beside what the same hops cost at least? And a log message, beside other
libraries? Started by scripts/bench."""

import argparse
import json
import signal
import statistics
import sys

from processes import BenchError
from scenarios import SCENARIOS, Timing, machine
from systems import SYSTEMS

PLANS = {  # Repeats, and seconds of each measurement.
    "full": (5, 1.4),
    "quick": (3, 0.3),
    "smoke": (1, 0.03),
}


def arguments():
    names = [scenario.name for scenario in SCENARIOS]
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__)
    parser.add_argument("scenarios", nargs="*", metavar="SCENARIO", help="of " + ", ".join(names) + " (default: all)")
    parser.add_argument("--quick", dest="plan", action="store_const", const="quick", default="full",
                        help="short measurements, for a first look")
    parser.add_argument("--smoke", dest="plan", action="store_const", const="smoke",
                        help="every scenario once and very short: are the results right? No table")
    parser.add_argument("--repeat", type=int, metavar="N", help="how often each measurement is made")
    parser.add_argument("--systems", default=",".join(system.name for system in SYSTEMS), metavar="NAME,...",
                        help="what to compare (default: %(default)s)")
    parser.add_argument("--json", metavar="FILE", help="also write every value measured there")
    parser.add_argument("--programs", required=True, help=argparse.SUPPRESS)
    options = parser.parse_args()
    if unknown := set(options.scenarios) - set(names):
        parser.error("no such scenario: " + ", ".join(sorted(unknown)))
    if unknown := set(options.systems.split(",")) - {system.name for system in SYSTEMS}:
        parser.error("no such system: " + ", ".join(sorted(unknown)))
    if options.repeat is not None and options.repeat < 1:
        parser.error("--repeat must be at least 1")
    return options


def frame_sizes(scenarios, seconds):
    """What the first system sends: the floors send as much. Scenarios of one message size share one measurement."""
    sizes = {}
    for scenario in scenarios:
        if scenario.frames_like and scenario.frames_like not in sizes:
            like = next(other for other in SCENARIOS if other.name == scenario.frames_like)
            sizes[like.name] = like.measure_frames(SYSTEMS[0], Timing(min(seconds, 0.3)))
    return sizes


def measure(scenarios, systems, repeats, seconds, frames, progress):
    """Every metric's values in the order measured, by system: {scenario: {metric: {system: [value]}}}."""
    values = {}
    for scenario in scenarios:
        taking_part = [system for system in systems if system.takes_part(scenario)]
        values[scenario.name] = {m.key: {system.name: [] for system in taking_part} for m in scenario.metrics}
        for repeat in range(repeats):
            for system in taking_part:  # Interleaved, so that a slower minute of the machine meets all of them.
                progress(f"{scenario.name}: {system.name}, run {repeat + 1} of {repeats}")
                result = scenario.run(system, Timing(seconds), frames.get(scenario.frames_like, {}))
                for metric in scenario.metrics:
                    values[scenario.name][metric.key][system.name].append(result[metric.key])
    return values


def number(value):
    return f"{value:,.0f}" if value >= 1000 else f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def spread(values):
    return f"{number(statistics.median(values))} ({number(min(values))}-{number(max(values))})"


def ratio(values, baseline):
    """The median of the ratios of runs made side by side."""
    return statistics.median(ours / theirs for ours, theirs in zip(values, baseline, strict=True))


def groups(scenarios, systems):
    """(scenarios, systems) for a table each: where the first system meets others it has a table with them."""
    found = []
    for scenario in scenarios:
        players = [systems[0], *(system for system in systems[1:] if system.takes_part(scenario))]
        if not found or (len(players) > 1 and players != found[-1][1]):
            found.append(([], players))
        found[-1][0].append(scenario)
    return found


def table(scenarios, systems, values):
    first, *others = [system.name for system in systems]
    rows = [["", "unit", first, *others, *(f"{first}/{name}" for name in others), "goal", ""]]
    for scenario in scenarios:
        for metric in scenario.metrics:
            by_system = values[scenario.name][metric.key]
            ratios = {name: ratio(by_system[first], by_system[name])
                      for name in others if first in by_system and name in by_system}
            goal = metric.goal if metric.goal and metric.goal.baseline in ratios else None
            verdict = "" if not goal else "met" if goal.met(ratios[goal.baseline]) else "MISSED"
            rows.append([metric.label, metric.unit,
                         *(spread(by_system[name]) if name in by_system else "-" for name in [first, *others]),
                         *(f"{ratios[name]:.2f}" if name in ratios else "-" for name in others),
                         str(goal or ""), verdict])
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip() for row in rows)


def main():
    options = arguments()
    signal.signal(signal.SIGINT, signal.default_int_handler)  # Also where the shell has had it ignored.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    scenarios = [s for s in SCENARIOS if not options.scenarios or s.name in options.scenarios]
    systems = [system for system in SYSTEMS if system.name in options.systems.split(",")]
    for system in SYSTEMS:
        system.configure(options.programs)
    repeats, seconds = PLANS[options.plan]
    repeats = options.repeat or repeats
    show = sys.stderr.isatty()

    def progress(text):
        if show:
            print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)

    host = machine()
    try:
        frames = frame_sizes(scenarios, seconds)
        values = measure(scenarios, systems, repeats, seconds, frames, progress)
    finally:
        if show:
            print("\r\033[K", end="", file=sys.stderr, flush=True)
    if options.plan == "smoke":
        print(f"bench: {len(scenarios)} scenarios, {len(systems)} systems, all results right")
    else:
        print(f"{host['cores']} cores, Linux {host['kernel']}, load {host['load']:.1f} before; {repeats} runs of "
              f"{seconds} s each, interleaved; median (least-most); ratios are medians of runs side by side")
        print("; ".join(f"{system.name}: {system.title}" for system in systems))
        if frames:
            print("bytes a frame: " + "; ".join(
                name + " " + ", ".join(f"{key.removesuffix('_frame')} {size}" for key, size in sizes.items())
                for name, sizes in frames.items()))
        if host["load"] > host["cores"] / 2:
            print("The machine was busy: these numbers are not to be kept.")
        for played, players in groups(scenarios, systems):
            print()
            print(table(played, players, values))
    if options.json:
        with open(options.json, "w") as file:
            json.dump({"machine": host, "repeats": repeats, "seconds": seconds, "frames": frames, "values": values}, file,
                      indent=2)
            file.write("\n")


if __name__ == "__main__":
    try:
        main()
    except BenchError as error:
        sys.exit(f"bench: {error}")
    except KeyboardInterrupt:
        sys.exit(130)
