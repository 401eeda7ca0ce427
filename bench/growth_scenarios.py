"""What grows, and what is measured meanwhile. A scenario plays all its rows once: {row: {column: value}}."""

import os
import time

import processes
from processes import Stage
from scenarios import PATIENCE
from systems import Ours

SYSTEM = Ours("growth", "core", "bench_growth")
SMALL = 0.02  # Seconds for a measurement that only has to happen.
ENTRIES = 100_000  # Of the registry.


def label(size):
    return f"{size:,}"


def joined(sizes):
    """For the command line of a role."""
    return ",".join(str(size) for size in sizes)


def stage(name):
    return Stage(SYSTEM, f"growth of {name}")


def start_subject(stage, part):
    return stage.start("subject", part=part)


class Growth:
    """A table of its own: a row for each size."""

    grows = True  # Its rows are numbers: there is a ratio of the largest to the smallest, and a curve.
    repeats = None  # As often as all others.
    verdicts = staticmethod(lambda medians: [])

    def __init__(self, name, title, sizes, row_head, columns, note):
        self.name = name
        self.title = title
        self.sizes = sizes
        self.row_head = row_head
        self.columns = columns  # {key: head}
        self.note = note

    def rows(self, sizes):
        return [label(size) for size in sizes]

    def _reports(self, process, sizes, seconds):
        limit = 3 * seconds + PATIENCE
        return {label(size): processes.report(process, limit) for size in sizes}


class Anew(Growth):
    """`play` sets the stage for one size and gives the process that reports."""

    def __init__(self, *arguments, play):
        super().__init__(*arguments)
        self._play = play

    def run(self, sizes, seconds):
        result = {}
        for size in sizes:
            with stage(self.name) as play:
                result |= self._reports(self._play(play, size, seconds), [size], seconds)
        return result


def calls_among_workers(play, size, seconds):
    """The two who are measured are among so many; the others do nothing."""
    play.start("hub")
    if size > 2:
        play.start("crowd", workers=size - 2)
    start_subject(play, "owner")
    return play.start("calls", seconds=seconds)


def death(play, held, others):
    """Of a worker with references to what it alone holds, and to as much as others hold."""
    play.start("hub")
    for part in ("owner", "holder", "other", "prober"):
        start_subject(play, part)
    return play.start("death", held=held, others=others)


class Steps(Growth):
    """A process that grows to one size after the other, and reports at each."""

    def __init__(self, *arguments, role, has_owner=True, **parameters):
        super().__init__(*arguments)
        self._role = role
        self._has_owner = has_owner
        self._parameters = parameters

    def run(self, sizes, seconds):
        with stage(self.name) as play:
            return self._reports(self._start(play, sizes, seconds), sizes, seconds)

    def _start(self, play, sizes, seconds):
        play.start("hub")
        if self._has_owner:
            start_subject(play, "owner")
        return play.start(self._role, sizes=joined(sizes), seconds=seconds, **self._parameters)


class Waiters(Steps):
    """Those who wait, at so many entries; less of them for a smoke test."""

    def run(self, sizes, seconds):
        self._parameters["entries"] = min(ENTRIES, 100 * sizes[-1])
        return super().run(sizes, seconds)


class Idle(Growth):
    """The whole time between two pings of a worker, so that each is met once."""

    repeats = 1

    def run(self, sizes, seconds):
        watched = 10 if seconds > SMALL else 0.1
        result = {}
        for size in sizes:
            with stage(self.name) as play:
                hub = play.start("hub")
                play.start("crowd", workers=size)
                time.sleep(watched / 10)
                before, start = activity(hub), time.monotonic()
                time.sleep(watched)
                elapsed = time.monotonic() - start
                after = activity(hub)
                result[label(size)] = {"wake_ups": (after[0] - before[0]) / elapsed,
                                       "cpu_us": (after[1] - before[1]) / 1000 / elapsed}
        return result


def activity(process):
    """Wake-ups and nanoseconds of CPU time so far, of all threads."""
    wake_ups = nanoseconds = 0
    folder = f"/proc/{process.pid}/task"
    for thread in os.listdir(folder):
        with open(f"{folder}/{thread}/status") as file:
            wake_ups += next(int(line.split()[1]) for line in file if line.startswith("voluntary_ctxt_switches"))
        with open(f"{folder}/{thread}/schedstat") as file:
            nanoseconds += int(file.read().split()[0])
    return wake_ups, nanoseconds


class Bulk(Steps):
    """Rows are the calls of 1 MiB in flight; the first one has none."""

    grows = False

    def rows(self, sizes):
        return ["none", *super().rows(sizes)]

    def run(self, sizes, seconds):
        with stage(self.name) as play:
            measured = self._start(play, sizes, seconds)
            alone = processes.report(measured, 3 * seconds + PATIENCE)
            result = {"none": alone} | self._reports(measured, sizes, seconds)
        for row in result.values():
            row["bulk_us"] = alone["bulk_us"]
        return result

    @staticmethod
    def verdicts(medians):
        """Goal: beside one bulk call a small one takes at most 3 times its idle time and one bulk message."""
        allowed = 3 * medians["median_us"]["none"] + medians["bulk_us"]["none"]
        taken = medians["median_us"]["1"]
        return [f"Allowed beside one call of 1 MiB: {allowed:,.0f} us (3 times the idle figure and one such call); taken: "
                f"{taken:,.0f} us: {'met' if taken <= allowed else 'MISSED'}."]


