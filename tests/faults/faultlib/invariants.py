"""What has to hold of a host after a disturbed run, and after the next one that nothing disturbs.
Each function returns a list of texts, one per thing that does not hold."""

import collections
import functools
import glob
import json
import os

from cryptography import x509
from cryptography.hazmat.primitives.serialization import load_pem_private_key
from lib import paths
from lib.renewal import INDEX

from . import state

SET = ["cert.pem", "chain.pem", "fullchain.pem", "privkey.pem"]


def _lines(data):
    return (data or b"").split()


@functools.lru_cache(1000)
def _fits(certificate, key):
    leaf = x509.load_pem_x509_certificate(certificate)
    private = load_pem_private_key(key, None)
    return private.public_key().public_numbers() == leaf.public_key().public_numbers()


def flaw_of_set(folder):
    """What is wrong with the certificate files of a folder, or None: they are one whole set."""
    files = {name: state.content(f"{folder}/{name}") for name in SET}
    missing = [name for name in SET if not files[name] and name != "chain.pem"]
    if missing:
        return f"{folder} lacks {', '.join(missing)}"
    try:
        if not _fits(files["cert.pem"], files["privkey.pem"]):
            return f"{folder}: the key is another certificate's"
    except ValueError as error:
        return f"{folder}: {error}"
    whole = _lines(files["cert.pem"]) + _lines(files["chain.pem"])
    if _lines(files["fullchain.pem"]) not in (whole, _lines(files["cert.pem"])):
        return f"{folder}: fullchain.pem is another certificate's"
    return None


def same_set(folder, other):
    return all(state.content(f"{folder}/{name}") == state.content(f"{other}/{name}")
               for name in SET)


def index(allowed):
    """INFO is one of these objects (None: no file), made-up ids put aside."""
    text = state.content(INDEX)
    found = None if text is None else state.json_of(INDEX)
    if text is not None and found is None:
        return [f"INFO does not parse: {text[:80]!r}"]
    if shape_of_index(found) not in [shape_of_index(each) for each in allowed]:
        return [f"INFO is neither the old nor the new one: {json.dumps(found)[:200]}"]
    return []


def shape_of_index(value):
    if not isinstance(value, dict):
        return value
    return sorted(((state.general(f"/_archive/{identity}"), entry)
                   for identity, entry in value.items()), key=json.dumps)


def accounts():
    """Every account that can be chosen has its key."""
    broken = []
    for info in glob.glob(paths.ACCOUNTS + "/*/info.json"):
        folder = os.path.dirname(info)
        values, key = state.json_of(info), state.json_of(folder + "/private_key.json")
        if not isinstance(values, dict) or not isinstance(key, dict) or "kty" not in key:
            broken.append(f"account without a key: {state.general(folder)}")
    return broken


def known_accounts(ca):
    """Every stored account of that CA is valid there, by a key and a contact that are stored."""
    broken = []
    for path in glob.glob(paths.ACCOUNTS + "/*/info.json"):
        info = state.json_of(path) or {}
        known = ca.accounts.get(info.get("account_url"))
        if info.get("directory") != ca.directory:
            continue
        folder = state.general(os.path.dirname(path))
        if known is None or known.get("status", "valid") != "valid":
            broken.append(f"account that the CA has no more: {folder}")
        elif known["jwk"]["n"] not in _moduli(os.path.dirname(path)):
            broken.append(f"account by another key at the CA: {folder}")
        elif "contact" in known and known["contact"] != ["mailto:" + info["contact"]]:
            broken.append(f"account by another contact at the CA: {folder}")
    return broken


def _moduli(folder):
    return [(state.json_of(f"{folder}/{name}.json") or {}).get("n")
            for name in ("private_key", "next_key")]


def services(folders):
    """Every service has one whole set in its place."""
    return list(filter(None, map(_flaw_of_service, folders)))


def _flaw_of_service(folder):
    flaw = flaw_of_set(folder)
    if flaw is None:
        return None
    if flaw_of_set(folder + ".bak") is None:
        return f"service: {folder} stands whole beside itself, as its backup"
    return f"service: {flaw}"


def archive():
    """Every folder of the archive that holds a certificate holds one whole set."""
    folders = [folder for folder in glob.glob(paths.ARCHIVE + "/*")
               if os.path.exists(folder + "/cert.pem")]
    return [f"archive: {flaw}" for flaw in map(flaw_of_set, folders) if flaw]


class Tidiness:
    """What may be there after a run: the paths that undisturbed runs leave. A folder with a name
    that is made up has to hold the same names as after one of those runs."""

    def __init__(self):
        self._paths = set()
        self._folders = {}
        self._most = collections.Counter()  # made-up names, at most at a time

    def learn(self):
        """What is there now is as it should be."""
        for path in state.paths():
            self._paths.add(state.general(path))
        self._most |= _count(_made_up_folders())
        for folder in _made_up_folders():
            self._folders.setdefault(state.general(folder), []).append(sorted(os.listdir(folder)))

    def __or__(self, other):
        """What is fine after either."""
        both = Tidiness()
        for each in (self, other):
            both._paths |= each._paths
            both._most |= each._most
            for folder, listings in each._folders.items():
                both._folders.setdefault(folder, []).extend(listings)
        return both

    def check(self, counted=True):
        left = [path for path in state.paths() if state.general(path) not in self._paths]
        broken = [f"left behind: {path}" for path in left]
        for folder in _made_up_folders():
            known = self._folders.get(state.general(folder))
            if known is not None and sorted(os.listdir(folder)) not in known:
                broken.append(f"half a folder: {folder}: {', '.join(sorted(os.listdir(folder)))}")
        more = _count(_made_up_folders()) - self._most if counted else {}
        return broken + [f"{number} too many: {folder}" for folder, number in more.items()]


def _count(paths_found):
    return collections.Counter(map(state.general, paths_found))


def _made_up_folders():
    return [path for path in state.paths()
            if state.general(path).endswith("/ID") and os.path.isdir(path)]
