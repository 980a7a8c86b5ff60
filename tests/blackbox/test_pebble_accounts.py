"""Stored accounts at a real CA: another contact, another key, the end."""

import json
import os

import pytest
from lib import expect, paths
from lib.archive_cli import ArchiveCli, done
from lib.nginx import Nginx
from lib.real_ca import RealCa

NAME = "a.due.example"
REAL_WAITS = {"LD_PRELOAD": ""}


@pytest.fixture(params=[False, True], ids=["lenient", "strict"])
def real_ca(host, request):
    Nginx(host).start()
    return RealCa(host, strict=request.param)


@pytest.fixture
def issued(host, real_ca):
    return expect.issued(host.new_cert(real_ca.directory, [NAME], env=REAL_WAITS), [NAME])


@pytest.fixture
def account(host, issued):
    [folder] = host.accounts()
    return folder


@pytest.fixture
def run(host, account):
    """kova-archive account ACTION, of the one account."""
    return lambda action, *more: ArchiveCli(host).run("account", action, os.path.basename(account), *more,
                                                      env=REAL_WAITS)


def key(account):
    return json.loads(expect.read(account + "/private_key.json"))["n"]


def renew(host, issued):
    before = expect.read(issued + "/cert.pem")
    result = host.run("renew", "-c", os.path.basename(issued), env=REAL_WAITS)
    assert (result.status, result.errors) == (0, [])
    assert expect.read(issued + "/cert.pem") != before


def test_contact_key_and_end(host, real_ca, issued, account, run):
    first = key(account)
    done(run("update", "--mail", "other@host.example"))
    assert json.loads(expect.read(account + "/info.json"))["contact"] == "other@host.example"
    done(run("rollover"))
    second = key(account)
    assert second != first
    renew(host, issued)
    done(run("rollover"))
    assert key(account) not in (first, second)
    renew(host, issued)
    # Found under its new contact: no other one is registered.
    expect.issued(host.new_cert(real_ca.directory, [NAME], mail="other@host.example", env=REAL_WAITS))
    assert host.accounts() == [account]

    result = run("deactivate")
    assert "certificates renew with the account" in result.stderr and host.accounts() == [account]
    assert run("deactivate", "--force").status == 0
    assert host.accounts() == []
    # The next issuance has an account of its own.
    expect.issued(host.new_cert(real_ca.directory, [NAME], env=REAL_WAITS), [NAME])
    assert len(host.accounts()) == 1


def put_back(host, account, name, content):
    host.write(f"{account}/{name}", content, 0o600)


def test_change_that_was_cut_short_after_the_ca_took_the_key(host, real_ca, issued, account, run):
    old = expect.read(account + "/private_key.json")
    done(run("rollover"))
    new = expect.read(account + "/private_key.json")
    # As a run leaves it that was killed before it knew that the CA had taken the key.
    put_back(host, account, "next_key.json", new)
    put_back(host, account, "private_key.json", old)
    renew(host, issued)
    assert expect.read(account + "/private_key.json") == new
    assert sorted(os.listdir(account)) == ["info.json", "private_key.json"]


def test_next_key_that_another_account_has_is_dropped(host, real_ca, issued, account, run):
    donor = expect.issued(host.new_cert(real_ca.directory, [NAME], mail="b@host.example",
                                        env=REAL_WAITS))
    other = json.loads(expect.read(donor + "/renew.json"))["account"]
    old = expect.read(account + "/private_key.json")
    taken = expect.read(other + "/private_key.json")
    put_back(host, account, "next_key.json", taken)
    renew(host, issued)
    result = run("rollover")
    assert result.status == 1 and "already in use by account" in result.stderr
    assert expect.read(account + "/private_key.json") == old
    assert not os.path.exists(account + "/next_key.json"), "another account's key is none of ours"
    renew(host, issued)


def test_contact_that_the_ca_does_not_take(host, real_ca, account, run):
    before = expect.tree(paths.ACCOUNTS)
    result = run("update", "--mail", "no address")
    assert result.status == 1 and "the CA answered 400" in result.stderr
    assert expect.tree(paths.ACCOUNTS) == before


def test_deactivation_that_was_cut_short_is_finished(host, real_ca, account, run):
    kept = expect.tree(account)
    assert run("deactivate", "--force").status == 0
    for path, content in kept.items():
        host.write(path, content, 0o600)
    done(run("deactivate", "--force"),
         f"{os.path.basename(account)} is deactivated and no longer stored.\n"
         f"To be renewed again, these have to be obtained anew: {host.certificates()[0].split('/')[-1]}\n")
    assert host.accounts() == []
