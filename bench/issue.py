"""The inside of bench/issue.sh, run in the sandbox: issue.py RUNS NAMES KEY."""

import glob
import os
import subprocess
import sys

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.append(TOP + "/tests/blackbox")

from costs import clients, measured  # noqa: E402
from cryptography import x509  # noqa: E402
from cryptography.hazmat.primitives.asymmetric import rsa  # noqa: E402
from lib import paths  # noqa: E402
from lib.nginx import Nginx  # noqa: E402
from lib.real_ca import RealCa  # noqa: E402
from lib.servers import Servers  # noqa: E402

WORK = "/run/bench"
# Ours against uacme, the leanest of them: what is held to be good.
BARS = {"cpu": 0.6, "wall": 0.8}


def start_servers():
    os.makedirs(clients.CHALLENGES)
    servers = Servers(WORK)
    ca = RealCa(servers)
    Nginx(servers).start()
    return servers, ca


def install():
    subprocess.run(["/bin/cp", "-a", measured.BUILD + "/stage/usr/kova", "/usr/"], check=True)
    Servers.write("/usr/kova/etc/device.json", '{"router": "none"}', 0o600)


def issue(client, ca, log):
    client.reset()
    before = ca.request_count()
    cost = measured.run(client.issue, log, client.env)
    cost.requests = ca.request_count() - before
    return cost


def check_key(key):
    """That ours makes the kind of key that is measured."""
    newest = max(glob.glob(paths.ARCHIVE + "/*/cert.pem"), key=os.path.getmtime)
    with open(newest, "rb") as certificate:
        made = x509.load_pem_x509_certificate(certificate.read()).public_key()
    if isinstance(made, rsa.RSAPublicKey) != key.startswith("rsa"):
        raise SystemExit(f"asked for {key}, and another kind of key was made")


def measure(ca, runs, names, key):
    """Each client's costs. They take turns, so that a busy moment falls on all of them."""
    contestants = clients.all_of(ca.directory, names, key)
    for client in contestants:
        if client.register:
            measured.run(client.register, f"{WORK}/{client.name}.register")
        else:
            issue(client, ca, f"{WORK}/{client.name}.register")
    check_key(key)
    costs = {client.name: [] for client in contestants}
    for number in range(runs):
        for client in contestants:
            costs[client.name].append(issue(client, ca, f"{WORK}/{client.name}.{number}"))
    return {name: measured.median(values) for name, values in costs.items()}


def show(medians, file):
    own = medians["ours"]
    measured.table(file, ["client", "requests", "CPU s", "wall s", "peak MiB", "ours/CPU",
                          "ours/wall", "ours/peak"], [
        [name, f"{cost.requests:g}", f"{cost.cpu:.3f}", f"{cost.wall:.3f}", f"{cost.peak:.1f}",
         f"{own.cpu / cost.cpu:.2f}", f"{own.wall / cost.wall:.2f}", f"{own.peak / cost.peak:.2f}"]
        for name, cost in medians.items()])


def judge(medians, names):
    own, peer = medians["ours"], medians["uacme"]
    most = 10 + 3 * (names - 1)
    compiled = min(medians[name].peak for name in ("uacme", "lego"))
    for text, good in [
            (f"CPU at most {BARS['cpu']} of uacme's", own.cpu <= BARS["cpu"] * peer.cpu),
            (f"wall at most {BARS['wall']} of uacme's", own.wall <= BARS["wall"] * peer.wall),
            ("peak below every compiled peer's", own.peak < compiled),
            (f"at most {most} requests", own.requests <= most)]:
        print(f"{'yes' if good else 'NO ':3}  {text}")


def main(runs, count, key):
    names = [f"www{i}.bench.example" for i in range(1, count + 1)]
    servers, ca = start_servers()
    try:
        install()
        medians = measure(ca, runs, names, key)
    finally:
        servers.end_all()
    print(f"One issuance, {count} name{'s' if count > 1 else ''}, {key}, median of {runs}:")
    show(medians, f"issue-{count}-{key}.tsv")
    judge(medians, count)


if __name__ == "__main__":
    main(int(sys.argv[1]), int(sys.argv[2]), sys.argv[3])
