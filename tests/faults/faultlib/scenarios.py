"""What is swept: every command that changes something, on a host where it has something to do."""

import glob
import os
from dataclasses import dataclass, field

from lib import paths, validators
from lib.accounts import store_account
from lib.archive_cli import PROGRAM as ARCHIVE_PROGRAM
from lib.renewal import folder_of, put_certificate, record, service, service_folder
from lib.router import CLOSED, OPENED, Router

from . import state
from .invariants import flaw_of_set, same_set

ID = "AbC123"
OTHER = "dEf456"
NAME = "www.host.example"
WEB = service_folder()
MAIL = service_folder("pkg", "mail", package=True)


@dataclass
class Scenario:
    name: str
    prepare: object              # (lab) -> [program, arguments...]
    done: object                 # (lab) -> True when what was asked for is so
    follow: list = None          # the next run; None: the same command again
    services: list = field(default_factory=list)     # their folders, each with a set before and after
    taken_back: object = None    # (lab) -> False when a signal left something of it in place
    between: list = field(default_factory=list)      # what INFO may also be on the way


def kova(*arguments):
    return [paths.PROGRAM, *arguments]


def front(*arguments):
    return [ARCHIVE_PROGRAM, *arguments]


# -- what was asked for ------------------------------------------------------------------------------


def issued(_lab):
    """A whole certificate with its renewal record, and the renewal job."""
    folders = [folder for folder in glob.glob(paths.ARCHIVE + "/*")
               if os.path.exists(folder + "/renew.json")]
    return bool(folders) and os.path.exists(paths.CRON_JOB) and not any(map(flaw_of_set, folders))


def replaced(lab):
    """The certificate's folder holds another whole set than at first."""
    folder = folder_of(ID)
    return (flaw_of_set(folder) is None and os.path.exists(folder + "/renew.json")
            and state.content(folder + "/cert.pem") != lab.start.content(folder + "/cert.pem"))


def deployed_to(identity, *folders):
    """The services' folders hold the set of that certificate."""
    return lambda _lab: all(same_set(folder_of(identity), folder) for folder in folders)


def renewed_and_deployed(lab):
    return replaced(lab) and deployed_to(ID, WEB, MAIL)(lab)


# -- hosts -------------------------------------------------------------------------------------------


def new_cert(server, *more):
    return kova("new-cert", "-s", server, "-d", NAME, "-m", "admin@host.example", *more)


def first_registration(lab):
    return new_cert(lab.ca.directory)


def with_account(lab):
    lab.account()
    return new_cert(lab.ca.directory)


def over_an_old_one(lab):
    lab.archive.add(ID, record=record(lab.ca.directory, lab.account()))
    return new_cert(lab.ca.directory, "-c", ID)


def renew(lab):
    lab.archive.add(ID, record=record(lab.ca.directory, lab.account()))
    return kova("renew", "-c", ID)


def serve(lab, identity, folder):
    """The service has that certificate's files."""
    for name in ("cert.pem", "chain.pem", "fullchain.pem", "privkey.pem"):
        source = state.content(f"{folder_of(identity)}/{name}")
        lab.host.write(f"{folder}/{name}", source, 0o400)


def two_services(lab):
    """Reload scripts that do nothing, so that nothing of theirs counts."""
    for subscriber, package in (("nginx", False), ("pkg", True)):
        local = "local/" if package else ""
        lab.host.write(f"/usr/{local}libexec/certificate.d/{subscriber}", "#!/bin/sh\n", 0o755)
    lab.archive.add(ID, service(), service("pkg", "mail", package=True),
                    record=record(lab.ca.directory, lab.account()))
    serve(lab, ID, WEB)
    serve(lab, ID, MAIL)


def renew_all(lab):
    two_services(lab)
    return kova("renew-all")


def early_new(lab):
    lab.early_account()
    return new_cert(lab.early_ca.directory, "-p", "1")


def early_registration(lab):
    return new_cert(lab.early_ca.directory, "-p", "1")


def migration(lab):
    early = store_account(lab.host, lab.early_ca.directory, "", {"kty": "RSA"},
                          "me@host.example", "early", version=1)
    lab.archive.add(ID, record=record(lab.early_ca.directory, early, version=1))
    lab.host.settings(server=lab.ca.directory)
    return kova("renew", "-c", ID)


def revoke(lab):
    os.makedirs(folder_of(ID))
    account = lab.account()
    result = lab.run(new_cert(lab.ca.directory, "-c", ID))
    assert result.status == 0, str(result)
    lab.archive.record(ID, record(lab.ca.directory, account))
    lab.archive.enter(ID, {"services": []})
    return kova("revoke", "-c", ID)


def revoked(_lab):
    return not os.path.exists(folder_of(ID) + "/renew.json") and not os.path.exists(paths.CRON_JOB)


def add_cronjob(lab):
    lab.archive.add(ID, record={})
    return kova("add-cronjob")


