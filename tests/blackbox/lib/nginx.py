"""A real web server that publishes the http-01 folder."""

import socket

from . import paths

CONFIGURATION = """
daemon off;
pid {workspace}/nginx.pid;
error_log {workspace}/nginx.error;
user www-data;
worker_processes 1;
events {{ worker_connections 64; }}
http {{
  access_log {workspace}/nginx.access;
  client_body_temp_path {workspace}/nginx-body;
  proxy_temp_path {workspace}/nginx-proxy;
  fastcgi_temp_path {workspace}/nginx-fastcgi;
  uwsgi_temp_path {workspace}/nginx-uwsgi;
  scgi_temp_path {workspace}/nginx-scgi;
  server {{
    listen 127.0.0.1:{port};
    location /.well-known/acme-challenge/ {{ root {root}; }}
    location / {{ return 404; }}
  }}
}}
"""


def accepts(port, address="127.0.0.1"):
    """Whether something listens there."""
    with socket.socket() as probe:
        probe.settimeout(1)
        return probe.connect_ex((address, port)) == 0


class Nginx:
    def __init__(self, host, port=80, root=paths.WEBROOT):
        self._host, self.port, self._root = host, port, root

    def start(self):
        configuration = self._host.workspace + "/nginx.conf"
        self._host.write(configuration, CONFIGURATION.format(
            workspace=self._host.workspace, port=self.port, root=self._root))
        return self._host.spawn(["/usr/sbin/nginx", "-c", configuration],
                                ready=lambda: accepts(self.port))
