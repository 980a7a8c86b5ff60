"""Every optional key is inert when it is absent or of another type: one whole issuance and one whole
renewal are compared in every byte that the CA saw, and in everything that was said, waited for and
left. On, it changes what it is for, and nothing else. Each key in a run without trouble, and in one
where it matters."""

import functools
import json
import os
import stat
import tempfile
import time
from dataclasses import dataclass, field
from itertools import count

import pytest
from cryptography import x509
from cryptography.hazmat.primitives import serialization
from cryptography.hazmat.primitives.asymmetric import rsa
from lib import expect, jws, paths
from lib.accounts import store_account
from lib.acme_ca import AcmeCa
from lib.host import Host
from lib.http_script import edited, edited_json
from lib.renewal import INDEX, Archive, folder_of, record
from lib.signed_server import problem

NAME = "www.host.example"
PORT = 14000
NOW = int(time.time())
LATER = NOW + 8 * 86400  # of a certificate of ten days, two are left
KEY = jws.key_to_jwk(rsa.generate_private_key(65537, 2048))
FOLDERS = ["/usr/kova", "/etc/cron.d", paths.WEBROOT]

NO_BOOLEAN = [None, 1, 0, "true", [True], {"on": True}]
NO_COUNT = [None, 0, -1, 1.5, True, "1", [1], {}]
NO_TEXT = [None, 7, True, ["x"], {"x": "y"}]


# -- what is observed ------------------------------------------------------------------------------


class FixedCa(AcmeCa):
    """Of two CAs that get the same requests, both answer with the same bytes, chains excepted."""

    def __init__(self):
        self._serial = count(1)
        super().__init__(PORT)

    def nonce(self):
        value = f"nonce-{next(self._serial)}"
        self._nonces.add(value)
        return value

    def _token(self):
        return f"token-{next(self._serial)}"


def request_without_key(text):
    """What a certificate request says, its key's value and signature left out."""
    der = jws.decode(text.rstrip("="))
    csr = x509.load_der_x509_csr(der)
    key = csr.public_key()
    return (len(text) if isinstance(key, rsa.RSAPublicKey) else None, type(key).__name__,
            key.key_size, csr.subject.rfc4514_string(), csr.signature_hash_algorithm.name,
            [(each.oid.dotted_string, each.critical, each.value.public_bytes())
             for each in csr.extensions])


def body_of(request):
    """Every byte of it; of finalize's, whose key is a new one, all but the key and what it signs."""
    if request.endpoint != "finalize":
        return request.body
    payload = dict(request.jws.payload)
    csr = payload.pop("csr")
    shape = request.jws.text.replace(csr.encode(), b"CSR")
    return (jws.decode(request.jws.raw["protected"]), shape, payload, request_without_key(csr),
            [type(value) for value in json.loads(request.body).values()])


def seen_by(ca):
    length = lambda name, value: "?" if name == "Content-Length" else value  # noqa: E731
    return [(request.method, request.target, request.version,
             [(name, length(name, value) if request.endpoint == "finalize" else value)
              for name, value in request.headers], body_of(request)) for request in ca.requests]


def pem_labels(data):
    return [line for line in data.decode().splitlines() if line.startswith("-----BEGIN")]


def left_behind(name_of):
    """Path to kind, mode, owner and content; of PEM files, which are new ones, the kinds of blocks."""
    found = {}
    for parent, folders, files in (each for folder in FOLDERS for each in os.walk(folder)):
        for name in folders + files:
            path = os.path.join(parent, name)
            status = os.lstat(path)
            content = None
            if stat.S_ISREG(status.st_mode) and path != paths.SETTINGS:
                with open(path, "rb") as file:
                    content = file.read()
                content = pem_labels(content) if path.endswith(".pem") else content
            found[name_of(path)] = (oct(status.st_mode), status.st_uid, status.st_gid, content)
    return found


@dataclass
class Observed:
    requests: list
    connections: list
    output: list
    log: list
    waits: list
    files: dict

    def differs_from(self, other):
        return {name for name in vars(self) if getattr(self, name) != getattr(other, name)}


