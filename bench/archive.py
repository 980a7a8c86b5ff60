"""The inside of bench/archive.sh, run in the sandbox: archive.py SIZE..."""

import json
import os
import shutil
import subprocess
import sys

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.append(TOP + "/tests/blackbox")

from costs import measured  # noqa: E402
from cryptography.hazmat.primitives.asymmetric import rsa  # noqa: E402
from lib import paths  # noqa: E402
from lib.issuer import Issuer, pem  # noqa: E402
from lib.servers import Servers  # noqa: E402

RUNS = 3
TOOL = "/usr/kova/sbin/kova-archive"
# The loop comes first: the others are measured against it, in CPU time.
COMMANDS = {
    "parse loop": ([measured.BUILD + "/bench/parse_loop", paths.ARCHIVE], None),
    "renew-all": ([paths.PROGRAM, "renew-all"], 2),
    "list": ([TOOL, "list"], 2),
    "check": ([TOOL, "check"], 6),
    "check --expiry": ([TOOL, "check", "--expiry", "10"], 6),
}


def certificate_files():
    """What one folder of the archive holds: a certificate that is not due for two months."""
    issuer = Issuer()
    key = rsa.generate_private_key(65537, 2048)
    chain = [pem(link) for link in issuer.chain(issuer.issue(["www.bench.example"],
                                                             key.public_key()))]
    record = {"account": "", "domains": "www.bench.example", "server": "", "version": 2}
    return {"cert.pem": chain[0], "chain.pem": b"".join(chain[1:]),
            "fullchain.pem": b"".join(chain), "privkey.pem": pem(key),
            "renew.json": json.dumps(record, indent=3).encode()}


def fill(size, files):
    shutil.rmtree(paths.ARCHIVE)
    for number in range(size):
        folder = f"{paths.ARCHIVE}/c{number:05}"
        os.makedirs(folder, 0o700)
        for name, content in files.items():
            Servers.write(f"{folder}/{name}", content, 0o400)
    index = {f"c{number:05}": {"desc": "", "services": []} for number in range(size)}
    Servers.write(paths.ARCHIVE + "/INFO", json.dumps(index, indent=3))
    Servers.write(paths.ARCHIVE + "/DEFAULT", "c00000")


def measure(size):
    """The medians, the commands taking turns."""
    costs = {name: [] for name in COMMANDS}
    for _ in range(RUNS):
        for name, (command, _bar) in COMMANDS.items():
            costs[name].append(measured.run(command, "/run/bench.log"))
    return {name: measured.median(values) for name, values in costs.items()}


def rows(results):
    for size, medians in results.items():
        loop = medians["parse loop"]
        for name, cost in medians.items():
            bar = COMMANDS[name][1]
            ratio = cost.cpu / loop.cpu if loop.cpu else float("nan")
            yield [name.replace(" ", "_").replace("--", ""), size, f"{cost.cpu:.3f}", f"{cost.wall:.3f}",
                   f"{cost.peak:.1f}", f"{ratio:.2f}",
                   "" if bar is None else f"{'yes' if ratio <= bar else 'NO'} (at most {bar})"]


def main(sizes):
    subprocess.run(["/bin/cp", "-a", measured.BUILD + "/stage/usr/kova", "/usr/"], check=True)
    Servers.write(paths.DEVICE_RECORD, '{"router": "none"}', 0o600)
    files = certificate_files()
    results = {}
    for size in sizes:
        fill(size, files)
        results[size] = measure(size)
    print(f"An archive of certificates none of which is due, median of {RUNS}:")
    measured.table("archive.tsv", ["what", "certificates", "CPU s", "wall s", "peak MiB",
                                   "CPU/loop", "good"], list(rows(results)))


if __name__ == "__main__":
    main([int(argument) for argument in sys.argv[1:]])
