"""How values are shown: as numbers, as ratios of runs made side by side, and as the tables of the peers."""

import statistics

# Columns of the table of the peers: scenario, metric, head, and whether less is better.
COLUMNS = [
    ("latency", "median_us", "one call, median, us", True),
    ("latency", "p99_us", "one call, p99, us", True),
    ("calls-100", "rate", "100 in flight, calls/s", False),
    ("calls-1000", "rate", "1,000 in flight, calls/s", False),
    ("large", "megabytes", "1 MiB, 4 in flight, MB/s", False),
    ("events", "rate", "1 to 8 subscribers, events/s", False),
    ("memory", "hub_pss", "hub, PSS, MiB", True),
    ("memory", "worker_pss", "idle, PSS, MiB", True),
]


def number(value):
    return f"{value:,.0f}" if value >= 1000 else f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def spread(values):
    return f"{number(statistics.median(values))} ({number(min(values))}-{number(max(values))})"


def ratio(values, baseline):
    """The median of the ratios of runs made side by side."""
    return statistics.median(ours / theirs for ours, theirs in zip(values, baseline, strict=True))


def heading(result, how):
    """When and where it was measured; `how` may name the result's repeats and seconds."""
    host = result["machine"]
    lines = [f"{result['date']}, {host['processor']}, {host['cores']} cores, Linux {host['kernel']}, load {host['load']:.1f} before; "
             + how.format_map(result)]
    if host["load"] > host["cores"] / 2:
        lines += ["", "**The machine was busy: a first look, not numbers to keep.**"]
    return "\n".join(lines)


def columns(values):
    """Those of `COLUMNS` that were measured."""
    return [column for column in COLUMNS if column[1] in values.get(column[0], {})]


def better(values, baseline, less_is_better):
    """How many times better than the baseline: above 1 is better, whichever way the metric goes."""
    return ratio(baseline, values) if less_is_better else ratio(values, baseline)


def peer_tables(names, values):
    """Two tables, a system a row: medians, and how many times better the first system is."""
    shown = columns(values)
    medians = [["", *(head for _, _, head, _ in shown)]]
    ratios = [[f"{names[0]} is so many times better than", *(head.rsplit(", ", 1)[0] for _, _, head, _ in shown)]]
    for name in names:
        found = [(values[scenario][key].get(name), values[scenario][key].get(names[0]), less)
                 for scenario, key, _, less in shown]
        medians.append([name, *(number(statistics.median(theirs)) if theirs else "-" for theirs, _, _ in found)])
        if name != names[0]:
            ratios.append([name, *(f"{better(ours, theirs, less):.2f}" if theirs and ours else "-"
                                   for theirs, ours, less in found)])
    return markdown(medians), markdown(ratios)


def markdown(rows):
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    lines = ["| " + " | ".join(cell.ljust(width) if index == 0 else cell.rjust(width)
                               for index, (cell, width) in enumerate(zip(row, widths))) + " |" for row in rows]
    rule = "|" + "|".join("-" * (width + 2) if index == 0 else "-" * (width + 1) + ":"
                          for index, width in enumerate(widths)) + "|"
    return "\n".join([lines[0], rule, *lines[1:]])


def verdicts(metric, first, values):
    """(goal, ratio) of those goals of a metric that these values tell something of."""
    found = []
    for goal in metric.goals:
        if goal.baseline is None and first in values:
            found.append((goal, statistics.median(values[first])))
        elif first in values and values.get(goal.baseline):
            found.append((goal, ratio(values[first], values[goal.baseline])))
    return found


def goal_rows(scenarios, first, values):
    """A table as rows of cells: each goal, and what was reached."""
    rows = [["", "goal", "reached", ""]]
    for scenario in scenarios:
        for metric in scenario.metrics:
            by_system = values.get(scenario.name, {}).get(metric.key, {})
            for goal, reached in verdicts(metric, first, by_system):
                meant = f"{goal.relation} {goal.factor:g}" + (f" times {goal.baseline}" if goal.baseline else
                                                              f" {metric.unit}")
                rows.append([metric.label, meant, f"{reached:.2f}", "met" if goal.met(reached) else "MISSED"])
    return rows


