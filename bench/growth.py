#!/usr/bin/env python3
"""How do the hub and its workers behave as the work grows? Started by scripts/bench --growth."""

import argparse
import resource
import statistics

from command import Progress, add_plan, begin, parser, run, write_json
from growth_page import heading, table
from growth_scenarios import SCENARIOS, SMALL, SYSTEM

PLANS = {  # Repeats, and seconds of each measurement.
    "full": (5, 0.8),
    "quick": (1, 0.3),
    "smoke": (1, SMALL),
}
SMOKE_SIZES = 100
OPEN_FILES = 4096  # A connection each, and some.


def arguments():
    known = parser("scripts/bench --growth", __doc__)
    add_plan(known, SCENARIOS, f"sizes up to {SMOKE_SIZES}")
    known.add_argument("--growth", action="store_true", help=argparse.SUPPRESS)
    return known.parse_args()


def sizes_for(scenario, plan):
    """For a smoke test the small ones, and one to grow to."""
    if plan != "smoke":
        return scenario.sizes
    small = [size for size in scenario.sizes if size < SMOKE_SIZES]
    return [*small, SMOKE_SIZES] if small != scenario.sizes else small


def measure(scenario, sizes, repeats, seconds, progress):
    """Every value in the order measured: {column: {row: [value]}}."""
    values = {column: {row: [] for row in scenario.rows(sizes)} for column in scenario.columns}
    for repeat in range(repeats):
        progress(f"{scenario.name}: run {repeat + 1} of {repeats}")
        for row, found in scenario.run(sizes, seconds).items():
            for column, value in found.items():
                values[column][row].append(value)
    return values


def medians(values):
    return {column: {row: statistics.median(found) for row, found in rows.items() if found}
            for column, rows in values.items()}


def allow_open_files():
    """For the processes started here. Where so many are not allowed, one of them will say what it could not open."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    allowed = OPEN_FILES if hard == resource.RLIM_INFINITY else min(OPEN_FILES, hard)
    resource.setrlimit(resource.RLIMIT_NOFILE, (max(soft, allowed), hard))


def main():
    options = arguments()
    allow_open_files()
    SYSTEM.configure(options.programs)
    repeats, seconds = PLANS[options.plan]
    repeats = options.repeat or repeats
    measured = {}
    result = begin(repeats=repeats, seconds=seconds, growth=measured)
    with Progress() as progress:
        for scenario in options.scenarios or SCENARIOS:
            sizes = sizes_for(scenario, options.plan)
            values = measure(scenario, sizes, min(repeats, scenario.repeats or repeats), seconds, progress)
            measured[scenario.name] = {
                "title": scenario.title, "note": scenario.note, "grows": scenario.grows, "row_head": scenario.row_head,
                "columns": scenario.columns, "values": values,
                "verdicts": scenario.verdicts(medians(values)) if options.plan != "smoke" else []}
    if options.plan == "smoke":
        print(f"bench: growth, {len(measured)} scenarios, all results right")
    else:
        print("\n\n".join([heading(result), *(table(name, scenario) for name, scenario in measured.items())]))
    if options.json:
        write_json(options.json, result)


if __name__ == "__main__":
    run(main)
