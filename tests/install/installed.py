"""A build folder that is written to in vain, and a root folder that it is installed in."""

import os
import stat
import subprocess
import tempfile


class BuildTree:
    """Installing writes down what it did in the build folder: to a layer in memory here, since other
    tests install from the same folder."""

    def __init__(self, folder):
        self.folder = folder
        layer = tempfile.mkdtemp(dir="/run")
        _mount("-t", "tmpfs", "tmpfs", layer)
        for name in ("upper", "work"):
            os.mkdir(f"{layer}/{name}")
        _mount("-t", "overlay", "overlay", folder,
               "-o", f"lowerdir={folder},upperdir={layer}/upper,workdir={layer}/work")
        self._layer = layer

    def close(self):
        for folder in (self.folder, self._layer):
            subprocess.run(["umount", "-l", folder], check=True)


class Installed:
    def __init__(self, build, root):
        self.root = root
        self._build = build

    def install(self):
        return self._cmake("--install", self._build.folder)

    def uninstall(self, status=0):
        return self._cmake("--build", self._build.folder, "--target", "uninstall", status=status)

    def _cmake(self, *arguments, status=0):
        environment = dict(os.environ, DESTDIR=self.root)
        if not self.root:
            del environment["DESTDIR"]
        done = subprocess.run(["cmake", *arguments], env=environment, text=True, check=False,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT)
        assert done.returncode == status, done.stdout
        return done.stdout

    # -- files -----------------------------------------------------------------------------------

    def path(self, name):
        return self.root + name

    def read(self, name):
        with open(self.path(name), encoding="utf-8") as file:
            return file.read()

    def write(self, name, text, mode=0o644):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(self.path(name), mode)

    def mode(self, name):
        return stat.S_IMODE(os.lstat(self.path(name)).st_mode)

    def files(self):
        """{name: mode} of everything that is no folder."""
        return {os.path.join(parent, name)[len(self.root):]:
                stat.filemode(os.lstat(os.path.join(parent, name)).st_mode)
                for parent, _, names in os.walk(self.root) for name in names}

    def folders(self):
        return {parent[len(self.root):] for parent, _, _ in os.walk(self.root)}


def _mount(*arguments):
    subprocess.run(["mount", *arguments], check=True)
