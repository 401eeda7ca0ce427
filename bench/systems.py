"""What is compared. A system is a driver program with the common command line (README.md), or a class of its own."""

import os


class System:
    """A system whose every role, the hub among them, is played by one driver program."""

    plays = ("hub", "local", "logging")
    has_hub = True
    packages = ()  # Of Debian, whose versions are kept with the numbers.

    def __init__(self, name, title, program, **options):
        self.name = name
        self.title = title
        self._program = program
        self._options = options

    def configure(self, programs):
        """`programs`: the folder of the built programs."""
        self._programs = programs

    def environment(self, directory):
        """`directory` is empty, private and removed afterwards. Nothing of the user's is touched."""
        return {**os.environ, "XDG_RUNTIME_DIR": directory, "HOME": directory}

    def hub_program(self, directory):
        """The command of a hub that is no driver and prints its address alone, else None."""
        return None

    def command(self, role, scenario, parameters):
        if role == "hub" and (command := self.hub_program(parameters["directory"])):
            return command
        pairs = {**self._options, **parameters}
        program = os.path.join(self._programs, self._program)
        return [program, role, scenario, *(f"{key}={value}" for key, value in pairs.items())]

    def ready_prefix(self, role):
        """How the line starts that says the process is ready."""
        return "" if role == "hub" and self.hub_program("") else "ready"

    def address(self, text):
        """How the others reach the hub, from what follows `ready_prefix` in its line."""
        return text

    def gives_address(self, role):
        return role == "hub"

    def takes_part(self, scenario):
        return scenario.plays in self.plays


class Ours(System):
    """The hub is the program that tools use; it prints the path of its socket alone."""

    def hub_program(self, directory):
        return [os.path.join(self._programs, "skyfold-hub")]

    def address(self, text):
        return "\\\\.\\pipe\\" + os.path.basename(text)


class Floor(System):
    """A relay of ours without content: nothing to call inside one process."""

    plays = ("hub",)
    packages = ("libuv1",)


class Logger(System):
    """A library for logging."""

    plays = ("logging",)


class Peer(System):
    """Somebody else's way between processes, over a hub that the driver plays."""

    plays = ("hub",)

    def __init__(self, name, title, program, packages, **options):
        super().__init__(name, title, program, **options)
        self.packages = packages


class DBusDaemon(Peer):
    """Over dbus-daemon with the configuration of a session, as it is installed."""

    def hub_program(self, directory):
        return ["dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address",
                f"--address=unix:path={directory}/bus"]


class Direct(Peer):
    """Who serves is reached without a hub, and a publisher writes to each subscriber itself: half of the hops, and less to
    do."""

    has_hub = False

    def gives_address(self, role):
        return role in ("owner", "idle", "publisher")


class Before(Ours):
    """Our programs of an older revision."""

    def configure(self, programs):
        self._programs = self.folder

    def environment(self, directory):
        """The programs would load the libraries of the tree that they were built in, which may be another revision by now."""
        return {**super().environment(directory), "LD_LIBRARY_PATH": os.path.join(self.folder, "..", "lib")}


SYSTEMS = [
    Ours("ours", "core", "bench_ours", typed=0),
    Floor("F1", "libuv relay, each frame written by itself", "bench_floor", mode="each"),
    Floor("F2", "libuv relay, one write a loop iteration", "bench_floor", mode="coalesced"),
    Logger("spdlog", "spdlog, flushing each line", "bench_spdlog"),
]

# With --peers: these beside ours and the floors.
PEERS = [
    DBusDaemon("sd-bus", "sd-bus over dbus-daemon", "bench_sd_bus", ("libsystemd0", "dbus-daemon")),
    Peer("sd-bus/broker", "sd-bus over dbus-broker", "bench_sd_bus", ("libsystemd0", "dbus-broker")),
    DBusDaemon("GDBus", "GDBus over dbus-daemon", "bench_gdbus", ("libglib2.0-0", "dbus-daemon")),
    Peer("ZeroMQ", "ZeroMQ, DEALER-ROUTER-DEALER and XSUB-XPUB", "bench_zeromq", ("libzmq5",)),
    Direct("Cap'n Proto", "Cap'n Proto RPC, direct", "bench_capnp", ("libcapnp-0.9.2",)),
    Direct("gRPC", "gRPC, direct", "bench_grpc", ("libgrpc++1.51",)),
    Direct("Ice", "ZeroC Ice, direct over TCP on the loopback", "bench_ice", ("libzeroc-ice3.7",)),
    Direct("Qt RO", "Qt Remote Objects, direct", "bench_qt", ("libqt6remoteobjects6",)),
]

# With --typed: the first one beside the others; "before" where its folder is named.
TYPED = [
    Ours("typed", "interfaces as C++ types", "bench_ours", typed=1),
    Ours("untyped", "values packed and unpacked by hand", "bench_ours", typed=0),
    Before("before", "the same in an older revision", "bench_ours", typed=0),
]
