"""The vendor's dynamic-DNS service, and the appliance as its customer."""

import os
import re

import ddns_endpoint

from .name_server import HOST_NAME, KEY, VENDOR_SERVER
from .network import INTERNET, inside

PROGRAM = os.path.abspath(ddns_endpoint.__file__)
SERVICE_NAME = "update.ddns-service.example"
URL = f"http://{SERVICE_NAME}:{ddns_endpoint.PORT}/main.php"


class DdnsService:
    def __init__(self, host, network, names, key=KEY, delay=0):
        """`key`: the secret that the service signs its updates with; `delay`: seconds that a
        record takes to show up after the service said that it is good."""
        self._host = host
        self.names = names
        self._process = host.spawn(
            inside("internet", "/usr/bin/python3", "-B", PROGRAM, key, str(delay)),
            ready=lambda: network.fetch("internet",
                                        f"http://{INTERNET}:{ddns_endpoint.PORT}/",
                                        quiet=True) is not None)
        self.customer()
        host.settings(kovaddns=URL)

    def customer(self, **changes):
        """The appliance's device record."""
        self._host.device(**{
            "router": "none", "ddns_hostname": HOST_NAME, "ddns_name_server": VENDOR_SERVER,
            "account": {"id": ddns_endpoint.CUSTOMER["tolu_id"],
                        "auth_key": ddns_endpoint.CUSTOMER["auth_key"]},
            "serial_number": ddns_endpoint.CUSTOMER["serial"], **changes})

    def answers(self):
        """What the service was asked and said, in order: ("create", "good"), ..."""
        return re.findall(r"^endpoint: letsencrypt/(\w+) \S+ (\w+)$",
                          self._host.output(self._process), re.MULTILINE)
