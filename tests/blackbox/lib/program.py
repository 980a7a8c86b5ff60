"""Runs a program to its end and says everything that came of it."""

import fcntl
import json
import os
import pty
import resource
import shlex
import signal
import struct
import subprocess
import termios
import threading
import time
from dataclasses import dataclass, field

from .syslog_capture import LOG_ERR


@dataclass
class Result:
    argv: list
    status: int            # exit status; negative: the signal that ended it
    stdout: str
    stderr: str            # with tty=True what the terminal received
    syslog: list           # SyslogLine, oldest first
    sleeps: list = field(default_factory=list)  # seconds, every wait that was asked for
    seconds: float = 0.0   # wall time
    peak: float = 0.0      # MiB, the most memory that the program had; 0 when it was killed

    @property
    def document(self):
        """The one JSON document of standard output; progress messages may come before it."""
        text = self.stdout
        if text.startswith("DEBUG: "):
            styled = text.endswith("\n}\n")
            text = text[text.rindex("\n{\n"):] if styled else text.splitlines()[-1]
        return json.loads(text)

    @property
    def debug(self):
        """The progress messages of standard output, without "DEBUG: "."""
        return [line[len("DEBUG: "):] for line in self.stdout.split("\n")
                if line.startswith("DEBUG: ")]

    @property
    def errors(self):
        """Texts of the LOG_ERR lines, source lines replaced by "#"."""
        return [line.plain for line in self.syslog if line.priority == LOG_ERR]

    def __str__(self):
        def block(title, text):
            if len(text) > 20000:
                text = text[:10000] + "\n[...]\n" + text[-10000:]
            return f"--- {title}\n{text}" + ("" if not text or text.endswith("\n") else "\n")
        syslog = "".join(f"<{line.priority}> {line.identity}: {line.text}\n"
                         for line in self.syslog)
        return (f"$ {shlex.join(self.argv)}\n--- status {self.status}, {self.seconds:.2f} s, "
                f"peak {self.peak:.1f} MiB, sleeps {self.sleeps}\n" + block("stdout", self.stdout)
                + block("stderr", self.stderr) + block("syslog", syslog))


def _limits(limits):
    """In the child: no core dumps, then {resource name: value}, e.g. {"FSIZE": 0}."""
    def apply():
        for name, value in {"CORE": 0, **(limits or {})}.items():
            resource.setrlimit(getattr(resource, "RLIMIT_" + name), (value, value))
    return apply


def _read_terminal(descriptor, chunks):
    while True:
        try:
            chunk = os.read(descriptor, 65536)
        except OSError:  # the last holder of the other end has gone
            return
        if not chunk:
            return
        chunks.append(chunk)


def run_program(argv, env, *, tty=False, umask=0o022, limits=None, timeout=60, stdin=None,
                cwd="/"):
    """Returns (status, stdout, stderr, seconds). `tty` makes standard error a terminal of 80
    columns. A program that outlives `timeout` is killed, by id, and the call raises."""
    terminal, chunks, reader = None, [], None
    stderr = subprocess.PIPE
    if tty:
        terminal, stderr = pty.openpty()
        fcntl.ioctl(stderr, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 80, 0, 0))
    began = time.monotonic()
    # Its own session: a time-out ends the program together with its children.
    process = subprocess.Popen(argv, env=env, stdout=subprocess.PIPE, stderr=stderr, umask=umask,
                               stdin=subprocess.DEVNULL if stdin is None else stdin, cwd=cwd,
                               preexec_fn=_limits(limits), start_new_session=True)
    if tty:
        os.close(stderr)
        reader = threading.Thread(target=_read_terminal, args=(terminal, chunks), daemon=True)
        reader.start()
    try:
        out, err = process.communicate(timeout=timeout)
    except subprocess.TimeoutExpired as expired:
        os.killpg(process.pid, signal.SIGKILL)
        out, err = process.communicate()
        raise AssertionError(f"still running after {timeout} s: {shlex.join(argv)}\n"
                             f"stdout: {out!r}\nstderr: {err!r}") from expired
    finally:
        seconds = time.monotonic() - began
        if tty:
            reader.join(5)
            os.close(terminal)
    err = b"".join(chunks) if tty else err
    decode = lambda data: data.decode("utf-8", "surrogateescape")  # noqa: E731
    return process.returncode, decode(out), decode(err), seconds
