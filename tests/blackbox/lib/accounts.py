"""Account folders, written as the program writes them."""

import json

from . import paths


def store_account(host, directory, url, jwk, contact="admin@host.example", name="seeded",
                  version=2):
    """Stores an account under the folder name `name`; returns the folder's path."""
    folder = f"{paths.ACCOUNTS}/{name}"
    info = {"version": version, "directory": directory, "contact": contact, "account_url": url}
    host.write(folder + "/info.json", json.dumps(info), 0o600)
    host.write(folder + "/private_key.json", json.dumps(jwk), 0o600)
    return folder
