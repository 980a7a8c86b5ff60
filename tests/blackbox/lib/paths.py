"""Absolute paths of the product; the tests use the real ones, inside the sandbox."""

PROGRAM = "/usr/kova/sbin/kova-letsencrypt"
SETTINGS = "/usr/kova/etc.defaults/letsencrypt/letsencrypt.default"
DEVICE_RECORD = "/usr/kova/etc/device.json"
PORT_RECORD = "/usr/kova/etc/portmap.json"
HOOKS = "/usr/kova/libexec/platform.d"
ARCHIVE = "/usr/kova/etc/certificate/_archive"
ACCOUNT_ROOT = "/usr/kova/etc/letsencrypt"
ACCOUNTS = ACCOUNT_ROOT + "/account"
WEBROOT = "/var/lib/letsencrypt"
TOKENS = WEBROOT + "/.well-known/acme-challenge"
CRON_JOB = "/etc/cron.d/kova-letsencrypt"

PRODUCTION_DIRECTORY = "https://acme-v02.api.letsencrypt.org/directory"

# The files of a certificate folder, in the order in which they are written.
CERTIFICATE_FILES = ["cert.pem", "chain.pem", "fullchain.pem", "privkey.pem", "renew.json"]