def behind_a_router(lab):
    """The name can only be reached while the router forwards the ports."""
    command = with_account(lab)
    lab.host.device(router="upnp")
    lab.router = Router(lab.host)
    lab.ca.validators["http-01"] = lambda *proof: (
        validators.webroot(*proof) if lab.router.calls[-1:] == [OPENED] else NOT_REACHED)
    lab.host.settings(skipdns01=True)
    return command


NOT_REACHED = ("connection", "nobody answers")


def closed(lab):
    """The last that the router was told is to forward nothing."""
    return lab.router.calls[-1:] in ([], [CLOSED])


def issued_and_closed(lab):
    return issued(lab) and closed(lab)


def by_txt_record(lab):
    """The hook keeps each record as a file of the zone."""
    command = with_account(lab)
    lab.host.hook("dns-txt", f"""
case $1 in
  add) : > {lab.zone}/$2.$3 ;;
  remove) rm {lab.zone}/$2.$3 ;;
esac
""")
    lab.ca.challenge_types = ["dns-01"]
    lab.ca.validators["dns-01"] = validators.txt_records(lab)
    return command


def zone_empty(lab):
    return not os.listdir(lab.zone)


# -- kova-archive ------------------------------------------------------------------------------------


def entry(identity, *services):
    return lambda _lab: _listed(identity) == [f"{s['subscriber']}/{s['service']}"
                                                for s in services]


def _listed(identity):
    index = state.json_of(paths.ARCHIVE + "/INFO") or {}
    if identity not in index:
        return None
    return [f"{s['subscriber']}/{s['service']}" for s in index[identity]["services"]]


def two_certificates(lab, *services):
    """The second certificate is the default one; the first has these services."""
    lab.host.write("/usr/libexec/certificate.d/nginx", "#!/bin/sh\n", 0o755)
    lab.archive.add(ID, *services)
    lab.archive.add(OTHER)
    lab.cli.default(OTHER)
    if services:
        serve(lab, ID, WEB)


def archive_add(lab):
    two_certificates(lab)
    put_certificate(lab.host, folder_of("gHi789"), lab.ca.issuer)
    return front("add", "gHi789", "--desc", "a web site")


def archive_remove(lab):
    two_certificates(lab)
    return front("remove", ID)


def archive_default(lab):
    two_certificates(lab)
    return front("default", ID)


BIND = ["--subscriber", "nginx", "--service", "web", "--display-name", "Web", "--owner", "root"]


def archive_bind_first(lab):
    two_certificates(lab)
    return front("bind", ID, *BIND)


RELOAD_EXAMPLE = "/usr/kova/share/doc/kova-letsencrypt/examples/reload/nginx"
RELOAD_SCRIPT = "/usr/libexec/certificate.d/nginx"


def with_reload(lab, command):
    """The subscriber has no reload script yet, and the example does nothing."""
    if os.path.exists(RELOAD_SCRIPT):
        os.unlink(RELOAD_SCRIPT)
    lab.host.write(RELOAD_EXAMPLE, "#!/bin/sh\n", 0o644)
    return [*command, "--reload", "nginx"]


def script_made(_lab):
    """The whole example, for all to run."""
    return (state.content(RELOAD_SCRIPT) == state.content(RELOAD_EXAMPLE)
            and os.stat(RELOAD_SCRIPT).st_mode & 0o7777 == 0o755)


def archive_bind_reload(lab):
    return with_reload(lab, archive_bind_first(lab))


def archive_obtain_reload(lab):
    return with_reload(lab, archive_obtain(lab))


def archive_bind_move(lab):
    two_certificates(lab, service())
    return front("bind", OTHER, *BIND)


def archive_unbind(lab):
    two_certificates(lab, service())
    return front("unbind", ID, "--subscriber", "nginx", "--service", "web")


def archive_deploy(lab):
    two_certificates(lab, service())
    put_certificate(lab.host, folder_of(ID), lab.ca.issuer)
    return front("deploy", ID)


def archive_check(lab):
    two_certificates(lab, service())
    os.unlink(folder_of(ID) + "/privkey.pem")
    return front("check", ID)


def archive_obtain(lab):
    lab.account()
    lab.host.write("/usr/libexec/certificate.d/nginx", "#!/bin/sh\n", 0o755)
    return front("obtain", "-d", NAME, "-m", "admin@host.example", "--server", lab.ca.directory,
                 "--default", "--bind", "nginx/web", "--display-name", "Web", "--owner", "root")


def obtained(lab):
    """Issued, and the one with the service is the default one, whose files it has."""
    index = state.json_of(paths.ARCHIVE + "/INFO") or {}
    users = [identity for identity in index if _listed(identity) == ["nginx/web"]]
    return (issued(lab) and len(users) == 1 and default_is(users[0])(lab)
            and deployed_to(users[0], WEB)(lab))


