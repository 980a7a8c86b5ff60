"""tmpfs mounts in the test's own mount namespace."""

import ctypes
import os

_libc = ctypes.CDLL(None, use_errno=True)
_MS_NOSUID_NODEV = 0x2 | 0x4
_MNT_DETACH = 2


def _check(result, what):
    if result != 0:
        error = ctypes.get_errno()
        raise OSError(error, f"{what}: {os.strerror(error)}")


def mount_tmpfs(path, mode=0o755, size=None):
    """Mounts an empty tmpfs of that size (bytes; default: no limit of its own) over `path`."""
    os.makedirs(path, exist_ok=True)
    options = f"mode={mode:04o}" + (f",size={size}" if size is not None else "")
    _check(_libc.mount(b"tmpfs", path.encode(), b"tmpfs", _MS_NOSUID_NODEV, options.encode()),
           f"mount {path}")


def unmount(path):
    _check(_libc.umount2(path.encode(), _MNT_DETACH), f"umount {path}")