def observe(settings, scene):
    """One issuance and one renew-all on a fresh host with exactly those settings."""
    with tempfile.TemporaryDirectory() as workspace:
        host = Host(os.environ["KOVA_STAGE"], os.environ["KOVA_TEST_PRELOAD"], workspace,
                    os.environ.get("KOVA_SANITIZED") == "1")
        host.start()
        ca = FixedCa()
        try:
            return run(host, ca, settings, scene)
        finally:
            ca.close()
            host.stop()


def run(host, ca, settings, scene):
    account = store_account(host, ca.directory, ca.register(KEY), KEY)
    host.bare_settings(**scene.settings, **settings)
    scene.issuance(ca)
    results = [host.new_cert(ca.directory, [NAME], *scene.arguments, env={"KOVA_WALL_CLOCK": str(NOW)})]
    issued = [os.path.basename(folder) for folder in host.certificates()]
    archive = Archive(host)
    archive.add("AbC123", record=record(ca.directory, account))
    for identity, options in scene.certificates.items():
        archive.add(identity, record=record(ca.directory, account), **options)
    scene.renewal(ca)
    results.append(host.run("renew-all", env={"KOVA_WALL_CLOCK": str(LATER)}))
    assert ca.violations == []

    def named(text):
        for number, identity in enumerate(issued):
            text = text.replace(identity, f"ISSUED{number}")
        return text
    return Observed(
        seen_by(ca), [request.connection for request in ca.requests],
        [(each.status, named(each.stdout), each.stderr) for each in results],
        [(line.priority, line.facility, line.identity, named(line.plain))
         for each in results for line in each.syslog],
        [each.sleeps for each in results], left_behind(named))


# -- the keys --------------------------------------------------------------------------------------


def nothing(_ca):
    pass


@dataclass(frozen=True, eq=False)
class Scene:
    """What the CA is told before the issuance, and before the renewal; what else is in the archive;
    and which of what is observed the key changes there."""
    changes: set = field(default_factory=set)
    issuance: object = nothing
    renewal: object = nothing
    settings: dict = field(default_factory=dict)
    certificates: dict = field(default_factory=dict)
    arguments: tuple = ()  # more of them for new-cert


@dataclass(frozen=True, eq=False)
class Key:
    on: object
    wrong: list
    plain: set       # what it changes in a run without trouble
    telling: Scene   # where it matters
    told: str = ""  # in the log of each run about a value of another type, where it is not as usual


def processing_once(ca):
    def edit(order):
        order.pop("certificate", None)
        order["status"] = "processing"
    ca.answer("finalize", edited_json(edit))


def pending_once(ca):
    ca.states_before_valid = ["pending"]


def refused_twice(ca):
    ca.answer("newOrder", *[problem("rateLimited", "slow down", 429)] * 2)


def refused(ca):
    ca.always("newOrder", problem("rateLimited", "slow down", 429))


def no_nonce(ca):
    ca.answer("newOrder", edited(nonce=None))


def slow(ca):
    ca.answer("directory", edited(delay=1.3))


def over_already(ca):
    ca.issuer.days = -0.01


def other_profile(ca):
    ca.always("directory", edited_json(
        lambda body: body["meta"].update(profiles={"short": "six days"})))


def alternates(ca):
    link = f'<{ca.url}/none/1>;rel="alternate"'
    ca.always("certificate", edited(headers={"Content-Type": "application/pem-certificate-chain",
                                             "Link": link}))


def calling_in(ca):
    ca.renewal_info = {"suggestedWindow": {"start": "2020-01-01T00:00:00Z",
                                           "end": "2020-01-02T00:00:00Z"}}


UNKNOWN_KEY_TYPE = "kova-letsencrypt:# Ignored key type []"
ONE_ATTEMPT = {"orderattempts": 1, "skipdns01": True}

