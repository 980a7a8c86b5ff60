"""nginx on the appliance (or a neighbour): the challenge folder on port 80, a site on 443."""

import os
import subprocess

from lib import paths

from .network import inside

CONFIG = "/etc/nginx/nginx.conf"


class Nginx:
    def __init__(self, host, where="appliance", greeting="the appliance",
                 challenges=paths.WEBROOT):
        self._folder = f"{host.workspace}/nginx-{where}"
        # On the appliance in the place where its tools look for it.
        self._config = f"{self._folder}/nginx.conf" if where != "appliance" else CONFIG
        os.makedirs(self._folder)
        os.makedirs(challenges, exist_ok=True)
        certificate, key = self._placeholder()
        self._configure(host, greeting, challenges, certificate, key)
        self._command = ["nginx", "-p", self._folder, "-c", self._config]
        host.spawn(inside(where, *self._command, "-g", "daemon off;"),
                   ready=lambda: os.path.exists(self._folder + "/nginx.pid"))
        self._rest = (host, greeting, challenges)

    def serve(self, certificate, key):
        """Serves that certificate on port 443 from the next reload on."""
        self._configure(*self._rest, certificate, key)

    def reload(self):
        subprocess.run([*self._command, "-s", "reload"], check=True)

    def _placeholder(self):
        """What a fresh web server has: a certificate that it made for itself."""
        certificate, key = self._folder + "/self.pem", self._folder + "/self.key"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "30",
                        "-subj", "/CN=placeholder", "-out", certificate, "-keyout", key],
                       check=True, stderr=subprocess.DEVNULL)
        return certificate, key

    def _configure(self, host, greeting, challenges, certificate, key):
        host.write(self._config, f"""
user root;
pid {self._folder}/nginx.pid;
error_log {self._folder}/error.log;
events {{ }}
http {{
  access_log {self._folder}/access.log;
  default_type text/plain;
  server {{
    listen 80;
    location / {{ return 200 "{greeting}\\n"; }}
    location /.well-known/acme-challenge/ {{ root {challenges}; }}
  }}
  server {{
    listen 443 ssl;
    ssl_certificate {certificate};
    ssl_certificate_key {key};
    location / {{ return 200 "{greeting}\\n"; }}
  }}
}}
""")
