"""What the commands have in common: signals, exit codes, the file with every value."""

import json
import signal
import sys

from processes import BenchError


def run(main):
    """Runs `main()`. A signal ends it as an exception does, so that no process is left behind."""
    signal.signal(signal.SIGINT, signal.default_int_handler)  # Also where the shell has had it ignored.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    try:
        main()
    except BenchError as error:
        sys.exit(f"bench: {error}")
    except KeyboardInterrupt:
        sys.exit(130)


def write_json(path, result):
    with open(path, "w") as file:
        json.dump(result, file, indent=2)
        file.write("\n")
