"""What runs at the same time in a race: the commands, and what each of them leaves to others."""

from dataclasses import dataclass

from lib.renewal import folder_of

from .scenarios import BIND, ID, NAME, OTHER, front, kova, removed_of

ADDED = "gHi789"
SPARE = "jKl012"
CONTACT = "admin@host.example"


@dataclass(frozen=True)
class Command:
    words: list             # SERVER and EARLY stand for the directories of the two authorities
    deploys: bool = True    # False: the services are left to whoever asked for it
    makes: int = 0          # certificates that there are more when it succeeded
    done: object = None     # (lab) -> True once it succeeded, whatever ran beside it
    mixes: bool = True      # False: what many of it leave cannot be told beforehand


def new_cert(server, *more):
    return kova("new-cert", "-s", server, "-d", NAME, "-m", CONTACT, *more)


def account(*words):
    return Command(front("account", *words), mixes=False)


COMMANDS = {
    "renew-all": Command(kova("renew-all")),
    "renew": Command(kova("renew", "-c", ID), deploys=False),
    "new-cert": Command(new_cert("SERVER"), makes=1),
    "new-cert-c": Command(new_cert("SERVER", "-c", ID), deploys=False),
    "v1-new-cert": Command(new_cert("EARLY", "-p", "1"), makes=1),
    "revoke": Command(kova("revoke", "-c", ID)),
    "add-cronjob": Command(kova("add-cronjob")),
    "add": Command(front("add", ADDED)),
    "remove": Command(front("remove", SPARE), done=removed_of(SPARE)),
    "default": Command(front("default", ID)),
    "bind": Command(front("bind", OTHER, *BIND)),
    "bind-spare": Command(front("bind", SPARE, *BIND)),
    "unbind": Command(front("unbind", ID, "--subscriber", "pkg", "--service", "mail")),
    "deploy": Command(front("deploy", ID)),
    "check": Command(front("check", ID)),
    "self-signed": Command(front("self-signed", folder_of(ID)), deploys=False,
                           mixes=False),
    "obtain": Command(front("obtain", "-d", NAME, "-m", CONTACT, "--server", "SERVER",
                            "--default", "--bind", "nginx/web", "--owner", "root",
                            "--display-name", "Web"), makes=1),
    "archive-renew": Command(front("renew", ID)),
    "archive-revoke": Command(front("revoke", ID)),
    "account-update": account("update", "seeded", "--mail", "new@host.example"),
    "account-rollover": account("rollover", "seeded"),
    "account-deactivate": account("deactivate", "seeded", "--force"),
}


def words_of(name, lab):
    directories = {"SERVER": lab.ca.directory, "EARLY": lab.early_ca.directory}
    return [directories.get(word, word) for word in COMMANDS[name].words]
