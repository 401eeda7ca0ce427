#!/usr/bin/env python3
"""Publishes what scripts/bench --peers, or --growth, with --json FILE has measured: a plot beside the file, FILE.svg, and the
numbers in the Markdown page beside it, between its two marks. Only one run goes in: numbers of several days are not to be
compared.

    bench/plot.py docs/benchmarks.json
    bench/plot.py docs/growth.json
"""

import json
import pathlib
import sys

import growth_page
from drawing import document, panel
from scenarios import SCENARIOS
from tables import columns, goal_rows, heading, markdown, peer_tables

BEGIN = "<!-- Written by bench/plot.py from here -->\n"
END = "<!-- to here. -->\n"


def plot(result):
    def kind(name):
        return "ours" if name == next(iter(result["systems"])) else "floor" if name in ("F1", "F2") else "peer"

    panels = []
    for scenario, key, head, less_is_better in columns(result["values"]):
        by_system = {name: values for name, values in result["values"][scenario][key].items() if values}
        panels.append(panel(f"{head} ({'less' if less_is_better else 'more'} is better)", by_system, kind))
    return document(panels)


def page(result, picture):
    names = list(result["systems"])
    medians, ratios = peer_tables(names, result["values"])
    parts = [heading(result, "{repeats} runs of {seconds} s each, interleaved."), "Medians of the runs:", medians,
             "How many times better the first system is, as the median of the ratios of runs made side by side (above 1: it "
             "is faster, or smaller):", ratios, "Goals, as ratios in that one run:",
             markdown(goal_rows(SCENARIOS, names[0], result["values"])), f"![The same as a plot]({picture})", "What was compared:"]
    lines = []
    for name, system in result["systems"].items():
        packages = ", ".join(f"{package} {version}" for package, version in system["versions"].items())
        lines.append(f"- **{name}**: {system['title']}" + (f" ({packages})" if packages else ""))
    return "\n\n".join([*parts, "\n".join(lines)]) + "\n"


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    file = pathlib.Path(sys.argv[1])
    result = json.loads(file.read_text())
    picture = file.with_suffix(".svg")
    draw, write = (growth_page.plot, growth_page.page) if "growth" in result else (plot, page)
    picture.write_text(draw(result))
    document = file.with_suffix(".md")
    before, rest = document.read_text().split(BEGIN)
    after = rest.split(END)[1]
    document.write_text(before + BEGIN + "\n" + write(result, picture.name) + "\n" + END + after)


if __name__ == "__main__":
    main()