KEYS = {
    "asyncfinalize": Key(True, NO_BOOLEAN, set(), Scene(
        {"requests", "connections", "output", "log", "waits", "files"}, processing_once, nothing,
        ONE_ATTEMPT)),
    "quickvalidation": Key(True, NO_BOOLEAN, {"waits"}, Scene({"waits"}, pending_once)),
    "orderattempts": Key(1, NO_COUNT, set(), Scene(
        {"requests", "connections", "output", "log", "files"}, refused_twice)),
    "noncerefill": Key(True, NO_BOOLEAN, set(), Scene(
        {"requests", "connections", "output", "log", "files"}, no_nonce, no_nonce,
        ONE_ATTEMPT)),
    "strictencoding": Key(True, NO_BOOLEAN, {"requests"}, Scene({"requests"})),
    "keepconnections": Key(True, NO_BOOLEAN, set(), Scene({"connections"}, AcmeCa.keep)),
    "transfertimeout": Key(1, NO_COUNT, set(), Scene(
        {"requests", "connections", "output", "files"}, slow, nothing,
        ONE_ATTEMPT)),
    "checkissued": Key(True, NO_BOOLEAN, set(), Scene(
        {"output", "log", "files"}, over_already, nothing,
        ONE_ATTEMPT)),
    "stagedupdate": Key(True, NO_BOOLEAN, set(), Scene(
        {"requests", "connections", "output", "log"}, settings=ONE_ATTEMPT,
        arguments=("-c", "none"))),
    "keytype": Key("ec256", NO_TEXT, {"requests", "files"}, Scene({"requests", "files"}),
                   UNKNOWN_KEY_TYPE),
    "profile": Key("short", NO_TEXT, {"log"}, Scene({"requests"}, other_profile)),
    "preferredchain": Key("Other Root", NO_TEXT, {"log"}, Scene(
        {"requests", "connections", "log"}, alternates)),
    "renewanyissuer": Key(True, NO_BOOLEAN, set(), Scene(
        {"requests", "connections", "log", "files"},
        certificates={"other1": {"organisation": "Kova Inc."}})),
    "renewlifetime": Key(True, NO_BOOLEAN, set(), Scene(
        {"requests", "connections", "log", "files"}, certificates={"days29": {"days": 29}})),
    "renewalinfo": Key(True, NO_BOOLEAN, set(), Scene(
        {"requests", "connections", "log", "files"}, calling_in, certificates={"early1": {"days": 80}})),
    "renewfailures": Key(True, NO_BOOLEAN, {"files"}, Scene(
        {"log", "files"}, nothing, refused)),
    "cronperiod": Key("daily", NO_TEXT, {"files"}, Scene({"files"})),
}


@functools.cache
def absent(key, plain):
    return observe({}, scene_of(key, plain))


def scene_of(key, plain):
    return Scene(KEYS[key].plain) if plain else KEYS[key].telling


WRONG = [(key, value) for key in KEYS for value in KEYS[key].wrong]
ON = [pytest.param(key, plain, id=f"{key}-{'plain' if plain else 'telling'}")
      for key in KEYS for plain in (True, False)]


@pytest.mark.parametrize("key, value", WRONG, ids=[f"{key}-{value!r}" for key, value in WRONG])
def test_of_another_type_it_changes_nothing_and_is_told(key, value):
    observed = observe({key: value}, KEYS[key].telling)
    before = absent(key, plain=False)
    told = KEYS[key].told or expect.ignored_key(key, "wrong")[0]
    lines = [line[3] for line in observed.log]
    observed.log = [line for line in observed.log if line[3] != told]
    assert observed.differs_from(before) == set()
    assert lines.count(told) == 2, "once a run"


@pytest.mark.parametrize("key, plain", ON)
def test_on_it_changes_what_it_is_for(key, plain):
    scene = scene_of(key, plain)
    assert observe({key: KEYS[key].on}, scene).differs_from(absent(key, plain)) == scene.changes


def test_every_optional_key_is_here():
    """Those of the installed file, whose other keys are older."""
    with open(os.environ["KOVA_STAGE"] + paths.SETTINGS, encoding="utf-8") as installed:
        assert set(json.load(installed)) <= set(KEYS)


def test_the_runs_that_are_compared_do_issue_and_renew():
    observed = absent("strictencoding", True)
    assert [each[0] for each in observed.output] == [0, 0] and observed.output[1][1] == ""
    targets = [each[1].split("/")[1] for each in observed.requests]
    assert targets.count("finalize") == targets.count("certificate") == 2
    assert observed.files[folder_of("ISSUED0") + "/renew.json"][0] == "0o100400"
    assert INDEX in observed.files and paths.CRON_JOB in observed.files
