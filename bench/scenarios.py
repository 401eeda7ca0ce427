"""What is measured. A scenario runs one system once and gives its metrics."""

from dataclasses import dataclass

import processes
from processes import BenchError, Stage


@dataclass
class Goal:
    baseline: str | None  # A system's name; None: the value itself is meant.
    relation: str  # "at most" or "at least" so many times the baseline's.
    factor: float

    def met(self, ratio):
        return ratio <= self.factor if self.relation == "at most" else ratio >= self.factor

    def __str__(self):
        sign = "<=" if self.relation == "at most" else ">="
        return f"{sign} {self.factor:g} {self.baseline or ''}".strip()


@dataclass
class Metric:
    key: str
    label: str
    unit: str
    goals: tuple[Goal, ...] = ()


def at_most(factor, *baselines):
    return tuple(Goal(baseline, "at most", factor) for baseline in baselines)


def at_least(factor, *baselines):
    return tuple(Goal(baseline, "at least", factor) for baseline in baselines)


HUB_PEERS = ("sd-bus", "sd-bus/broker", "GDBus", "ZeroMQ")
DIRECT_PEERS = ("Cap'n Proto", "gRPC", "Ice", "Qt RO")


# A driver answers within its time plus this, or is taken for hung.
PATIENCE = 30


@dataclass
class Timing:
    seconds: float

    def parameters(self):
        return {"seconds": self.seconds, "warmup": self.seconds / 4}

    @property
    def limit(self):
        return self.seconds * 1.25 + PATIENCE


class HubScenario:
    """Around a hub in a process of its own, where the system has one."""

    plays = "hub"
    frames_like = None


class Calls(HubScenario):
    """One caller, one owner, so many calls in flight."""

    def __init__(self, name, metrics, window, argument_bytes=16, timed=False, **more):
        self.name = name
        self.metrics = metrics
        self.frames_like = name if argument_bytes != 16 else "latency"
        self._argument_bytes = argument_bytes
        self._parameters = {"window": window, "argument_bytes": argument_bytes, "result_bytes": 16, "timed": int(timed),
                            "records": 0, **more}

    def run(self, system, timing, frames):
        with Stage(system, self.name) as stage:
            result, *_ = self._play(stage, timing, frames)
        result["megabytes"] = result["rate"] * self._argument_bytes / 1e6
        return result

    def measure_frames(self, system, timing):
        """Sizes of the frames, length field included, that a system sends for the argument and for the result."""
        with Stage(system, self.name) as stage:
            result, caller, owner = self._play(stage, timing, {})
            sent = {"argument_frame": processes.bytes_written(caller), "result_frame": processes.bytes_written(owner)}
            return {key: round(size / result["calls"]) for key, size in sent.items()}

    def _play(self, stage, timing, frames):
        parameters = {**self._parameters, **frames, **timing.parameters()}
        stage.start("hub")
        owner = stage.start("owner", **parameters)
        caller = stage.start("caller", **parameters)
        spent = processes.ProcessorTime(caller, owner)
        result = processes.report(caller, timing.limit)
        result["processor_us"] = 1e6 * spent.seconds() / result["calls"]
        return result, caller, owner


class Events(HubScenario):
    """One publisher, so many subscribers, each in its own process."""

    def __init__(self, name, metrics, subscribers, event_bytes, window):
        self.name = name
        self.metrics = metrics
        self.frames_like = name
        self._subscribers = subscribers
        self._parameters = {"subscribers": subscribers, "event_bytes": event_bytes, "window": window}

    def run(self, system, timing, frames):
        with Stage(system, self.name) as stage:
            return self._play(stage, timing, frames)[0]

    def measure_frames(self, system, timing):
        with Stage(system, self.name) as stage:
            result, publisher = self._play(stage, timing, {})
            return {"event_frame": round(processes.bytes_written(publisher) / result["published"])}

    def _play(self, stage, timing, frames):
        parameters = {**self._parameters, **frames, **timing.parameters()}
        stage.start("hub")
        publisher = stage.start("publisher", **parameters)
        subscribers = [stage.start("subscriber", index=i, **parameters) for i in range(self._subscribers)]
        published, heard = processes.ProcessorTime(publisher), processes.ProcessorTime(*subscribers)
        result = processes.report(publisher, timing.limit)
        result["publisher_us"] = 1e6 * published.seconds() / result["published"]
        counts = [processes.report(subscriber, PATIENCE)["events"] for subscriber in subscribers]
        if any(count != result["published"] for count in counts):
            raise BenchError(f"{result['published']} events published, {counts} received")
        result["subscriber_us"] = 1e6 * heard.seconds() / sum(counts)
        return result, publisher


class Memory(HubScenario):
    """What the hub and a worker without work weigh among so many workers."""

    def __init__(self, name, metrics, workers):
        self.name = name
        self.metrics = metrics
        self._workers = workers

    def run(self, system, timing, frames):
        with Stage(system, self.name) as stage:
            hub = stage.start("hub")
            idle = [stage.start("idle", index=i) for i in range(self._workers)]
            sizes = {"worker": processes.memory(idle[0])}
            if hub:
                sizes["hub"] = processes.memory(hub)
        return {f"{who}_{kind}": kib / 1024 for who, kinds in sizes.items() for kind, kib in kinds.items()}


