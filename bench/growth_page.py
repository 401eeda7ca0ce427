"""What scripts/bench --growth has measured: its tables, plot and page."""

import math
import statistics

import tables
from drawing import PANEL_WIDTH, ROW, decades, document, line, panel, text, tick
from tables import markdown, number, ratio

CURVES_WIDTH = PANEL_WIDTH - 60
CURVES_HEIGHT = 130
LEFT = 40
COLOURS = ("#cc3311", "#4477aa", "#228833", "#aa7700", "#882288")
NAMES_WIDTH = 235  # Of the rows that do not grow.


def heading(result):
    return tables.heading(result, "medians of {repeats} runs, {seconds} s a measurement.")


def rows(scenario):
    """A size a row; where it grows, the last row says how many times the smallest size's value the largest one's is, as the
    median of the ratios of runs made side by side."""
    columns = scenario["columns"]
    values = scenario["values"]
    names = list(next(iter(values.values())))
    found = [[scenario["row_head"], *columns.values()]]
    for name in names:
        found.append([name, *(number(statistics.median(values[key][name])) if values[key][name] else "" for key in columns)])
    if scenario["grows"]:
        first, last = names[0], names[-1]
        found.append([f"{last} / {first}", *(f"{ratio(values[key][last], values[key][first]):.2f}" for key in columns)])
    return found


def table(name, scenario):
    return "\n\n".join([f"### {scenario['title']}", f"`{name}`. {scenario['note']}", markdown(rows(scenario)), *scenario["verdicts"]])


def curves(scenario):
    """How many times its value at the smallest size each column has, on a logarithmic scale: flat is good."""
    points = {}
    for key, head in scenario["columns"].items():
        by_row = scenario["values"][key]
        first = next(iter(by_row.values()))
        points[head] = [ratio(found, first) for found in by_row.values()]
    names = list(next(iter(scenario["values"].values())))
    low, high = decades([0.1, 10, *(value for values in points.values() for value in values)])

    def at(index, value):
        x = LEFT + 20 + (CURVES_WIDTH - 40) * index / (len(names) - 1)
        return x, 26 + CURVES_HEIGHT * (high - math.log10(value)) / (high - low)

    parts = [text(0, 14, f"{scenario['title']}: times the value at {names[0]}", "head")]
    for power in range(low, high + 1):
        y = at(0, 10.0 ** power)[1]
        parts += [line(LEFT, y, LEFT + CURVES_WIDTH, y, "grid"), text(LEFT - 6, y + 3, tick(10.0 ** power), "axis", "end")]
    bottom = 26 + CURVES_HEIGHT
    for index, name in enumerate(names):
        parts.append(text(at(index, 1)[0], bottom + 14, name, "axis", "middle"))
    for row, (colour, (head, values)) in enumerate(zip(COLOURS, points.items(), strict=False)):
        places = [at(index, value) for index, value in enumerate(values)]
        drawn = " ".join(f"{x:.1f},{y:.1f}" for x, y in places)
        parts.append(f'<polyline points="{drawn}" fill="none" stroke="{colour}" stroke-width="2"/>')
        parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{colour}"/>' for x, y in places]
        y = bottom + 20 + ROW * row + ROW / 2
        parts += [f'<circle cx="{LEFT}" cy="{y}" r="4" fill="{colour}"/>', text(LEFT + 10, y + 4, head)]
    return "\n".join(parts), bottom + 30 + ROW * len(points)


def panels(scenario):
    if scenario["grows"]:
        return [curves(scenario)]
    shown = [(head, scenario["values"][key]) for key, head in scenario["columns"].items()]
    head, by_row = shown[0]
    by_row = {name: found for name, found in by_row.items() if found and min(found) > 0}
    return [panel(f"{scenario['title']}: {head}", by_row, name_width=NAMES_WIDTH if len(by_row) > 4 else 100)]


def plot(result):
    return document([drawn for scenario in result["growth"].values() for drawn in panels(scenario)])


def page(result, picture):
    return "\n\n".join([heading(result), f"![All of it as plots]({picture})",
                        *(table(name, scenario) for name, scenario in result["growth"].items())]) + "\n"