def archive_renew(lab):
    two_services(lab)
    return front("renew", ID)


def archive_revoke(lab):
    revoke(lab)
    return front("revoke", ID, "--reason", "superseded")


def archive_self_signed(lab):
    return front("self-signed", "/usr/kova/etc/set")


def moved(lab):
    return entry(ID)(lab) and entry(OTHER, service())(lab) and deployed_to(OTHER, WEB)(lab)


def removed_of(identity):
    return lambda _lab: _listed(identity) is None and not os.path.exists(folder_of(identity))


def bound_with_script(lab):
    return bound(lab) and script_made(lab)


def obtained_with_script(lab):
    return obtained(lab) and script_made(lab)


def bound(lab):
    return entry(ID, service())(lab) and deployed_to(ID, WEB)(lab)


def default_is(identity):
    return lambda _lab: (state.content(paths.ARCHIVE + "/DEFAULT") or b"").strip() == \
        identity.encode()


# -- stored accounts -----------------------------------------------------------------------------------


def account_command(*arguments):
    """Of the account that a certificate renews with."""
    def prepare(lab):
        lab.archive.add(ID, record=record(lab.ca.directory, lab.account()))
        return front("account", *arguments)
    return prepare


def _stored(name):
    return state.json_of(f"{paths.ACCOUNTS}/seeded/{name}.json") or {}


def _known(lab):
    [account] = lab.ca.accounts.values()
    return account


def rolled_over(lab):
    """The account has another key than at first, and the CA knows it by that one."""
    first = lab.start.content(f"{paths.ACCOUNTS}/seeded/private_key.json").decode()
    number = _stored("private_key").get("n")
    return number == _known(lab)["jwk"]["n"] and number not in first and not _stored("next_key")


def updated(lab):
    return (_stored("info").get("contact") == "new@host.example"
            and _known(lab).get("contact") == ["mailto:new@host.example"])


def deactivated(lab):
    return (not os.path.exists(paths.ACCOUNTS + "/seeded")
            and _known(lab).get("status") == "deactivated")


SELF_SIGNED = ["cert.pem", "fullchain.pem", "is_default_cert", "kova-ca-cert.pem",
               "kova-ca-privkey.pem", "privkey.pem"]


def generated(folder):
    return lambda _lab: (os.path.isdir(folder) and set(SELF_SIGNED) <= set(os.listdir(folder))
                           and flaw_of_set(folder) is None)


SCENARIOS = [
    Scenario("new-cert", with_account, issued),
    Scenario("registration", first_registration, issued),
    Scenario("new-cert-router", behind_a_router, issued_and_closed, taken_back=closed),
    Scenario("new-cert-dns", by_txt_record, issued, taken_back=zone_empty),
    Scenario("new-cert-c", over_an_old_one, replaced),
    Scenario("renew", renew, replaced),
    Scenario("renew-all", renew_all, renewed_and_deployed, services=[WEB, MAIL]),
    Scenario("v1-new-cert", early_new, issued),
    Scenario("v1-registration", early_registration, issued),
    Scenario("v1-migration", migration, replaced),
    Scenario("revoke", revoke, revoked),
    Scenario("add-cronjob", add_cronjob, lambda _lab: os.path.exists(paths.CRON_JOB)),
    Scenario("archive-add", archive_add, entry("gHi789")),
    Scenario("archive-remove", archive_remove, removed_of(ID)),
    Scenario("archive-default", archive_default, default_is(ID)),
    Scenario("archive-bind", archive_bind_first, bound),
    Scenario("archive-bind-reload", archive_bind_reload, bound_with_script),
    Scenario("archive-bind-move", archive_bind_move, moved, services=[WEB]),
    Scenario("archive-unbind", archive_unbind, moved, services=[WEB]),
    Scenario("archive-deploy", archive_deploy, deployed_to(ID, WEB), services=[WEB]),
    Scenario("archive-check", archive_check, generated(folder_of(ID)), services=[WEB]),
    Scenario("archive-obtain", archive_obtain, obtained, between=[{"madeUp": {"services": []}}]),
    Scenario("archive-obtain-reload", archive_obtain_reload, obtained_with_script,
             between=[{"madeUp": {"services": []}}]),
    Scenario("archive-renew", archive_renew, renewed_and_deployed, services=[WEB, MAIL]),
    # Once it is revoked, it has no record to be revoked with.
    Scenario("archive-revoke", archive_revoke, revoked, follow=kova("revoke", "-c", ID)),
    Scenario("account-update", account_command("update", "seeded", "--mail", "new@host.example"),
             updated),
    Scenario("account-rollover", account_command("rollover", "seeded"), rolled_over),
    Scenario("account-deactivate", account_command("deactivate", "seeded", "--force"), deactivated),
    Scenario("archive-self-signed", archive_self_signed, generated("/usr/kova/etc/set")),
]
