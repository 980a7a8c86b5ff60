"""What a host keeps of a run: the files below the folders that the programs write to. Taken and put
back within milliseconds, so that thousands of runs start from the same host."""

import json
import os
import re
import shutil
import stat

ROOTS = ["/usr/kova/etc", "/etc/cron.d", "/usr/local/etc", "/usr/libexec/certificate.d",
         "/var/lib/letsencrypt", "/run", "/tmp"]

# Names that a run makes up, below the folders that hold nothing but such names.
_MADE_UP = [(re.compile(pattern), replacement) for pattern, replacement in [
    (r"(/_archive/)(?!INFO|DEFAULT)[A-Za-z0-9]{6}(?=/|$)", r"\1ID"),
    (r"(/letsencrypt/account/)[A-Za-z0-9]{6}(?=/|$)", r"\1ID"),
    (r"(/letsencrypt/renewal/)[A-Za-z0-9]{6}(?=\.json$)", r"\1ID"),
    (r"(/run/kova-[a-z-]+/)[A-Za-z0-9]{6}(?=$|\.)", r"\1ID"),
]]


def general(path):
    """The path with made-up names replaced by ID."""
    for pattern, replacement in _MADE_UP:
        path = pattern.sub(replacement, path)
    return path


def paths():
    """Every file and folder below the roots."""
    found = []
    for root in ROOTS:
        for parent, folders, files in os.walk(root):
            found += [os.path.join(parent, name) for name in folders + files]
    return sorted(found)


def content(path):
    """The bytes of a file, or None."""
    try:
        with open(path, "rb") as file:
            return file.read()
    except OSError:
        return None


def json_of(path):
    """The JSON value in a file, or None."""
    try:
        return json.loads(content(path) or b"")
    except ValueError:
        return None


def _entry(path):
    status = os.lstat(path)
    if stat.S_ISLNK(status.st_mode):
        return status, os.readlink(path)
    return status, content(path) if stat.S_ISREG(status.st_mode) else None


class Snapshot:
    """The files as they are now."""

    def __init__(self):
        self.entries = {path: _entry(path) for path in paths()}

    def content(self, path):
        return self.entries[path][1] if path in self.entries else None

    def restore(self):
        for root in ROOTS:
            _empty(root)
        for path, (status, data) in self.entries.items():
            _make(path, status, data)

    def paths(self):
        return list(self.entries)


def _empty(root):
    os.makedirs(root, exist_ok=True)
    for entry in os.scandir(root):
        if entry.is_dir(follow_symlinks=False):
            shutil.rmtree(entry.path)
        else:
            os.unlink(entry.path)


def _make(path, status, data):
    if stat.S_ISDIR(status.st_mode):
        os.mkdir(path)
    elif stat.S_ISLNK(status.st_mode):
        os.symlink(data, path)
        return
    elif stat.S_ISREG(status.st_mode):
        with open(path, "wb") as file:
            file.write(data)
    else:
        return  # a socket or a pipe of the tests' own
    os.chown(path, status.st_uid, status.st_gid)
    os.chmod(path, stat.S_IMODE(status.st_mode))
