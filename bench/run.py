#!/usr/bin/env python3
"""How fast is a call through the hub, beside what the same hops cost at least? And a log message, beside another
library? And beside other ways between processes? Started by scripts/bench."""

import subprocess
import sys

from command import Progress, add_plan, begin, parser, run, write_json
from scenarios import SCENARIOS, TYPED_SCENARIOS, Timing
from systems import PEERS, SYSTEMS, TYPED, Floor, Ours
from tables import goal_rows, heading, markdown, peer_tables, ratio, spread, verdicts

PEER_SCENARIOS = ("latency", "calls-100", "calls-1000", "large", "events", "memory")

PLANS = {  # Repeats, and seconds of each measurement.
    "full": (5, 1.4),
    "quick": (3, 0.3),
    "smoke": (1, 0.03),
}


def arguments():
    typed = "--typed" in sys.argv
    scenarios = TYPED_SCENARIOS if typed else SCENARIOS
    known = parser("scripts/bench", __doc__)
    add_plan(known, scenarios, "every scenario once")
    known.add_argument("--typed", action="store_true", help="interfaces as C++ types beside values packed and unpacked by hand")
    known.add_argument("--before", metavar="FOLDER", help="with --typed: also the programs of an older revision")
    known.add_argument("--peers", action="store_true", help="beside what others offer between processes; first: scripts/setup peers")
    known.add_argument("--systems", metavar="NAME,...", help="what to compare; ours is always the first (default: "
                       + ",".join(system.name for system in SYSTEMS) + "; with --peers these for calls and "
                       + ",".join(system.name for system in PEERS) + ")")
    options = known.parse_args()
    candidates = [system for system in SYSTEMS if not options.peers or isinstance(system, (Ours, Floor))]
    candidates += PEERS if options.peers else []
    if typed:
        TYPED[-1].folder = options.before
        candidates = TYPED if options.before else TYPED[:-1]
    if options.systems:
        wanted = set(options.systems.split(","))
        if unknown := wanted - {system.name for system in candidates}:
            known.error("no such system: " + ", ".join(sorted(unknown)))
        candidates = [system for system in candidates if system.name in wanted]
    options.systems = candidates
    options.scenarios = [scenario for scenario in scenarios if scenario in options.scenarios or not options.scenarios]
    if options.peers:
        options.scenarios = [scenario for scenario in options.scenarios if scenario.name in PEER_SCENARIOS]
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
    return markdown(rows)


def versions(packages):
    """Of Debian packages; empty on another distribution."""
    try:
        shown = subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${Version}\n", *packages], text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) if packages else None
    except FileNotFoundError:
        shown = None
    return dict(line.split() for line in shown.stdout.splitlines()) if shown else {}


def show(options, result):
    values, systems = result["values"], options.systems
    print(heading(result, "{repeats} runs of {seconds} s each, interleaved; median (least-most); ratios are medians of runs side by side"))
    print("; ".join(f"{system.name}: {system.title}" for system in systems))
    if result["frames"]:
        print("bytes a frame: " + "; ".join(name + " " + ", ".join(f"{key.removesuffix('_frame')} {size}" for key, size in sizes.items())
                                            for name, sizes in result["frames"].items()))
    if options.peers:
        goals = markdown(goal_rows(options.scenarios, systems[0].name, values))
        print("", *peer_tables([system.name for system in systems], values), goals, sep="\n\n")
    else:
        for played, players in groups(options.scenarios, systems):
            print("\n" + table(played, players, values))


def main():
    options = arguments()
    for system in {*SYSTEMS[:1], *options.systems}:
        system.configure(options.programs)
    repeats, seconds = PLANS[options.plan]
    repeats = options.repeat or repeats
    result = begin(repeats=repeats, seconds=seconds, systems={
        system.name: {"title": system.title, "versions": versions(system.packages)} for system in options.systems})
    with Progress() as progress:
        result["frames"] = frame_sizes(options.scenarios, seconds)
        result["values"] = measure(options.scenarios, options.systems, repeats, seconds, result["frames"], progress)
    if options.plan == "smoke":
        print(f"bench: {len(options.scenarios)} scenarios, {len(options.systems)} systems, all results right")
    else:
        show(options, result)
    if options.json:
        write_json(options.json, result)


if __name__ == "__main__":
    run(main)
