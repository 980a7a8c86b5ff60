"""A minimal system of the distribution's, unpacked afresh for a test."""

import glob
import os
import shutil
import stat
import subprocess

PACKAGE = "kova-letsencrypt"
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8", "HOME": "/root"}


class CleanRoot:
    """`lower` is the folder of a prepared root, which stays as it is; `scratch` an empty folder;
    `packages` one that fetch-packages filled."""

    def __init__(self, lower, scratch, packages):
        self.folder = f"{scratch}/root"
        self._scratch = str(scratch)
        self._packages = packages
        self._log = []
        _mount("-t", "tmpfs", "tmpfs", self._scratch)
        for name in ("root", "upper", "work"):
            os.mkdir(f"{scratch}/{name}")
        _mount("-t", "overlay", "overlay", self.folder,
               "-o", f"lowerdir={lower},upperdir={scratch}/upper,workdir={scratch}/work")
        _mount("-t", "proc", "proc", self.path("/proc"))
        _mount("--rbind", "/dev", self.path("/dev"))

    def close(self):
        subprocess.run(["umount", "-R", "-l", self._scratch], check=True)

    def report(self):
        return "\n".join(self._log)

    # -- programs --------------------------------------------------------------------------------

    def run(self, *argv, status=0):
        """Runs a program in the root, with nobody to answer questions; returns its output."""
        done = subprocess.run(["chroot", self.folder, *argv], env=ENVIRONMENT, text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=300)
        self._log.append(f"$ {' '.join(argv)}\n{done.stdout}status {done.returncode}")
        assert done.returncode == status, self._log[-1]
        return done.stdout

    def install_depends(self):
        """What the package depends on, from the files at hand; there is no network."""
        self._with_files(sorted(glob.glob(self._packages + "/*.deb")), lambda names: self.run(
            "apt-get", "install", "--quiet", "--yes", "--no-install-recommends",
            "--allow-downgrades", *names))

    def use_repository(self):
        """From now on the packages at hand are what apt knows."""
        os.mkdir(self.path("/srv/packages"))
        _mount("--bind", "-o", "ro", self._packages, self.path("/srv/packages"))
        self.write("/etc/apt/sources.list", "deb [trusted=yes] file:/srv/packages ./\n")

    def install(self, deb, *options, status=0):
        return self._with_files([deb], lambda names: self.run(
            "dpkg", "--force-unsafe-io", *options, "--install", *names, status=status))

    def _with_files(self, files, use):
        names = ["/tmp/" + os.path.basename(file) for file in files]
        for file in files:
            shutil.copy(file, self.path("/tmp"))
        try:
            return use(names)
        finally:
            for name in names:
                os.unlink(self.path(name))

    def remove(self):
        return self.run("dpkg", "--remove", PACKAGE)

    def purge(self):
        return self.run("dpkg", "--purge", PACKAGE)

    def package_state(self):
        """E.g. "installed", "config-files"; empty when dpkg knows nothing of the package."""
        done = subprocess.run(["chroot", self.folder, "dpkg-query", "-W", "-f",
                               "${db:Status-Status}", PACKAGE], env=ENVIRONMENT, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
        return done.stdout

    # -- files -----------------------------------------------------------------------------------

    def path(self, name):
        return self.folder + name

    def exists(self, name):
        return os.path.lexists(self.path(name))

    def read(self, name):
        with open(self.path(name), encoding="utf-8") as file:
            return file.read()

    def write(self, name, content, mode=0o644):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(content)
        os.chmod(self.path(name), mode)

    def mode(self, name):
        return stat.S_IMODE(os.lstat(self.path(name)).st_mode)

    def tree(self, *tops):
        """{name: (mode, owner, content)} of everything below those folders, themselves included."""
        found = {}
        for top in tops:
            for parent, folders, files in os.walk(self.path(top)):
                for entry in [parent] + [os.path.join(parent, name) for name in folders + files]:
                    found[entry[len(self.folder):]] = _describe(entry)
        return found


def _describe(path):
    status = os.lstat(path)
    content = None
    if stat.S_ISLNK(status.st_mode):
        content = os.readlink(path)
    elif stat.S_ISREG(status.st_mode):
        with open(path, "rb") as file:
            content = file.read()
    return stat.filemode(status.st_mode), (status.st_uid, status.st_gid), content


def _mount(*arguments):
    subprocess.run(["mount", *arguments], check=True)


def unpack(archive, folder):
    """A prepared root from an archive, in memory. Nothing starts daemons there."""
    _mount("-t", "tmpfs", "tmpfs", str(folder))
    subprocess.run(["tar", "-C", str(folder), "-xf", archive], check=True)
    policy = f"{folder}/usr/sbin/policy-rc.d"
    with open(policy, "w", encoding="ascii") as script:
        script.write("#!/bin/sh\nexit 101\n")
    os.chmod(policy, 0o755)
