#!/usr/bin/env python3
"""How fast is a call through the hub, beside what the same hops cost at least? And a log message, beside other
libraries? And beside other ways between processes? Started by scripts/bench."""

import argparse
import datetime
import statistics
import subprocess

from command import run, write_json
from progress import Progress
from scenarios import SCENARIOS, Timing, machine
from systems import PEERS, SYSTEMS, Floor, Ours
from tables import goal_rows, markdown, peer_tables, ratio, spread, verdicts

PEER_SCENARIOS = ("latency", "calls-100", "calls-1000", "large", "events", "memory")

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
    parser.add_argument("--peers", action="store_true", help="beside what others offer between processes; first: "
                        "scripts/setup peers")
    parser.add_argument("--systems", metavar="NAME,...", help="what to compare; ours is always the first (default: "
                        + ",".join(system.name for system in SYSTEMS) + "; with --peers these for calls and "
                        + ",".join(system.name for system in PEERS) + ")")
    parser.add_argument("--json", metavar="FILE", help="also write every value measured there")
    parser.add_argument("--programs", required=True, help=argparse.SUPPRESS)
    options = parser.parse_args()
    if unknown := set(options.scenarios) - set(names):
        parser.error("no such scenario: " + ", ".join(sorted(unknown)))
    options.candidates = [system for system in SYSTEMS if not options.peers or isinstance(system, (Ours, Floor))]
    options.candidates += PEERS if options.peers else []
    wanted = options.systems.split(",") if options.systems else [system.name for system in options.candidates]
    if unknown := set(wanted) - {system.name for system in options.candidates}:
        parser.error("no such system: " + ", ".join(sorted(unknown)))
    options.systems = [system for system in options.candidates if system.name in wanted]
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
                    if metric.key in result:
                        values[scenario.name][metric.key][system.name].append(result[metric.key])
                    else:
                        values[scenario.name][metric.key].pop(system.name, None)
    return values


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
            goals = verdicts(metric, first, by_system)
            verdict = "" if not goals else "met" if all(goal.met(reached) for goal, reached in goals) else "MISSED"
            rows.append([metric.label, metric.unit,
                         *(spread(by_system[name]) if name in by_system else "-" for name in [first, *others]),
                         *(f"{ratios[name]:.2f}" if name in ratios else "-" for name in others),
                         ", ".join(str(goal) for goal, _ in goals), verdict])
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip() for row in rows)


def versions(packages):
    """Of Debian packages; empty on another distribution."""
    try:
        shown = subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${Version}\n", *packages], text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) if packages else None
    except FileNotFoundError:
        shown = None
    return dict(line.split() for line in shown.stdout.splitlines()) if shown else {}


def main():
    options = arguments()
    scenarios = [s for s in SCENARIOS if not options.scenarios or s.name in options.scenarios]
    if options.peers:
        scenarios = [s for s in scenarios if s.name in PEER_SCENARIOS]
    systems = options.systems
    for system in [SYSTEMS[0], *systems]:
        system.configure(options.programs)
    repeats, seconds = PLANS[options.plan]
    repeats = options.repeat or repeats
    host = machine()
    with Progress() as progress:
        frames = frame_sizes(scenarios, seconds)
        values = measure(scenarios, systems, repeats, seconds, frames, progress)
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
        if options.peers:
            print(peer_tables(systems, values))
            print("\n" + markdown(goal_rows(scenarios, systems[0].name, values)))
        else:
            for played, players in groups(scenarios, systems):
                print()
                print(table(played, players, values))
    if options.json:
        result = {"machine": host, "date": datetime.date.today().isoformat(), "repeats": repeats, "seconds": seconds,
                  "systems": {system.name: {"title": system.title, "versions": versions(system.packages)}
                              for system in systems},
                  "frames": frames, "values": values}
        write_json(options.json, result)


if __name__ == "__main__":
    run(main)