class Memory(Growth):
    """Bytes for each, from the private memory of a process with many and of one with few."""

    grows = False
    repeats = 1

    def rows(self, sizes):
        return [row for rows, _, _ in KINDS for row in rows]

    def run(self, sizes, seconds):
        result = {}
        for rows, most, play in KINDS:
            many = min(most, sizes[-1])
            few = max(many // 100, 2)
            weights = zip(self._weigh(play, many), self._weigh(play, few), strict=True)
            for row, (heavy, light) in zip(rows, weights, strict=True):
                result[row] = {"bytes": (heavy - light) * 1024 / (many - few)}
        return result

    def _weigh(self, build, size):
        with stage(self.name) as play:
            hub = play.start("hub")
            return [processes.memory(process)["private_dirty"] for process in build(play, hub, size)]


def build_objects(play, hub, size):
    owner = start_subject(play, "owner")
    holder = play.start("objects", sizes=size, seconds=SMALL)
    processes.report(holder, PATIENCE)
    return owner, holder, hub


def build_pending(play, hub, size):
    start_subject(play, "owner")
    caller = play.start("pending", sizes=size, seconds=SMALL)
    processes.report(caller, PATIENCE)
    return (caller,)


def build_entries(play, hub, size):
    processes.report(play.start("registry", grows="entries", sizes=size), PATIENCE)
    return (hub,)


def build_waiters(play, hub, size):
    processes.report(play.start("registry", grows="waiters", entries=100, sizes=size), PATIENCE)
    return (hub,)


def build_workers(play, hub, size):
    play.start("crowd", workers=size)
    return (hub,)


KINDS = [  # Rows, the large number, and what makes so many of it: the processes to weigh, one a row.
    (["instance, at its owner", "reference, at its holder", "object that another worker holds, in the hub"], 1_000_000,
     build_objects),
    (["pending call, at its caller"], 100_000, build_pending),
    (["registered class, in the hub"], 100_000, build_entries),
    (["look-up that waits, in the hub"], 10_000, build_waiters),
    (["idle worker, in the hub"], 1000, build_workers),
]


CALLS = {"median_us": "one call, median, us", "p99_us": "one call, p99, us", "rate": "100 in flight, calls/s"}
STEPS = {"register_us": "register, us", "look_up_us": "look up, us", "release_us": "release, us",
         "death_us": "a worker's death, us", "hide_us": "hide own ones, us"}
DEATHS = {"freed_ms": "until all is freed, ms", "worst_ms": "slowest call of others, ms",
          "idle_worst_ms": "the same without a death, ms", "idle_us": "their median call, us"}

SCENARIOS = [
    Anew("workers", "Connected workers", [2, 10, 100, 1000], "workers", CALLS,
         "Two of them call each other; the others are connected and answer pings.", play=calls_among_workers),
    Steps("objects", "Live objects", [1, 1000, 100_000, 1_000_000], "objects", CALLS,
          "One worker owns them, the other one holds references to all, and calls one of them.", role="objects"),
    Steps("registry", "Entries of the registry", [1, 1000, ENTRIES], "entries", STEPS,
          "Each is of a class of its own. Releasing has no answer: 50 are released and a look-up behind them is awaited. "
          "Who dies has one entry and waits for one. Who hides its entries, as a worker does before it ends, has none.",
          role="registry", has_owner=False, grows="entries"),
    Waiters("waiters", "Look-ups that wait", [0, 100, 10_000], "waiters", STEPS,
            "In a registry of 100,000 entries, for classes that never come.", role="registry", has_owner=False, grows="waiters"),
    Steps("pending", "Pending calls", [1, 1000, 100_000], "pending",
          {"make_us": "make one, us", "resolve_us": "have it answered, us", "call_us": "one other call, median, us"},
          "To one object that answers later. 100 are made, then the 100 oldest are answered, again and again.", role="pending"),
    Anew("death", "Death of a worker that holds references", [1, 1000, 100_000], "references", DEATHS,
         "It alone holds them. Meanwhile two other workers call each other, one call at a time.",
         play=lambda play, size, _: death(play, held=size, others=0)),
    Anew("bystanders", "Death of a worker that holds 10 references", [0, 1000, 100_000], "held by others", DEATHS,
         "The other references are held by a worker that lives on.", play=lambda play, size, _: death(play, held=10, others=size)),
    Idle("idle", "Idle hub", [2, 100, 1000], "workers",
         {"wake_ups": "wake-ups a second", "cpu_us": "CPU time a second, us"},
         "Over 10 s, the time between two pings of a worker."),
    Bulk("bulk", "A small call beside calls of 1 MiB", [1, 4], "1 MiB in flight",
         {"median_us": "small call, median, us", "p99_us": "small call, p99, us", "bulk_us": "one call of 1 MiB alone, us"},
         "Between the same two workers, over the same connections.", role="bulk"),
    Memory("memory", "Memory", [1_000_000], "", {"bytes": "bytes each"},
           "Private dirty memory of a process with many of them less that of one with a hundredth, divided by their number."),
]
