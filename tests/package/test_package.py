"""The Debian package on a clean system: installed, upgraded, removed, purged."""

import json
import os
import re
import subprocess

import pytest

ETC = "/usr/kova/etc"
ARCHIVE = ETC + "/certificate/_archive"
INFO = ARCHIVE + "/INFO"
ACCOUNT = ETC + "/letsencrypt/account/aB3xYz"
SETTINGS = "/usr/kova/etc.defaults/letsencrypt/letsencrypt.default"
JOB = "/etc/cron.d/kova-letsencrypt"
PARKED_JOB = ETC + "/renewal-job.parked"
PROGRAM = "/usr/kova/sbin/kova-letsencrypt"
TIMER = "kova-letsencrypt.timer"
UNITS = "/lib/systemd/system"
WANTS = "/etc/systemd/system/timers.target.wants/" + TIMER
PAPERS = "/usr/share/doc/kova-letsencrypt"

EDITED_JOB = f"# nightly, says the boss\n7 3 * * * root {PROGRAM} renew-all\n"
EDITED_SETTINGS = '{"orderattempts": 2, "renew_before_expire_days": 20}\n'


def use(root):
    """Leaves on the host what a year of use does."""
    index = {"first1": {"desc": "www", "services": []}}
    root.write(INFO, json.dumps(index), 0o600)
    for name in ("cert.pem", "chain.pem", "fullchain.pem", "privkey.pem", "renew.json"):
        root.write(f"{ARCHIVE}/first1/{name}", f"this is {name}\n", 0o400)
    root.write(ACCOUNT + "/info.json", "{}\n", 0o600)
    root.write(ACCOUNT + "/private_key.json", "{}\n", 0o600)
    root.write(ETC + "/device.json", '{"router": "none"}\n', 0o600)
    root.write(SETTINGS, EDITED_SETTINGS)
    root.write(JOB, EDITED_JOB)


def kept(root):
    return root.tree(ETC)


# -- what is in it --------------------------------------------------------------------------------

def test_the_package_names_everything_that_it_needs(bare_root, deb):
    refusal = bare_root.install(deb, status=1)
    for name in ("openssl", "ca-certificates", "libcurl4", "libjsoncpp25",
                 "libminiupnpc17"):
        assert f"kova-letsencrypt depends on {name}" in refusal
    assert bare_root.package_state() == "unpacked"


def test_what_it_depends_on_is_all_that_it_needs(root, deb):
    root.install(deb)
    for program in (PROGRAM, "/usr/kova/sbin/kova-archive"):
        assert "not found" not in root.run("ldd", program)
    assert "new-cert" in root.run(PROGRAM, status=1)
    root.write("/etc/machine-id", "0123456789abcdef0123456789abcdef\n")  # as once booted
    root.run("/usr/kova/sbin/kova-archive", "self-signed", "/root/default-set")
    assert "BEGIN CERTIFICATE" in root.read("/etc/ssl/certs/ca-certificates.crt")


def test_a_cron_daemon_is_recommended_and_no_condition(deb):
    field = subprocess.run(["dpkg-deb", "-f", deb, "Recommends"], check=True, text=True,
                           stdout=subprocess.PIPE).stdout
    assert field == "cron | cron-daemon\n"


def test_the_package_holds_the_installed_tree(deb):
    listed = subprocess.run(["dpkg-deb", "-c", deb], check=True, text=True,
                            stdout=subprocess.PIPE).stdout.splitlines()
    packaged = {}
    for line in listed:
        mode, owner, *_, name = line.split(" -> ")[0].split()
        assert owner == "root/root"
        packaged[name[1:].rstrip("/")] = mode
    # Its papers are the package's own, and the index is for postinst to make.
    papers = [name for name in packaged
              if re.match(f"{PAPERS}/(copyright|changelog)|/usr/share/lintian", name) or not name]
    for name in papers:
        del packaged[name]

    staged = set()
    stage = os.environ["KOVA_STAGE"]
    for parent, folders, files in os.walk(stage):
        staged |= {os.path.join(parent, name)[len(stage):] for name in folders + files}
    # What there is to read lies where the distribution has such things.
    staged = {name.replace("/usr/kova/share/doc", "/usr/share/doc") for name in staged}
    staged -= {INFO, "/usr/kova/share"}
    assert set(packaged) == staged
    assert {PAPERS + "/README.md", PAPERS + "/examples/dns-txt-rfc2136"} <= staged
    assert packaged[ARCHIVE] == "drwx------"
    assert packaged["/usr/kova/libexec/platform.d"] == "drwxr-xr-x"
    assert packaged[SETTINGS] == "-rw-r--r--"
    assert packaged[PROGRAM] == packaged["/usr/kova/sbin/kova-archive"] == "-rwxr-xr-x"
    assert packaged[PAPERS + "/examples/dns-txt-rfc2136"] == "-rwxr-xr-x"


