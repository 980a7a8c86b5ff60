"""The memory of a program and of the children that it has, looked at while they run."""

import os
import re
import threading
import time

_PAUSE = 0.02  # seconds between two looks


def _is_ours(process):
    """Not one that is still a copy of the test."""
    try:
        with open(f"/proc/{process}/comm", encoding="ascii", errors="replace") as name:
            return name.read().startswith("kova-")
    except OSError:
        return False


def _children(process):
    try:
        with open(f"/proc/{process}/task/{process}/children", encoding="ascii") as listed:
            found = [int(each) for each in listed.read().split()]
    except OSError:  # it has ended
        return []
    return [each for child in found for each in [child, *_children(child)]]


def _number(path, name):
    """MiB of a line "NAME: KIBIBYTES kB"; 0 when the process has ended."""
    try:
        with open(path, encoding="ascii", errors="replace") as lines:
            match = re.search(rf"^{name}:\s+(\d+) kB", lines.read(), re.MULTILINE)
            return int(match[1]) / 1024 if match else 0
    except OSError:
        return 0


class Watched:
    """While it lasts, what this process runs of our programs is looked at. Then `together` is the most that
    they had at one time, pages that they share counted once, and `single` the most of any; MiB."""

    def __init__(self):
        self.together = self.single = 0
        self._over = threading.Event()
        self._thread = threading.Thread(target=self._watch, daemon=True)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._over.set()
        self._thread.join()

    def _watch(self):
        while not self._over.is_set():
            together = 0
            for child in filter(_is_ours, _children(os.getpid())):
                together += _number(f"/proc/{child}/smaps_rollup", "Pss")
                self.single = max(self.single, _number(f"/proc/{child}/status", "VmHWM"))
            self.together = max(self.together, together)
            time.sleep(_PAUSE)
