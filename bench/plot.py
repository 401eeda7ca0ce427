#!/usr/bin/env python3
"""Publishes what scripts/bench --peers --json FILE has measured: a plot beside the file, FILE.svg, and the numbers in the
Markdown page beside it, between its two marks. Only one run goes in: numbers of several days are not to be compared.

    bench/plot.py docs/benchmarks.json
"""

import json
import math
import pathlib
import statistics
import sys
from xml.sax.saxutils import escape

from tables import columns, markdown, number, peer_rows

BEGIN = "<!-- Written by bench/plot.py from here -->\n"
END = "<!-- to here. -->\n"

ROW = 18
NAME_WIDTH = 100
PLOT_WIDTH = 230
VALUE_WIDTH = 80
PANEL_WIDTH = NAME_WIDTH + PLOT_WIDTH + VALUE_WIDTH
STYLE = """text { font: 12px sans-serif; fill: #222 } .head { font-weight: bold } .axis { fill: #666; font-size: 10px }
.grid { stroke: #ddd } .spread { stroke: #4477aa; stroke-width: 2 } .median { fill: #4477aa }
.floor .spread { stroke: #888 } .floor .median { fill: #888 } .ours .spread { stroke: #cc3311 } .ours .median { fill: #cc3311 }
"""


def text(x, y, content, kind="", anchor="start"):
    return f'<text x="{x:.1f}" y="{y:.1f}" class="{kind}" text-anchor="{anchor}">{escape(content)}</text>'


def tick(value):
    """A power of ten, in few letters."""
    for unit, letter in ((1e6, "M"), (1e3, "k")):
        if value >= unit:
            return f"{value / unit:g}{letter}"
    return f"{value:g}"


def panel(head, less_is_better, by_system):
    """One metric: a dot for the median and a line from the least to the greatest run, on a logarithmic scale."""
    low = math.floor(math.log10(min(min(values) for values in by_system.values())))
    high = max(math.ceil(math.log10(max(max(values) for values in by_system.values()))), low + 1)

    def x(value):
        return NAME_WIDTH + PLOT_WIDTH * (math.log10(value) - low) / (high - low)

    bottom = 26 + ROW * len(by_system)
    parts = [text(0, 14, f"{head} ({'less' if less_is_better else 'more'} is better)", "head")]
    for power in range(low, high + 1):
        at = x(10.0 ** power)
        parts.append(f'<line x1="{at:.1f}" y1="22" x2="{at:.1f}" y2="{bottom}" class="grid"/>')
        parts.append(text(at, bottom + 12, tick(10.0 ** power), "axis", "middle"))
    for row, (name, values) in enumerate(by_system.items()):
        y = 26 + ROW * row + ROW / 2
        kind = "ours" if row == 0 else "floor" if name in ("F1", "F2") else "peer"
        parts.append(f'<g class="{kind}">' + text(0, y + 4, name)
                     + f'<line x1="{x(min(values)):.1f}" y1="{y}" x2="{x(max(values)):.1f}" y2="{y}" class="spread"/>'
                     + f'<circle cx="{x(statistics.median(values)):.1f}" cy="{y}" r="4" class="median"/>'
                     + text(PANEL_WIDTH - 10, y + 4, number(statistics.median(values)), "", "end") + "</g>")
    return "\n".join(parts), bottom + 24


def plot(result):
    panels = []
    for scenario, key, head, less_is_better in columns(result["values"]):
        by_system = {name: values for name, values in result["values"][scenario][key].items() if values}
        panels.append(panel(head, less_is_better, by_system))
    y = 10
    body = []
    for left, right in zip(panels[::2], [*panels[1::2], None] if len(panels) % 2 else panels[1::2]):
        body.append(f'<g transform="translate(10 {y})">{left[0]}</g>')
        if right:
            body.append(f'<g transform="translate({PANEL_WIDTH + 40} {y})">{right[0]}</g>')
        y += max(left[1], right[1] if right else 0) + 12
    width = 2 * PANEL_WIDTH + 50
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{y}" viewBox="0 0 {width} {y}">\n'
            f'<style>{STYLE}</style>\n<rect width="{width}" height="{y}" fill="#fff"/>\n' + "\n".join(body) + "\n</svg>\n")


def page(result, picture):
    machine = result["machine"]
    medians, ratios = peer_rows(list(result["systems"]), result["values"])
    lines = [f"{result['date']}, {machine['processor']}, {machine['cores']} cores, Linux {machine['kernel']}, load "
             f"{machine['load']:.1f} before; {result['repeats']} runs of {result['seconds']} s each, interleaved.", ""]
    if machine["load"] > machine["cores"] / 2:
        lines += ["**The machine was busy: a first look, not numbers to keep.**", ""]
    lines += ["Medians of the runs:", "", markdown(medians), "",
              "How many times better the first system is, as the median of the ratios of runs made side by side (above 1: it "
              "is faster, or smaller):", "", markdown(ratios), "", f"![The same as a plot]({picture})", "", "What was compared:",
              ""]
    for name, system in result["systems"].items():
        packages = ", ".join(f"{package} {version}" for package, version in system["versions"].items())
        lines.append(f"- **{name}**: {system['title']}" + (f" ({packages})" if packages else ""))
    return "\n".join(lines) + "\n"


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    file = pathlib.Path(sys.argv[1])
    result = json.loads(file.read_text())
    picture = file.with_suffix(".svg")
    picture.write_text(plot(result))
    document = file.with_suffix(".md")
    before, rest = document.read_text().split(BEGIN)
    after = rest.split(END)[1]
    document.write_text(before + BEGIN + "\n" + page(result, picture.name) + "\n" + END + after)


if __name__ == "__main__":
    main()
