"""What scripts/bench --growth has measured, as Markdown."""

import statistics

from tables import markdown, number, ratio


def heading(result):
    host = result["machine"]
    lines = [f"{result['date']}, {host['processor']}, {host['cores']} cores, Linux {host['kernel']}, load "
             f"{host['load']:.1f} before; medians of {result['repeats']} runs, {result['seconds']} s a measurement."]
    if host["load"] > host["cores"] / 2:
        lines += ["", "**The machine was busy: a first look, not numbers to keep.**"]
    return "\n".join(lines)


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
    parts = [f"### {scenario['title']}", f"`{name}`. {scenario['note']}", markdown(rows(scenario)), *scenario["verdicts"]]
    return "\n\n".join(parts)
