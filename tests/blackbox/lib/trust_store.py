"""Whom this host trusts."""

import os

PATH = "/etc/ssl/certs/ca-certificates.crt"


def trust(root):
    """Adds this root (PEM), and no earlier one of these tests, to those of the distribution."""
    distribution = PATH + ".distribution"
    if not os.path.exists(distribution):
        os.rename(PATH, distribution)
    with open(distribution, "rb") as roots, open(PATH, "wb") as store:
        store.write(roots.read() + root)
