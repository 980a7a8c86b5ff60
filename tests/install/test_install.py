"""`cmake --install` and the target "uninstall", in a folder of their own and on the machine."""

import glob
import os
import re
import subprocess

from lib import paths

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
PROGRAMS = ("kova-archive", "kova-letsencrypt")
INFO = paths.ARCHIVE + "/INFO"
PARKED_JOB = "/usr/kova/etc/renewal-job.parked"
JOB = f"# nightly, says the boss\n7 3 * * * root {paths.PROGRAM} renew-all\n"
TIMER = "kova-letsencrypt.timer"
UNITS = "/lib/systemd/system"
DOCUMENTS = "/usr/kova/share/doc/kova-letsencrypt"


def use(stage):
    """Leaves on the host what a year of use does. Returns the names of those files."""
    files = {INFO: '{"first1": {"services": []}}', paths.ARCHIVE + "/first1/cert.pem": "cert",
             paths.ARCHIVE + "/first1/privkey.pem": "key", paths.ACCOUNTS + "/aB3xYz/info.json": "{}",
             "/usr/kova/etc/certificate/nginx/web/cert.pem": "copy",
             paths.DEVICE_RECORD: '{"router": "none"}', paths.HOOKS + "/notify": "#!/bin/sh\n",
             paths.SETTINGS: '{"orderattempts": 2}\n',
             "/usr/libexec/certificate.d/nginx": "#!/bin/sh\n"}
    for name, text in files.items():
        stage.write(name, text)
    return files


# -- installing -----------------------------------------------------------------------------------

def test_both_programs_are_in_everybodys_path(stage):
    stage.install()
    for program in PROGRAMS:
        link = f"/usr/sbin/{program}"
        assert os.readlink(stage.path(link)) == f"../kova/sbin/{program}"
        assert os.path.samefile(stage.path(link), stage.path(f"/usr/kova/sbin/{program}"))


def test_the_index_is_empty_and_nobody_elses(stage):
    said = stage.install()
    assert f"-- Made: {stage.path(INFO)}\n" in said
    assert stage.read(INFO) == "{}\n"
    assert (stage.mode(INFO), stage.mode(paths.ARCHIVE)) == (0o600, 0o700)
    assert os.listdir(stage.path(paths.ARCHIVE)) == ["INFO"]


def test_an_index_that_is_there_is_left_as_it_is(stage):
    stage.write(INFO, "not even JSON", 0o640)
    assert "Made:" not in stage.install()
    assert (stage.read(INFO), stage.mode(INFO)) == ("not even JSON", 0o640)


def test_a_planted_link_in_place_of_the_index_is_not_followed(stage):
    os.makedirs(stage.path(paths.ARCHIVE))
    os.symlink("/run/planted", stage.path(INFO))
    stage.install()
    assert os.readlink(stage.path(INFO)) == "/run/planted"
    assert not os.path.lexists("/run/planted")


def test_what_there_is_to_read_comes_along(stage):
    stage.install()
    for name in ("README.md", "docs/formats.md", "docs/reliability.md"):
        with open(f"{PROJECT}/{name}", encoding="utf-8") as source:
            assert stage.read(f"{DOCUMENTS}/{name}") == source.read()
    examples = {name[len(PROJECT + "/packaging"):]
                for name in glob.glob(PROJECT + "/packaging/examples/**", recursive=True)
                if os.path.isfile(name)}
    found = {name[len(DOCUMENTS):]: mode for name, mode in stage.files().items()
             if name.startswith(DOCUMENTS + "/examples/")}
    assert examples and found == dict.fromkeys(examples, "-rwxr-xr-x")


def test_a_second_installation_keeps_edited_settings(stage):
    stage.install()
    stage.write(paths.SETTINGS, '{"orderattempts": 2}\n')
    assert f"-- Kept: {stage.path(paths.SETTINGS)}\n" in stage.install()
    assert stage.read(paths.SETTINGS) == '{"orderattempts": 2}\n'


# -- the timer ------------------------------------------------------------------------------------

def test_the_timer_comes_along_and_nothing_enables_it(stage):
    stage.install()
    assert {name for name in stage.files() if "systemd" in name} == {
        f"{UNITS}/{TIMER}", f"{UNITS}/kova-letsencrypt.service"}
    assert stage.mode(f"{UNITS}/{TIMER}") == stage.mode(f"{UNITS}/kova-letsencrypt.service") == 0o644


def test_it_can_be_enabled(stage):
    stage.install()
    subprocess.run(["systemctl", "--root", stage.root, "enable", TIMER], check=True,
                   stderr=subprocess.DEVNULL)
    assert os.readlink(stage.path(f"/etc/systemd/system/timers.target.wants/{TIMER}")) \
        == f"{UNITS}/{TIMER}"


