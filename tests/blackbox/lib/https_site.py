"""A real nginx: it publishes the http-01 folder on port 80 and serves https with the certificate
that was deployed to its service folder."""

import os
import socket
import ssl
import subprocess
import time

from cryptography import x509

from . import paths
from .nginx import accepts

FOLDER = "/usr/kova/etc/certificate/nginx/web"
SCRIPT = "/usr/libexec/certificate.d/nginx"

_CONFIGURATION = """
daemon off;
pid {workspace}/nginx.pid;
error_log {workspace}/nginx.error;
worker_processes 1;
events {{ worker_connections 64; }}
http {{
  access_log off;
  client_body_temp_path {workspace}/nginx-body;
  proxy_temp_path {workspace}/nginx-proxy;
  fastcgi_temp_path {workspace}/nginx-fastcgi;
  uwsgi_temp_path {workspace}/nginx-uwsgi;
  scgi_temp_path {workspace}/nginx-scgi;
  server {{
    listen 127.0.0.1:80;
    location /.well-known/acme-challenge/ {{ root {webroot}; }}
    location / {{ return 404; }}
  }}
{https}}}
"""
_HTTPS = """  server {{
    listen 127.0.0.1:443 ssl;
    ssl_certificate {folder}/fullchain.pem;
    ssl_certificate_key {folder}/privkey.pem;
    location / {{ return 200 "the site\\n"; }}
  }}
"""


class HttpsSite:
    """Starts with port 80 alone, since nothing is deployed yet; its reload script is installed."""

    def __init__(self, host):
        self._host = host
        self._configuration = host.workspace + "/nginx.conf"
        self._reloads = host.workspace + "/nginx.reloads"
        self._webroot, self._https = paths.WEBROOT, ""
        self._configure()
        self._master = host.spawn(["/usr/sbin/nginx", "-c", self._configuration],
                                  ready=lambda: accepts(80))
        host.write(SCRIPT, f'#!/bin/sh\nexec 2>> {host.workspace}/nginx.notices\n'
                           f'echo "$@" >> {self._reloads}\n'
                           f'exec /usr/sbin/nginx -s reload -c {self._configuration}\n', 0o755)

    def _configure(self):
        self._host.write(self._configuration, _CONFIGURATION.format(
            workspace=self._host.workspace, webroot=self._webroot, https=self._https))

    def _reload(self):
        self._configure()
        before = self.workers
        subprocess.run(["/usr/sbin/nginx", "-s", "reload", "-c", self._configuration], check=True)
        self.replaced(before)

    def serve_https(self):
        """Takes up https with what is deployed."""
        self._https = _HTTPS.format(folder=FOLDER)
        self._reload()
        _wait_until(lambda: accepts(443), "https is served")

    def publish(self, folder):
        """Publishes that folder instead of the one for http-01."""
        self._webroot = folder
        self._reload()

    @property
    def workers(self):
        """The processes that answer; a reload replaces them."""
        with open(f"/proc/{self._master.pid}/task/{self._master.pid}/children") as children:
            return set(children.read().split())

    def replaced(self, workers):
        """Waits until none of these answers any more, that is, until a reload is through."""
        _wait_until(lambda: self.workers and not self.workers & workers, "nginx has reloaded")

    @property
    def reloads(self):
        """The arguments of each call of the reload script."""
        if not os.path.exists(self._reloads):
            return []
        with open(self._reloads, encoding="ascii") as log:
            return log.read().splitlines()

    def served(self, name, root):
        """The certificate of a connection that a client makes who trusts that root (PEM) alone and
        asks for that name; raises ssl.SSLError when the client would turn away."""
        context = ssl.create_default_context(cadata=root)
        with socket.create_connection(("127.0.0.1", 443), timeout=10) as plain, \
                context.wrap_socket(plain, server_hostname=name) as connection:
            connection.sendall(f"GET / HTTP/1.0\r\nHost: {name}\r\n\r\n".encode())
            assert b"the site" in b"".join(iter(lambda: connection.recv(4096), b""))
            return x509.load_der_x509_certificate(connection.getpeercert(binary_form=True))

    def serves(self, name, root, serial):
        """Waits until nginx, which reloads in its own time, serves that serial number."""
        def is_served():
            try:
                return self.served(name, root).serial_number == serial
            except ssl.SSLError:  # still a certificate of another root
                return False

        _wait_until(is_served, f"serial number {serial:x} is served")


def _wait_until(condition, what, seconds=10):
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, f"not after {seconds} s: {what}"
        time.sleep(0.05)
