"""One line on a terminal that says what is being measured; nothing elsewhere."""

import sys


class Progress:
    def __init__(self):
        self._shows = sys.stderr.isatty()

    def __call__(self, text):
        self._write(f"\r\033[K{text}")

    def __enter__(self):
        return self

    def __exit__(self, kind, error, trace):
        self._write("\r\033[K")
        return False

    def _write(self, text):
        if self._shows:
            print(text, end="", file=sys.stderr, flush=True)
