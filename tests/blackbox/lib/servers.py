"""The servers that a test starts, and the scratch folder that they work in."""

import os
import signal
import subprocess
import time


class Servers:
    def __init__(self, workspace):
        self.workspace = str(workspace)  # the test's own scratch folder
        self._processes = []

    @staticmethod
    def write(path, content, mode=0o644):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        data = content.encode() if isinstance(content, str) else content
        with open(path, "wb") as out:
            out.write(data)
        os.chmod(path, mode)

    def spawn(self, argv, env=None, ready=None, timeout=20):
        """Starts a server that is ended with the test. `ready` is asked until it is true. Its
        output goes to a file that `output` shows."""
        log = f"{self.workspace}/process.{len(self._processes)}"
        with open(log, "wb") as out:
            process = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=out, stderr=out,
                                       env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin",
                                            "HOME": "/run/home", **(env or {})},
                                       start_new_session=True)
        process.log = log
        self._processes.append(process)
        deadline = time.monotonic() + timeout
        while ready is not None and not ready():
            ended = process.poll() is not None
            if ended or time.monotonic() > deadline:
                raise AssertionError(f"{argv[0]} {'ended' if ended else 'is not ready'}:\n"
                                     + self.output(process))
            time.sleep(0.02)
        return process

    @staticmethod
    def output(process):
        with open(process.log, encoding="utf-8", errors="replace") as log:
            return log.read()

    @staticmethod
    def end(process):
        """Ends a spawned process and the children that it left, by the id of its own session."""
        for wanted in (signal.SIGTERM, signal.SIGKILL):
            if process.poll() is None:
                os.killpg(process.pid, wanted)
                try:
                    process.wait(5)
                except subprocess.TimeoutExpired:
                    continue
        process.wait()

    def end_all(self):
        """The latest first."""
        for process in reversed(self._processes):
            self.end(process)

    def report(self):
        return "".join(f"--- output of {process.args[0]}\n{self.output(process)[-6000:]}\n"
                       for process in self._processes)
