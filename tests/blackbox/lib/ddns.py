"""The vendor's dynamic-DNS update service on the loopback, and whoever serves its zone."""

import json
import urllib.request
from dataclasses import dataclass
from urllib.parse import parse_qs, urlsplit

from .http_script import Reply, ScriptedServer

ACCOUNT = {"id": "tolu-7", "auth_key": "k3y"}
SERIAL = "S123456"
HOSTNAME = "box.ddns.example"


@dataclass(frozen=True)
class Update:
    action: str  # "create" or "delete"
    hostname: str
    txt: str
    values: dict  # every query value


class DdnsService(ScriptedServer):
    """Endpoints "create" and "delete". An accepted update goes to every zone: anything with
    set_txt(name, text) and clear_txt(name)."""

    def __init__(self, *zones, port=0):
        self.zones = zones
        super().__init__(port)
        self.endpoint = self.url + "/main.php"  # for the settings key kovaddns

    def device_record(self, **more):
        """The device record of a host that is a customer of this service."""
        return {"router": "none", "ddns_hostname": HOSTNAME, "ddns_name_server": "127.0.0.1",
                "account": ACCOUNT, "serial_number": SERIAL, **more}

    @staticmethod
    def _update(request):
        values = {k: v[0] for k, v in parse_qs(urlsplit(request.target).query,
                                               keep_blank_values=True).items()}
        action = values.get("_", "").partition("letsencrypt/")[2]
        return Update(action, values.get("hostname"), values.get("txt"), values)

    def endpoint_of(self, request):
        return self._update(request).action if request.path == "/main.php" else request.path

    def behave(self, request):
        update = self._update(request)
        if update.action not in ("create", "delete"):
            return Reply(404)
        for zone in self.zones:
            name = "_acme-challenge." + update.hostname
            if update.action == "create":
                zone.set_txt(name, update.txt)
            else:
                zone.clear_txt(name)
        return Reply(200, {"code": "good"})

    @property
    def updates(self):
        return [self._update(request) for request in self.requests]


class ChallTestSrv:
    """The management interface of pebble-challtestsrv, as a zone."""

    def __init__(self, url):
        self._url = url

    def _post(self, path, **values):
        request = urllib.request.Request(self._url + path, json.dumps(values).encode())
        with urllib.request.urlopen(request, timeout=10) as reply:
            assert reply.status == 200

    def set_txt(self, name, text):
        self._post("/set-txt", host=name + ".", value=text)

    def clear_txt(self, name):
        self._post("/clear-txt", host=name + ".")
