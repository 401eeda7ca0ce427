"""What scripts/bench --growth has measured, as Markdown."""

import statistics

from tables import markdown, number


def heading(result):
    host = result["machine"]
    lines = [f"{result['date']}, {host['processor']}, {host['cores']} cores, Linux {host['kernel']}, load "
             f"{host['load']:.1f} before; medians of {result['repeats']} runs, {result['seconds']} s a measurement."]
    if host["load"] > host["cores"] / 2:
        lines += ["", "**The machine was busy: a first look, not numbers to keep.**"]
    return "\n".join(lines)


def rows(scenario):
    """A size a row; where it grows, the last row says how many times the smallest size's value the largest one's is."""
    columns = scenario["columns"]
    medians = {key: {row: statistics.median(found) for row, found in scenario["values"][key].items() if found}
               for key in columns}
    names = list(next(iter(scenario["values"].values())))
    found = [[scenario["row_head"], *columns.values()]]
    for name in names:
        found.append([name, *(number(medians[key][name]) if name in medians[key] else "" for key in columns)])
    if scenario["grows"]:
        first, last = names[0], names[-1]
        found.append([f"{last} / {first}", *(ratio(medians[key], last, first) for key in columns)])
    return found


def ratio(medians, last, first):
    return f"{medians[last] / medians[first]:.2f}" if medians[first] else "-"


def table(name, scenario):
    parts = [f"### {scenario['title']}", f"`{name}`. {scenario['note']}", markdown(rows(scenario)), *scenario["verdicts"]]
    return "\n\n".join(parts)