def test_lintian_finds_nothing_that_is_not_explained(deb):
    lintian = ["lintian", "--allow-root"]
    done = subprocess.run(lintian + [deb], text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False)
    assert (done.returncode, done.stdout) == (0, "")
    # Nor is anything explained that is not so.
    done = subprocess.run(lintian + ["--tags", "mismatched-override,unused-override", deb],
                          text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    assert (done.returncode, done.stdout) == (0, "")


# -- installing -----------------------------------------------------------------------------------

def test_an_installation_makes_an_empty_archive(root, deb):
    root.install(deb)
    assert root.package_state() == "installed"
    assert root.read(INFO) == "{}\n"
    assert root.mode(INFO) == 0o600
    assert root.mode(ARCHIVE) == 0o700
    assert os.listdir(root.path(ARCHIVE)) == ["INFO"]
    with open(os.environ["KOVA_STAGE"] + SETTINGS, encoding="utf-8") as staged:
        assert root.read(SETTINGS) == staged.read()
    installed = {"asyncfinalize": True, "noncerefill": True, "orderattempts": 3,
                 "strictencoding": True, "checkissued": True, "stagedupdate": True,
                 "quickvalidation": True}
    assert installed.items() <= json.loads(root.read(SETTINGS)).items()
    assert not root.exists(JOB)


def test_both_programs_are_in_everybodys_path(root, deb):
    root.install(deb)
    assert root.run("kova-archive", "list") == "The index holds no certificate.\n"
    assert "new-cert" in root.run("kova-letsencrypt", status=1)
    root.remove()
    assert not root.exists("/usr/sbin/kova-archive")
    assert not root.exists("/usr/sbin/kova-letsencrypt")


def test_an_index_that_is_there_is_left_as_it_is(root, deb):
    root.write(INFO, "not even JSON", 0o640)
    root.install(deb)
    assert root.read(INFO) == "not even JSON"
    assert root.mode(INFO) == 0o640


def test_a_planted_link_in_place_of_the_index_is_not_followed(root, deb):
    os.makedirs(root.path(ARCHIVE))
    os.symlink("/etc/planted", root.path(INFO))
    root.install(deb)
    assert os.readlink(root.path(INFO)) == "/etc/planted"
    assert not root.exists("/etc/planted")


def test_an_archive_that_outlived_a_purge_is_renewed_again(root, deb):
    use(root)
    os.unlink(root.path(JOB))
    os.unlink(root.path(SETTINGS))
    root.install(deb)
    job = root.read(JOB).splitlines()
    assert job[0].startswith("#")
    assert re.fullmatch(rf"\d+ \d+ \* \* \* root {PROGRAM} renew-all", job[1].replace("\t", " "))


# -- upgrading ------------------------------------------------------------------------------------

def test_an_upgrade_keeps_everything_of_the_administrator(root, deb, next_deb):
    root.install(deb)
    use(root)
    before, job = kept(root), root.tree("/etc/cron.d")
    root.install(next_deb)
    assert kept(root) == before
    assert root.tree("/etc/cron.d") == job
    assert root.read(SETTINGS) == EDITED_SETTINGS
    assert root.mode(ARCHIVE) == 0o700


def test_an_upgrade_does_not_bring_back_a_job_that_was_deleted(root, deb, next_deb):
    root.install(deb)
    use(root)
    os.unlink(root.path(JOB))
    root.install(next_deb)
    assert not root.exists(JOB)


def test_an_upgrade_brings_new_settings_where_nobody_edited(root, deb, next_deb_with_new_settings):
    root.install(deb)
    root.install(next_deb_with_new_settings)
    assert root.read(SETTINGS) == '{"orderattempts": 5}\n'


def test_edited_settings_win_over_new_ones(root, deb, next_deb_with_new_settings):
    root.install(deb)
    root.write(SETTINGS, EDITED_SETTINGS)
    root.install(next_deb_with_new_settings, "--force-confdef", "--force-confold")
    assert root.read(SETTINGS) == EDITED_SETTINGS
    assert root.read(SETTINGS + ".dpkg-dist") == '{"orderattempts": 5}\n'


# -- removing -------------------------------------------------------------------------------------

def test_a_removal_leaves_archive_accounts_and_settings(root, deb):
    root.install(deb)
    use(root)
    before = kept(root)
    root.remove()
    assert root.package_state() == "config-files"
    after = kept(root)
    assert after.pop(PARKED_JOB)[2] == EDITED_JOB.encode()
    assert after == before
    assert root.read(SETTINGS) == EDITED_SETTINGS
    assert not root.exists(PROGRAM)
    assert not root.exists("/usr/share/man/man8/kova-letsencrypt.8.gz")


def test_no_job_runs_a_program_that_is_gone(root, deb):
    root.install(deb)
    use(root)
    before = set(root.tree("/etc/cron.d"))
    root.remove()
    assert set(root.tree("/etc/cron.d")) == before - {JOB}


def test_installing_again_brings_the_edited_job_back(root, deb):
    root.install(deb)
    use(root)
    root.remove()
    root.install(deb)
    assert root.read(JOB) == EDITED_JOB
    assert root.mode(JOB) == 0o644
    assert not root.exists(PARKED_JOB)
    assert [name for name in root.tree("/etc/cron.d") if "kova" in name] == [JOB]


def test_a_job_made_meanwhile_wins_over_the_one_put_aside(root, deb):
    root.install(deb)
    use(root)
    root.remove()
    root.write(JOB, "# mine\n")
    root.install(deb)
    assert root.read(JOB) == "# mine\n"
    assert not root.exists(PARKED_JOB)


def test_a_job_of_that_name_for_something_else_stays(root, deb):
    root.install(deb)
    root.write(JOB, "0 0 * * * root /usr/local/bin/other\n")
    root.purge()
    assert root.read(JOB) == "0 0 * * * root /usr/local/bin/other\n"


# -- the timer ------------------------------------------------------------------------------------

@pytest.fixture
def systemd(root):
    """systemd is the init system of the root, as far as the package can see. Returns what it was
    asked for."""
    root.write("/usr/bin/systemctl", '#!/bin/sh\necho "$@" >> /asked\nexit 1\n', 0o755)
    os.makedirs(root.path("/run/systemd/system"))
    os.unlink(root.path("/usr/sbin/policy-rc.d"))  # by which nothing is started or stopped there
    root.write("/asked", "")
    return lambda: root.read("/asked").splitlines()


def enable(root):
    """What `systemctl enable` and the first run leave."""
    root.write("/var/lib/systemd/timers/stamp-" + TIMER, "")
    os.makedirs(root.path(os.path.dirname(WANTS)), exist_ok=True)
    os.symlink(f"{UNITS}/{TIMER}", root.path(WANTS))


def test_the_timer_comes_along_and_nothing_enables_it(root, deb, systemd):
    root.install(deb)
    assert root.exists(f"{UNITS}/{TIMER}")
    assert not root.exists(WANTS)
    assert systemd() == ["--system daemon-reload"]


def test_a_removal_stops_the_timer_before_its_program_goes(root, deb, systemd):
    root.install(deb)
    enable(root)
    root.remove()
    assert systemd()[1:] == [f"stop {TIMER}", "--system daemon-reload"]
    assert not root.exists(f"{UNITS}/{TIMER}")
    assert root.exists(WANTS)  # for the day on which the package comes back


def test_an_upgrade_leaves_the_timer_running(root, deb, next_deb, systemd):
    root.install(deb)
    enable(root)
    root.install(next_deb)
    assert systemd()[1:] == ["--system daemon-reload"]
    assert root.exists(WANTS)


def test_a_purge_leaves_no_trace_of_the_timer(root, deb):
    root.install(deb)
    enable(root)
    root.purge()
    assert not root.exists(WANTS)
    assert not root.exists("/var/lib/systemd/timers/stamp-" + TIMER)


# -- purging --------------------------------------------------------------------------------------

def test_a_purge_keeps_certificates_and_accounts_and_says_so(root, deb):
    root.install(deb)
    use(root)
    before = kept(root)
    said = root.purge()
    assert kept(root) == before
    assert not root.exists(SETTINGS)
    assert not root.exists(JOB) and not root.exists(PARKED_JOB)
    assert f"{ARCHIVE} holds certificates or accounts and was left as it is." in said
    assert "/usr/kova/etc/letsencrypt/account holds" in said
    assert root.package_state() == ""


def test_a_purge_after_a_removal_deletes_the_job_put_aside(root, deb):
    root.install(deb)
    use(root)
    root.remove()
    root.purge()
    assert not root.exists(PARKED_JOB)
    assert not root.exists(JOB)


def test_a_purge_of_an_unused_package_leaves_no_trace(root, deb):
    tops = ("/usr", "/etc", "/var/lib/letsencrypt", "/var/cache", "/var/spool", "/tmp", "/root")
    before = root.tree(*tops)
    root.install(deb)
    assert root.tree(*tops) != before
    root.purge()
    assert root.tree(*tops) == before
