"""Runs a program of the product under the tool fault_point and reads its log."""

import json
import os
from dataclasses import dataclass, field

# What can happen to a call; a call that is not listed can fail with EIO alone.
_OPEN = ["ENOSPC", "EIO", "EACCES", "EINTR", "EMFILE"]
_DATA = ["ENOSPC", "EIO", "EINTR"]
_NAMES = ["ENOSPC", "EIO", "EACCES"]
ERRORS = {
    "open": _OPEN, "openat": _OPEN, "creat": _OPEN,
    "write": _DATA, "pwrite64": _DATA, "writev": _DATA, "copy_file_range": _DATA,
    "sendfile": _DATA, "ftruncate": ["EIO", "EINTR"], "fallocate": _DATA,
    "fsync": _DATA, "fdatasync": _DATA,
    "rename": _NAMES, "renameat": _NAMES, "renameat2": _NAMES, "link": _NAMES, "linkat": _NAMES,
    "symlink": _NAMES, "symlinkat": _NAMES, "mkdir": _NAMES, "mkdirat": _NAMES,
    "unlink": ["EIO", "EACCES"], "unlinkat": ["EIO", "EACCES"], "rmdir": ["EIO", "EACCES"],
    "chmod": ["EIO", "EACCES"], "fchmodat": ["EIO", "EACCES"],
    "chown": ["EIO", "EACCES"], "lchown": ["EIO", "EACCES"], "fchownat": ["EIO", "EACCES"],
}


def errors_of(call):
    return ERRORS.get(call, ["EIO"])


@dataclass
class Outcome:
    """A run that was disturbed, or listed."""
    result: object                               # lib.program.Result
    points: list                                 # the counted calls, as the tool logs them
    exposed: list = field(default_factory=list)  # paths of keys that others could read

    @property
    def point(self):
        """The last counted call: the one that the run was killed before."""
        return self.points[-1] if self.points else None


class FaultPoint:
    def __init__(self, host, tool):
        self._host = host
        self._tool = tool
        self._log = host.workspace + "/points"

    def argv(self, command, *disturbance):
        return [self._tool, "--log", self._log, *map(str, disturbance), "--", *map(str, command)]

    def run(self, command, *disturbance, **options):
        """Runs [program, arguments...]; `disturbance` as in "--kill", 7."""
        program, *arguments = self.argv(command, *disturbance)
        result = self._host.run(*arguments, program=program, **options)
        return self.read(result)

    def read(self, result=None):
        lines = self._lines()
        return Outcome(result, [line for line in lines if "point" in line],
                       [line["exposed"] for line in lines if "exposed" in line])

    def _lines(self):
        if not os.path.exists(self._log):
            return []
        with open(self._log, encoding="utf-8", errors="replace") as log:
            return [json.loads(line) for line in log]
