"""The clients, each set up the way its manual says for http-01 with a web root, told to make a new
key for every certificate."""

import json
import os
import shutil
from dataclasses import dataclass, field

WEBROOT = "/var/lib/letsencrypt"
CHALLENGES = WEBROOT + "/.well-known/acme-challenge"
SETTINGS = "/usr/kova/etc.defaults/letsencrypt/letsencrypt.default"
MAIL = "admin@bench.example"


@dataclass
class Client:
    name: str
    issue: list                                  # the command that is measured
    register: list = None                        # makes the account; None: issuing does
    forget: list = field(default_factory=list)   # files that an earlier issuance left
    env: dict = field(default_factory=dict)

    def reset(self):
        for path in self.forget:
            shutil.rmtree(path, ignore_errors=True)


def _write(path, text, mode=0o644):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as out:
        out.write(text)
    os.chmod(path, mode)


def ours(directory, names, key):
    if key != "rsa2048":
        with open(SETTINGS, encoding="utf-8") as installed:
            settings = json.load(installed)
        _write(SETTINGS, json.dumps({**settings, "keytype": key}))
    return Client("ours", ["/usr/kova/sbin/kova-letsencrypt", "new-cert", "-s", directory,
                           "-d", ";".join(names), "-m", MAIL])


# The cheapest hook that the shell can do; only taking the token away starts a program.
UACME_HOOK = f"""#!/bin/sh
[ "$2" = http-01 ] || exit 1
case $1 in
  begin) printf %s "$5" > {CHALLENGES}/"$4" ;;
  *) exec rm -f {CHALLENGES}/"$4" ;;
esac
"""


def uacme(directory, names, key):
    _write("/run/bench/uacme-hook", UACME_HOOK, 0o755)
    base = ["uacme", "-a", directory, "-c", "/run/bench/uacme", "-y"]
    kind = ["-t", "EC"] if key == "ec256" else ["-t", "RSA"]
    return Client("uacme", [*base, *kind, "-h", "/run/bench/uacme-hook", "issue", *names],
                  [*base, "new", MAIL],
                  [f"/run/bench/uacme/{names[0]}", f"/run/bench/uacme/private/{names[0]}"])


def lego(directory, names, key):
    domains = [part for name in names for part in ("-d", name)]
    return Client("lego", ["lego", "-s", directory, "-a", "-m", MAIL, "-k", key, *domains,
                           "--path", "/run/bench/lego", "--http", "--http.webroot", WEBROOT,
                           "run"],
                  forget=["/run/bench/lego/certificates"])


def certbot(directory, names, key):
    folders = ["--config-dir", "/run/bench/certbot", "--work-dir", "/run/bench/certbot-work",
               "--logs-dir", "/run/bench/certbot-log"]
    base = ["--server", directory, "-n", *folders]
    kind = ["--key-type", "ecdsa"] if key == "ec256" else ["--key-type", "rsa",
                                                           "--rsa-key-size", "2048"]
    domains = [part for name in names for part in ("-d", name)]
    return Client("certbot", ["certbot", "certonly", *base, *kind, "--webroot", "-w", WEBROOT,
                              "--force-renewal", *domains],
                  ["certbot", "register", *base, "-m", MAIL, "--agree-tos", "--no-eff-email"])


def dehydrated(directory, names, key):
    kind = "KEY_ALGO=prime256v1" if key == "ec256" else "KEY_ALGO=rsa\nKEYSIZE=2048"
    _write("/run/bench/dehydrated/config",
           f"CA={directory}\nBASEDIR=/run/bench/dehydrated\nWELLKNOWN={CHALLENGES}\n{kind}\n"
           f"CONTACT_EMAIL={MAIL}\nPRIVATE_KEY_RENEW=yes\n")
    base = ["dehydrated", "-f", "/run/bench/dehydrated/config"]
    domains = [part for name in names for part in ("-d", name)]
    return Client("dehydrated", [*base, "-c", "-x", *domains],
                  [*base, "--register", "--accept-terms"])


def all_of(directory, names, key):
    return [make(directory, names, key) for make in (ours, uacme, lego, certbot, dehydrated)]
