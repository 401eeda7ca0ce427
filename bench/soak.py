#!/usr/bin/env python3
"""Does anything grow or slow down when the same load goes on for long? Started by scripts/bench --soak SECONDS.

Three processes: a hub, an owner of objects, and a caller, which in each piece takes and drops new objects, lets a worker come and
go, calls one at a time, with 100 in flight, and with 1 MiB as argument. After each piece memory and open files of all are read."""

import os
import statistics
import sys
import time

import processes
from command import Progress, begin, parser, positive, run, write_json
from drawing import PANEL_WIDTH, document, line, text
from growth_scenarios import SYSTEM, start_subject
from processes import Stage
from scenarios import PATIENCE
from tables import heading, markdown, number

PIECE_SECONDS = 10
ROWS = 12
GROWTH_KIB = 1024  # From the first quarter to the last one, in private memory: what allocators may move about.
# What the hub keeps for a call of 1 MiB (libs/base/detail/large_blocks.h). Of the two in flight it has had one after any piece. Whether
# it has already had both at once is chance after a piece that is shorter than PIECE_SECONDS, which sends only some large calls.
LARGE_KIB = 1280
COLUMNS = {"hub": "hub, private KiB", "owner": "owner, private KiB", "caller": "caller, private KiB", "files": "open files of all",
           "median_us": "one call, median, us", "p99_us": "one call, p99, us", "rate": "100 in flight, calls/s",
           "megabytes": "1 MiB, 2 in flight, MB/s"}


def private_memory(process):
    """In KiB, now: not waited for until it is steady, the time between two pieces is short."""
    with open(f"/proc/{process.pid}/smaps_rollup") as file:
        return sum(int(line.split()[1]) for line in file if line.startswith(("Private_Clean", "Private_Dirty")))


def soak(piece, seconds, progress):
    """{column: [value after each piece]}, and when each piece ended, in seconds."""
    values = {column: [] for column in COLUMNS}
    times = []
    with Stage(SYSTEM, "soak") as stage:
        players = {"hub": stage.start("hub"), "owner": start_subject(stage, "owner")}
        players["caller"] = stage.start("soak", seconds=piece)
        start = time.monotonic()
        while not times or times[-1] < seconds:
            found = processes.report(players["caller"], 10 * piece + PATIENCE)
            times.append(time.monotonic() - start)
            found |= {name: private_memory(process) for name, process in players.items()}
            found["files"] = sum(len(os.listdir(f"/proc/{process.pid}/fd")) for process in players.values())
            for column in COLUMNS:
                values[column].append(found[column])
            progress(f"soak: {times[-1]:,.0f} of {seconds:,.0f} s, hub {found['hub']} KiB, {found['rate']:,.0f} calls/s")
    return values, times


def quarters(values):
    """The medians of the first and of the last quarter."""
    length = max(len(values) // 4, 1)
    return statistics.median(values[:length]), statistics.median(values[-length:])


def faults(values, piece):
    """What has grown. Call times are shown, not judged: the machine has other work."""
    found = []
    hub = GROWTH_KIB + (LARGE_KIB if piece < PIECE_SECONDS else 0)
    for name, bound in {"hub": hub, "owner": GROWTH_KIB, "caller": GROWTH_KIB, "files": 0}.items():
        first, last = quarters(values[name])
        if last > first + bound:
            found.append(f"{COLUMNS[name]}: {first:,.0f} in the first quarter, {last:,.0f} in the last one; allowed: {bound:,} more")
    return found


def table(values, times):
    """A row for each part of the time, of medians."""
    rows = [["minutes", *COLUMNS.values()]]
    count = min(ROWS, len(times))
    for row in range(count):
        part = slice(row * len(times) // count, (row + 1) * len(times) // count)
        rows.append([f"to {times[part][-1] / 60:.1f}", *(number(statistics.median(found[part])) for found in values.values())])
    return markdown(rows)


def panel(head, values, times):
    """Over time, from nothing up to a quarter above the greatest value, so that what is small looks small."""
    left, height = 60, 90
    width = PANEL_WIDTH - left - 20
    top = max(*values, 1) * 1.25
    bottom = 26 + height
    parts = [text(0, 14, head, "head")]
    for part in (0, 0.4, 0.8):
        y = bottom - height * part
        parts += [line(left, y, left + width, y, "grid"), text(left - 6, y + 3, number(top * part), "axis", "end")]
    for part in (0, 0.5, 1):
        parts.append(text(left + width * part, bottom + 14, f"{times[-1] * part / 60:.0f} min", "axis", "middle"))
    places = " ".join(f"{left + width * time / times[-1]:.1f},{bottom - height * value / top:.1f}" for time, value in zip(times, values, strict=True))
    parts.append(f'<polyline points="{places}" fill="none" stroke="#cc3311" stroke-width="1.5"/>')
    return "\n".join(parts), bottom + 24


def main():
    known = parser("scripts/bench --soak", __doc__ + "\nBeside a FILE of --json, FILE.svg draws its values over time.")
    known.add_argument("--soak", type=positive(float), metavar="SECONDS", required=True, help="how long the load goes on")
    options = known.parse_args()
    SYSTEM.configure(options.programs)
    result = begin()
    piece = min(PIECE_SECONDS, options.soak / 4)
    with Progress() as progress:
        values, times = soak(piece, options.soak, progress)
    print(heading(result, f"{len(times)} pieces in {times[-1]:,.0f} s; medians") + "\n\n" + table(values, times))
    if options.json:
        write_json(options.json, {**result, "times": times, "values": values})
        with open(os.path.splitext(options.json)[0] + ".svg", "w") as file:
            file.write(document([panel(head, values[column], times) for column, head in COLUMNS.items()]))
    if found := faults(values, piece):
        sys.exit("bench: grown under the same load\n" + "\n".join(found))


if __name__ == "__main__":
    run(main)
