"""nginx on the appliance (or a neighbour): the challenge folder on port 80, a site on 443."""

import os
import subprocess

from lib import paths

from .network import inside


class Nginx:
    def __init__(self, host, where="appliance", greeting="the appliance",
                 challenges=paths.WEBROOT):
        self._folder = f"{host.workspace}/nginx-{where}"
        os.makedirs(self._folder)
        os.makedirs(challenges, exist_ok=True)
        certificate, key = self._placeholder()
        self._configure(host, greeting, challenges, certificate, key)
        self._command = ["nginx", "-p", self._folder, "-c", self._folder + "/nginx.conf"]
        host.spawn(inside(where, *self._command, "-g", "daemon off;"),
                   ready=lambda: os.path.exists(self._folder + "/nginx.pid"))
        self._rest = (host, greeting, challenges)

    def serve(self, certificate, key):
        """Serves that certificate on port 443 from the next reload on."""
        self._configure(*self._rest, certificate, key)

    @property
    def reload_command(self):
        """For a shell."""
        return f"kill -HUP $(cat {self._folder}/nginx.pid)"

    def reload(self):
        subprocess.run(["/bin/sh", "-c", self.reload_command], check=True)

    def _placeholder(self):
        """What a fresh web server has: a certificate that it made for itself."""
        certificate, key = self._folder + "/self.pem", self._folder + "/self.key"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "30",
                        "-subj", "/CN=placeholder", "-out", certificate, "-keyout", key],
                       check=True, stderr=subprocess.DEVNULL)
        return certificate, key

    def _configure(self, host, greeting, challenges, certificate, key):
        host.write(self._folder + "/nginx.conf", f"""
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