class Local(HubScenario):
    """Calls inside one process, one at a time, no hub between them."""

    plays = "local"

    def __init__(self, name, metrics, **more):
        self.name = name
        self.metrics = metrics
        self._parameters = {"window": 1, "timed": 0, "argument_bytes": 16, "result_bytes": 16, "records": 0, **more}

    def run(self, system, timing, frames):
        with Stage(system, self.name) as stage:
            stage.start("hub")
            caller = stage.start("local", **self._parameters, **timing.parameters())
            spent = processes.ProcessorTime(caller)
            result = processes.report(caller, timing.limit)
            return {"nanoseconds": 1e9 / result["rate"], "processor_ns": 1e9 * spent.seconds() / result["calls"]}


class Logging:
    """Threads of one process that log without a pause: what nobody wants to hear, and into a file that rotates."""

    plays = "logging"
    frames_like = None
    _loads = {  # Threads, suppressed.
        "suppressed": (1, 1),
        "written": (1, 0),
        "written_by_4": (4, 0),
    }

    def __init__(self, name, metrics):
        self.name = name
        self.metrics = metrics

    def run(self, system, timing, frames):
        return {key: self._play(system, Timing(timing.seconds / 2), *load) for key, load in self._loads.items()}

    def _play(self, system, timing, threads, suppressed):
        with Stage(system, self.name) as stage:
            logger = stage.start("logger", directory=stage.directory, threads=threads, suppressed=suppressed,
                                 **timing.parameters())
            return processes.report(logger, timing.limit)["nanoseconds"]


SCENARIOS = [
    Calls("latency", window=1, timed=True, metrics=[
        Metric("median_us", "one call at a time, median", "us", at_most(1.2, "F1") + at_most(1, *HUB_PEERS)),
        Metric("p99_us", "one call at a time, 99th percentile", "us", at_most(1.5, "F1"))]),
    Calls("calls-100", window=100, metrics=[
        Metric("rate", "100 calls in flight", "calls/s",
               at_least(0.2, "F2") + at_least(2, "ZeroMQ") + at_least(8, "sd-bus/broker"))]),
    Calls("calls-1000", window=1000, metrics=[
        Metric("rate", "1000 calls in flight", "calls/s", at_least(1, "ZeroMQ"))]),
    Calls("large", window=4, argument_bytes=1 << 20, metrics=[
        Metric("megabytes", "1 MiB arguments, 4 in flight", "MB/s",
               at_least(0.7, "F2") + at_least(1, *HUB_PEERS, *DIRECT_PEERS))]),
    Events("events", subscribers=8, event_bytes=64, window=1024, metrics=[
        Metric("rate", "1 publisher to 8 subscribers", "events/s",
               at_least(0.5, "ZeroMQ") + at_least(10, "sd-bus/broker"))]),
    Memory("memory", metrics=[
        Metric("hub_pss", "hub, PSS", "MiB", at_most(4, None)),
        Metric("hub_private_dirty", "hub, private dirty", "MiB"),
        Metric("worker_pss", "idle worker, PSS", "MiB", at_most(5, None)),
        Metric("worker_private_dirty", "idle worker, private dirty", "MiB")], workers=8),
    Local("local", metrics=[
        Metric("nanoseconds", "call through a local reference", "ns")]),
    Logging("logging", metrics=[
        Metric("suppressed", "message that nobody wants", "ns", at_most(1, "spdlog")),
        Metric("written", "line written, 1 thread", "ns", at_most(1, "spdlog")),
        Metric("written_by_4", "line written, 4 threads", "ns", at_most(1, "spdlog"))]),
]


# Interfaces as C++ types beside values that are packed and unpacked by hand, which is what the other systems here do. "before" is an
# older revision.
def typed_calls(name, metric, **parameters):
    scenario = Calls(name, [metric, Metric("processor_us", "... processor time of caller and owner", "us")], timed=parameters["window"] == 1,
                     **parameters)
    scenario.frames_like = None
    return scenario


def in_flight(what, factor):
    return Metric("rate", f"1000 calls in flight, {what}", "calls/s", at_least(factor, "before"))


def typed_local(name, label, **parameters):
    return Local(name, [Metric("nanoseconds", label, "ns", at_most(0.7, "untyped")), Metric("processor_ns", "... processor time", "ns")],
                 **parameters)


TYPED_SCENARIOS = [
    typed_calls("latency", Metric("median_us", "one call at a time", "us", at_most(1, "untyped")), window=1, awaits=0),
    typed_calls("latency-record", Metric("median_us", "one call at a time, record", "us", at_most(1, "untyped")), window=1, awaits=0,
                records=1),
    typed_calls("calls-1000", in_flight("then()", 1.4), window=1000, awaits=0),
    typed_calls("awaited-1000", in_flight("co_await", 1.3), window=1000, awaits=1),
    typed_calls("records-1000", in_flight("record", 1.8), window=1000, awaits=0, records=1),
    typed_calls("awaited-records-1000", in_flight("record, co_await", 1.8), window=1000, awaits=1, records=1),
    typed_local("local", "local reference", awaits=0),
    typed_local("local-record", "local reference, record", awaits=0, records=1),
    Events("events", subscribers=8, event_bytes=64, window=1024, metrics=[
        Metric("rate", "1 publisher to 8 subscribers", "events/s"),
        Metric("publisher_us", "... processor time of the publisher, an event", "us", at_most(0.85, "untyped")),
        Metric("subscriber_us", "... and of a subscriber", "us", at_most(0.85, "untyped"))]),
]
TYPED_SCENARIOS[-1].frames_like = None