def test_systemd_has_nothing_to_complain_about_its_units(machine):
    machine.install()
    done = subprocess.run(["systemd-analyze", "verify", f"{UNITS}/{TIMER}",
                           f"{UNITS}/kova-letsencrypt.service"], text=True, check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    assert (done.returncode, done.stdout) == (0, "")


def test_it_runs_what_the_cron_job_runs(machine):
    machine.install()
    machine.write(INFO, '{"first1": {"services": []}}')
    machine.write(paths.ARCHIVE + "/first1/renew.json", "{}")
    subprocess.run(["kova-letsencrypt", "add-cronjob"], check=True)
    job = machine.read(paths.CRON_JOB).splitlines()[1].split(" root ")[1]
    os.unlink(paths.CRON_JOB)
    assert f"\nExecStart={job}\n" in machine.read(f"{UNITS}/kova-letsencrypt.service")


def test_it_is_stopped_when_its_program_goes(machine):
    machine.install()
    asked = "/run/asked"
    os.rename("/usr/bin/systemctl", "/usr/bin/systemctl.away")
    machine.write("/usr/bin/systemctl", f'#!/bin/sh\necho "$@" >> {asked}\n', 0o755)
    os.makedirs("/run/systemd/system")
    try:
        machine.uninstall()
        assert machine.read(asked).splitlines() == [f"stop {TIMER}", "--system daemon-reload"]
    finally:
        os.rmdir("/run/systemd/system")
        os.rename("/usr/bin/systemctl.away", "/usr/bin/systemctl")


# -- taking it away -------------------------------------------------------------------------------

def test_an_unused_installation_leaves_settings_and_the_empty_archive(stage):
    stage.install()
    said = stage.uninstall()
    assert set(stage.files()) == {INFO, paths.SETTINGS}
    # Below the prefix no folder is left that holds nothing; the others are the system's.
    ours = {folder for folder in stage.folders() if folder.startswith("/usr/kova/")}
    assert ours == {"/usr/kova/etc", "/usr/kova/etc/certificate", paths.ARCHIVE,
                    "/usr/kova/etc.defaults", "/usr/kova/etc.defaults/letsencrypt"}
    assert f"-- Removed: {stage.path('/usr/sbin/kova-archive')}\n" in said
    assert f"-- Left: {stage.path('/usr/kova/etc')} (certificates, keys, accounts)" in said


def test_archive_accounts_settings_and_hooks_stay(stage):
    stage.install()
    files = use(stage)
    stage.uninstall()
    assert set(stage.files()) == set(files)
    assert {name: stage.read(name) for name in files} == files


def test_settings_that_nobody_edited_stay_as_well(stage):
    stage.install()
    before = stage.read(paths.SETTINGS)
    stage.uninstall()
    assert stage.read(paths.SETTINGS) == before


def test_no_job_runs_a_program_that_is_gone(stage):
    stage.install()
    stage.write(paths.CRON_JOB, JOB)
    said = stage.uninstall()
    assert not os.path.lexists(stage.path(paths.CRON_JOB))
    assert stage.read(PARKED_JOB) == JOB
    assert f"-- Put aside: {stage.path(paths.CRON_JOB)}, as {stage.path(PARKED_JOB)}\n" in said


def test_installing_again_brings_the_edited_job_back(stage):
    stage.install()
    stage.write(paths.CRON_JOB, JOB)
    stage.uninstall()
    said = stage.install()
    assert f"-- Brought back: {stage.path(paths.CRON_JOB)}\n" in said
    assert (stage.read(paths.CRON_JOB), stage.mode(paths.CRON_JOB)) == (JOB, 0o644)
    assert os.listdir(stage.path("/etc/cron.d")) == ["kova-letsencrypt"]
    assert not os.path.lexists(stage.path(PARKED_JOB))


def test_a_job_made_meanwhile_wins_over_the_one_put_aside(stage):
    stage.install()
    stage.write(paths.CRON_JOB, JOB)
    stage.uninstall()
    stage.write(paths.CRON_JOB, "# mine\n")
    stage.install()
    assert stage.read(paths.CRON_JOB) == "# mine\n"
    assert not os.path.lexists(stage.path(PARKED_JOB))


def test_a_job_of_that_name_for_something_else_stays(stage):
    stage.install()
    stage.write(paths.CRON_JOB, "0 0 * * * root /usr/local/bin/other\n")
    stage.uninstall()
    assert stage.read(paths.CRON_JOB) == "0 0 * * * root /usr/local/bin/other\n"


def test_a_second_removal_finds_nothing_more_to_do(stage):
    stage.install()
    stage.uninstall()
    assert re.findall("-- (Removed|Put aside):", stage.uninstall()) == []


def test_what_was_never_installed_cannot_be_taken_away(stage, build):
    manifest = build.folder + "/install_manifest.txt"
    if os.path.exists(manifest):
        os.unlink(manifest)
    said = stage.uninstall(status=1)
    assert f"Nothing was installed from {build.folder}" in " ".join(said.split())


# -- on the machine -------------------------------------------------------------------------------

def test_an_installed_machine_has_a_working_command(machine):
    machine.install()
    done = subprocess.run("kova-archive list && kova-letsencrypt add-cronjob", shell=True, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
                          env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"})
    assert (done.returncode, done.stdout) == (0, "The index holds no certificate.\n")


def test_a_machine_is_left_without_the_commands(machine):
    machine.install()
    machine.uninstall()
    for program in PROGRAMS:
        assert not os.path.lexists(f"/usr/sbin/{program}")
        assert not os.path.lexists(f"/usr/kova/sbin/{program}")
    assert os.path.exists(INFO) and os.path.exists(paths.SETTINGS)
