"""Listens on /dev/log, so that tests can assert what the program says to the system log."""

import os
import re
import select
import socket
import subprocess
import threading
from dataclasses import dataclass

LOG_ERR, LOG_WARNING, LOG_DEBUG = 3, 4, 7

_DATAGRAM = re.compile(
    r"<(\d+)>\w{3} [ \d]\d \d\d:\d\d:\d\d (?P<identity>[^:]*?): (?P<text>.*)", re.DOTALL)
_POSITION = re.compile(r"^([\w.-]+):\d+ ")


@dataclass(frozen=True)
class SyslogLine:
    priority: int  # LOG_ERR, LOG_DEBUG, ...
    facility: int  # 1 = user, the system's default
    identity: str  # program name, as syslog(3) puts it
    text: str      # as sent, "TAG:LINE " included

    @property
    def plain(self):
        """The text with the source line replaced by "#": "client_v2:57 x" reads "client_v2:# x"."""
        return _POSITION.sub(r"\1:# ", self.text)


def _parse(datagram):
    text = datagram.rstrip(b"\0").decode("utf-8", "surrogateescape")
    match = _DATAGRAM.fullmatch(text)
    if match is None:
        return SyslogLine(-1, -1, "", text)
    value = int(match[1])
    return SyslogLine(value & 7, value >> 3, match["identity"], match["text"])


class SyslogCapture:
    """A reader thread keeps the queue short (senders block on a full one); `lines` reads what is
    still queued, so everything that a finished program sent is there."""

    PATH = "/dev/log"

    def __init__(self, path=None):
        """At another path it is mounted over the usual one."""
        try:
            with open("/proc/sys/net/unix/max_dgram_qlen", "w", encoding="ascii") as queue:
                queue.write("512")
        except OSError:
            pass  # the reader thread copes with a short queue
        self._path = path or self.PATH
        if os.path.lexists(self._path):
            os.unlink(self._path)
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
        self._socket.bind(self._path)
        os.chmod(self._path, 0o666)
        if path is not None:
            with open(self.PATH, "ab"):
                pass  # something to mount it over
            subprocess.run(["/bin/mount", "--bind", path, self.PATH], check=True)
        self._socket.setblocking(False)
        self._lines = []
        self._lock = threading.Lock()
        self._stopping = False
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self):
        while not self._stopping:
            select.select([self._socket], [], [], 0.05)
            self.lines()

    def lines(self):
        """Everything received so far, oldest first."""
        with self._lock:
            try:
                while True:
                    self._lines.append(_parse(self._socket.recv(1 << 20)))
            except BlockingIOError:
                return list(self._lines)

    def forget(self):
        """Drops what was received so far; for thousands of runs on one host."""
        with self._lock:
            self._lines.clear()

    def close(self):
        self._stopping = True
        self._reader.join()
        self._socket.close()
        os.unlink(self._path)
