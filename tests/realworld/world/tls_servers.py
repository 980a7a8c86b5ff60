"""The servers that the examples of reload scripts are for, each as Debian packages it: its own
configuration in its own place, and beside that a service that uses a certificate of the archive."""

import os
import re
import socket
import subprocess

from .network import inside

CERTIFICATE = "/usr/kova/etc/certificate"


class TlsServer:
    """`name` is the subscriber's, and that of the reload script; `port` one that begins with TLS."""

    name = ""
    port = 443
    argv = []
    service = "www"
    complaint = "nonsense"  # about a spoilt configuration

    def __init__(self, host):
        self.host = host
        self.folder = f"{CERTIFICATE}/{self.name}/{self.service}"
        self._etc = f"/etc/{self.name}"
        self._keep_etc()

        self._know_own_name()

    @staticmethod
    def _know_own_name():
        """As the installer writes it; servers would ask name servers otherwise."""
        own = f"127.0.1.1 {socket.gethostname()}\n"
        with open("/etc/hosts", "r+", encoding="ascii") as hosts:
            if own not in hosts.readlines():
                hosts.write(own)

    def _keep_etc(self):
        """What happens to Debian's configuration is gone with the test."""
        copy = f"{self.host.workspace}/etc"
        self._tool("cp", "-a", self._etc, copy)
        self.host.mount(self._etc)
        self._tool("cp", "-aT", copy, self._etc)

    def configure(self):
        """The configuration as an administrator would change it."""
        raise NotImplementedError

    def spoil(self):
        """Lets the configuration be one that the server refuses."""
        raise NotImplementedError

    def start(self, ready):
        self.host.spawn(inside("appliance", *self.argv), ready=ready)

    def stop(self):
        """For one that does not end with the process that was started."""

    def _tool(self, *argv):
        subprocess.run(argv, check=True, env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"},
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)


class Nginx(TlsServer):
    name = "nginx"
    argv = ["/usr/sbin/nginx", "-g", "daemon off;"]
    site = "/etc/nginx/sites-enabled/default"

    def configure(self):
        os.unlink(self.site)
        self.host.write(self.site, f"""
server {{
  listen 443 ssl default_server;
  ssl_certificate {self.folder}/fullchain.pem;
  ssl_certificate_key {self.folder}/privkey.pem;
}}
""")

    def spoil(self):
        self.host.write(self.site, "nonsense;\n")


class Apache(TlsServer):
    name = "apache2"
    argv = ["/usr/sbin/apache2ctl", "-D", "FOREGROUND"]
    site = "/etc/apache2/sites-enabled/000-default.conf"

    def configure(self):
        os.makedirs("/run/lock", exist_ok=True)  # as once booted
        self._tool("a2enmod", "-q", "ssl")
        os.unlink(self.site)
        self.host.write("/etc/apache2/ports.conf", "Listen 443\n")
        self.host.write(self.site, f"""
<VirtualHost *:443>
  SSLEngine on
  SSLCertificateFile {self.folder}/fullchain.pem
  SSLCertificateKeyFile {self.folder}/privkey.pem
</VirtualHost>
""")

    def spoil(self):
        self.host.write(self.site, "Nonsense on\n")


class Postfix(TlsServer):
    name = "postfix"
    port = 465
    complaint = "postfix check ended with status 1"  # the rest is in the system log
    argv = ["/usr/sbin/postfix", "start-fg"]
    service = "mail"

    def configure(self):
        self._tool("postconf", f"smtpd_tls_chain_files = {self.folder}/privkey.pem, "
                   f"{self.folder}/fullchain.pem", "smtpd_peername_lookup = no")
        self._tool("postconf", "-M", "smtps/inet=smtps inet n - n - - smtpd")
        self._tool("postconf", "-P", "smtps/inet/smtpd_tls_wrappermode=yes")

    def spoil(self):
        self._tool("postconf", "default_process_limit = nonsense")

    def stop(self):
        self._tool("postconf", "default_process_limit = 100")
        subprocess.run(["/usr/sbin/postfix", "abort"], check=False)


class Dovecot(TlsServer):
    name = "dovecot"
    port = 993
    argv = ["/usr/sbin/dovecot", "-F"]
    service = "mail"
    config = "/etc/dovecot/conf.d/10-ssl.conf"

    def configure(self):
        self.host.write(self.config, f"ssl = required\nssl_cert = <{self.folder}/fullchain.pem\n"
                        f"ssl_key = <{self.folder}/privkey.pem\n")

    def spoil(self):
        self.host.write(self.config, "nonsense = yes\n")


class Haproxy(TlsServer):
    name = "haproxy"
    argv = ["/usr/sbin/haproxy", "-W", "-f", "/etc/haproxy/haproxy.cfg", "-p", "/run/haproxy.pid"]
    config = "/etc/haproxy/haproxy.cfg"

    def configure(self):
        os.makedirs("/run/haproxy", exist_ok=True)
        with open(self.config, encoding="utf-8") as debian:
            text = re.sub(r"^\tdaemon$", "", debian.read(), flags=re.MULTILINE)
        self.host.write(self.config, text + """
frontend www
  bind :443 ssl crt /etc/haproxy/certificate/www.pem
  http-request return status 200
""")

    def spoil(self):
        self.host.write(self.config, "nonsense\n")


ALL = [Nginx, Apache, Postfix, Dovecot, Haproxy]
