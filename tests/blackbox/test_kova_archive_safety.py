"""kova-archive among others: crowds, locks, kills, planted files, full disks."""

import contextlib
import fcntl
import json
import os
import random
import signal
import subprocess
import time

import pytest

from lib import expect, memcheck, paths
from lib.archive_cli import INDEX, LOCK, PROGRAM, ArchiveCli, done, failed
from lib.renewal import deployed, folder_of, service, service_folder

ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8"}
NO_WAITS = {"LD_PRELOAD": os.environ["KOVA_TEST_PRELOAD"], "KOVA_SLEEP_LOG": "/dev/null",
            "ASAN_OPTIONS": "verify_asan_link_order=0"}


@pytest.fixture
def cli(host):
    return ArchiveCli(host)


def start(*args, **environment):
    return subprocess.Popen(memcheck.command([PROGRAM, *args]),
                            env=memcheck.environment({**ENVIRONMENT, **environment}),
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, start_new_session=True)


def binding(identity, name, subscriber="nginx"):
    return ("bind", identity, "--subscriber", subscriber, "--service", name, "--display-name", name,
            "--owner", "root")


def ended_well(processes):
    for process in processes:
        out, err = process.communicate(timeout=120)
        assert (process.returncode, err) == (0, b""), out


def test_eight_processes_binding_at_once_lose_nothing(cli):
    folder = cli.certificate("abc")
    ended_well([start(*binding("abc", f"s{n}")) for n in range(8)])
    assert sorted(cli.services("abc")) == [f"nginx/s{n}" for n in range(8)]
    for n in range(8):
        deployed(folder, service_folder("nginx", f"s{n}"))


def test_eight_processes_binding_the_same_service_list_it_once(cli):
    folder = cli.certificate("abc")
    ended_well([start(*binding("abc", "web")) for _ in range(8)])
    assert cli.services("abc") == ["nginx/web"]
    deployed(folder)


def test_processes_moving_one_service_at_once_leave_it_with_one_certificate(cli):
    for n in range(6):
        cli.certificate(f"c{n}", *([service("nginx", "web")] if n == 0 else []))
    ended_well([start(*binding(f"c{n}", "web")) for n in range(6)])
    [holder] = [f"c{n}" for n in range(6) if cli.services(f"c{n}")]
    assert cli.services(holder) == ["nginx/web"]
    deployed(folder_of(holder))


DEPLOY_LOCK = "/run/kova-certificate-deploy.lock"


def test_a_service_that_others_are_moving_is_waited_for(cli):
    cli.certificate("old", service())
    cli.certificate("abc")
    with open(DEPLOY_LOCK, "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        process = start(*binding("abc", "web"))
        time.sleep(0.5)
        assert process.poll() is None and cli.services("abc") == []
    ended_well([process])
    assert cli.services("abc") == ["nginx/web"]


def test_without_its_lock_no_service_is_moved(cli):
    cli.certificate("abc", service())
    cli.certificate("std")
    cli.default("std")
    before = cli.index()
    with contextlib.suppress(FileNotFoundError):
        os.unlink(DEPLOY_LOCK)
    os.mkdir(DEPLOY_LOCK)
    try:
        failed(cli.run(*binding("std", "web")), "bind: nginx/web could not be served with [std]: "
                                                f"cannot lock [{DEPLOY_LOCK}]: Invalid argument")
        result = cli.unbind("abc")
        failed(result, "unbind: nginx/web could not be taken from [abc]: "
                       f"cannot lock [{DEPLOY_LOCK}]: Invalid argument")
        assert "utils.cpp:# Failed to set cert [std] for [nginx][web]." in result.errors
    finally:
        os.rmdir(DEPLOY_LOCK)
    assert cli.index() == before


def test_a_reload_script_may_call_the_program_itself(cli):
    cli.certificate("abc")
    folder = cli.certificate("other")
    inner = " ".join(binding("other", "inner", "mail"))
    cli.reloads.script(then=f"{PROGRAM} {inner}")
    began = time.monotonic()
    done(cli.bind("abc"), "nginx/web uses abc now.\n")
    assert time.monotonic() - began < 20
    assert cli.services("other") == ["mail/inner"]
    deployed(folder, service_folder("mail", "inner"))


def test_while_a_reload_script_runs_others_can_bind(cli):
    cli.certificate("abc")
    go_on = cli.host.workspace + "/go-on"
    cli.reloads.script(then=f"while [ ! -e {go_on} ]; do sleep 0.05; done")
    first = start(*binding("abc", "slow"))
    while not cli.reloads.lines:
        time.sleep(0.02)
    done(cli.run(*binding("abc", "quick", "mail")))
    assert first.poll() is None
    cli.host.write(go_on, "")
    ended_well([first])
    assert sorted(cli.services("abc")) == ["mail/quick", "nginx/slow"]


@pytest.mark.parametrize("there, new", [("web", "web.bak"), ("web", "web.temp"),
                                        ("web.bak", "web"), ("web.temp", "web")])
def test_services_whose_folders_would_destroy_each_other_are_refused(cli, there, new):
    folder = cli.certificate("abc", service("nginx", there))
    cli.certificate("new")
    done(cli.run("deploy", "abc"))
    before = expect.tree("/usr/kova/etc/certificate")
    failed(cli.bind("new", service=new), f"bind: the service [{new}] cannot stand beside [{there}]: "
                                         "their folders would destroy each other")
    assert expect.tree("/usr/kova/etc/certificate") == before
    deployed(folder, service_folder("nginx", there))
    done(cli.bind("new", subscriber="mail", service=new))  # another subscriber's are elsewhere


def test_the_folder_of_a_service_of_such_a_name_is_not_adopted(cli):
    cli.certificate("abc", service("nginx", "web.bak"))
    folder = cli.certificate("new", service("nginx", "web", owner="no-such-user"))
    done(cli.run("deploy", "abc"))
    before = expect.tree(service_folder("nginx", "web.bak"))
    assert cli.run("deploy", "new").status == 1
    assert expect.tree(service_folder("nginx", "web.bak")) == before and folder


BAD_NAMES = [b"a\nb", b"a\x1b[2J", b"\xff", b"a\xc3", b"\x7f"]


@pytest.mark.parametrize("name", BAD_NAMES)
def test_names_that_cannot_be_written_down_are_refused(cli, name):
    cli.certificate("abc", service())
    os.mkdir(os.path.join(paths.ARCHIVE.encode(), name))
    before = expect.tree("/usr/kova/etc/certificate/nginx") if os.path.isdir(service_folder()) else None
    index = expect.read(INDEX)
    for words in (["add", name], ["remove", name], ["default", name], ["deploy", name],
                  [*binding("abc", name)], [*binding("abc", "x", name)], [*binding(name, "x")]):
        run = subprocess.run(memcheck.command([PROGRAM, *words]), env=memcheck.environment(ENVIRONMENT),
                             capture_output=True, check=False)
        assert run.returncode == 1 and run.stdout == b""
        assert run.stderr.endswith(b"] holds a control character or bytes that are no UTF-8\n")
        assert run.stderr.count(b"\n") == 1
    assert expect.read(INDEX) == index and before is None


@pytest.mark.parametrize("index", [b'{"abc": {"services": []}, "\xff": {}}',
                                   b'{"abc": {"services": [], "serial": 99999999999999999999999}}'])
def test_an_index_that_a_rewrite_would_not_keep_stays(cli, index):
    cli.certificate("abc")
    with open(INDEX, "wb") as file:
        file.write(index)
    result = cli.bind("abc")
    failed(result, f"bind: cannot change [{INDEX}]: it would hold what JSON does not keep (bytes "
                   "that are no UTF-8, or numbers that are too large)")
    with open(INDEX, "rb") as file:
        assert file.read() == index
    assert not os.path.exists(service_folder())


def test_a_default_that_cannot_be_read_is_not_taken_for_none(cli):
    cli.certificate("abc", service())
    cli.certificate("std")
    os.symlink("DEFAULT", paths.ARCHIVE + "/DEFAULT")  # leads to itself
    before = expect.read(INDEX)
    why = f"cannot read {paths.ARCHIVE}/DEFAULT: Too many levels of symbolic links"
    failed(cli.unbind("abc"), f"unbind: {why}")
    failed(cli.run("remove", "std"),
           f"remove: cannot tell whether it is the default certificate: {why}")
    failed(cli.run("default"), f"default: {why}")
    assert expect.read(INDEX) == before and os.path.isdir(folder_of("std"))


def test_unbind_carries_the_other_members_of_the_service(cli):
    cli.certificate("abc", service(colour=7, display_name_i18n="web:site"))
    cli.certificate("std")
    cli.default("std")
    done(cli.unbind("abc"))
    assert cli.index()["std"]["services"] == [service(colour=7, display_name_i18n="web:site")]


def test_remove_holds_the_index_until_the_folder_is_gone(cli):
    cli.certificate("abc")
    seen = cli.host.workspace + "/seen"
    os.rename("/usr/bin/rm", "/usr/bin/rm.real")
    try:
        cli.host.write("/usr/bin/rm", "#!/bin/sh\nfor lock in " + LOCK + " /run/kova-certificate/abc;"
                       " do flock -n $lock true && echo free || echo held; done >> " + seen +
                       "\nexec /usr/bin/rm.real \"$@\"\n", 0o755)
        done(cli.run("remove", "abc"))
    finally:
        os.rename("/usr/bin/rm.real", "/usr/bin/rm")
    assert expect.read(seen) == "held\nheld\n"


@pytest.mark.parametrize("folder", ["", "/", "/deeper"])
def test_self_signed_waits_for_whoever_changes_the_certificate(cli, folder):
    cli.certificate("abc")
    os.mkdir(folder_of("abc") + "/deeper")
    before = expect.tree(folder_of("abc"))
    os.makedirs("/run/kova-certificate", exist_ok=True)
    with open("/run/kova-certificate/abc", "a", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        process = start("self-signed", folder_of("abc") + folder)
        with pytest.raises(subprocess.TimeoutExpired):
            process.wait(1)
        assert expect.tree(folder_of("abc")) == before
    ended_well([process])
    assert os.path.exists(f"{folder_of('abc')}{folder}/is_default_cert")


def test_self_signed_finishes_a_move_that_was_cut_short_first(cli):
    """Whose files would take the places of the new set's otherwise."""
    cli.certificate("abc")
    fresh = cli.folder("fresh1")
    note = folder_of("abc") + "/noted_move"
    cli.host.write(note, json.dumps({}), 0o600)
    done(cli.run("self-signed", folder_of("abc")))
    assert not os.path.exists(note) and os.path.isdir(fresh)


def cut_short(cli, identity="abc"):
    """A removal that was killed when the index had been rewritten, as it leaves the disk."""
    folder = cli.folder(identity)
    history = f"/usr/kova/etc/letsencrypt/renewal/{identity}.json"
    cli.host.write(history, "{}", 0o600)
    note = f"{paths.ARCHIVE}/.{identity}.removed"
    cli.host.write(note, "", 0o600)
    return [folder, history, note]


def test_remove_finishes_a_removal_that_was_cut_short(cli):
    cli.certificate("other")
    left = cut_short(cli)
    done(cli.run("remove", "abc"), "abc is removed.\n")
    assert list(filter(os.path.exists, left)) == []
    failed(cli.run("remove", "abc"), "remove: certificate [abc] is not in the index")


@pytest.mark.parametrize("command", [["check"], ["add", "next"]])
def test_removal_that_was_cut_short_is_finished_by(cli, command):
    cli.certificate("other")
    cli.folder("next")
    left = cut_short(cli)
    done(cli.run(*command))
    assert list(filter(os.path.exists, left)) == []
    assert os.path.isdir(folder_of("other")) and os.path.isdir(folder_of("next"))


def test_renewals_finish_a_removal_that_was_cut_short(cli):
    cli.certificate("other", days=80)
    left = cut_short(cli)
    assert cli.host.run("renew-all").status == 0
    assert list(filter(os.path.exists, left)) == []


@pytest.mark.parametrize("index", [{"abc": {"services": []}}, "no JSON", None])
def test_noted_removal_deletes_nothing_that_may_be_in_the_index(cli, index):
    cli.write_index({})
    folder, history, note = cut_short(cli)
    if index is None:
        os.unlink(INDEX)
    else:
        cli.write_index(index)
    before = expect.tree(folder)
    cli.run("check")
    cli.host.run("renew-all")
    assert expect.tree(folder) == before and os.path.exists(history)
    assert os.path.exists(note) == (not isinstance(index, dict))


def test_refused_removal_leaves_no_note(cli):
    cli.certificate("abc", service())
    assert cli.run("remove", "abc").status == 1
    assert sorted(os.listdir(paths.ARCHIVE)) == ["INFO", "abc"]


def test_removal_on_a_full_disk_leaves_no_note(cli):
    cli.host.mount(paths.ARCHIVE, mode=0o700, size=16 * 4096)
    cli.certificate("abc", days=80)
    free = os.statvfs(paths.ARCHIVE).f_bavail
    cli.host.write(paths.ARCHIVE + "/full", b"x" * free * 4096)
    before = expect.tree(paths.ARCHIVE)
    assert cli.run("remove", "abc").status == 1
    assert expect.tree(paths.ARCHIVE) == before


def test_processes_of_all_kinds_at_once(cli):
    for identity in ("old", "new", "bye"):
        cli.certificate(identity)
    cli.folder("add")
    index = cli.index()
    index["old"]["services"] = [service("nginx", f"m{n}") for n in range(4)]
    index["kept"] = {"by": "others"}
    cli.write_index(index)
    ended_well([start(*binding("new", f"m{n}")) for n in range(4)]
               + [start(*binding("new", f"n{n}")) for n in range(2)]
               + [start("add", "add"), start("remove", "bye"), start("default", "new")])
    assert cli.services("old") == []
    assert sorted(cli.services("new")) == sorted(
        [f"nginx/m{n}" for n in range(4)] + [f"nginx/n{n}" for n in range(2)])
    assert set(cli.index()) == {"old", "new", "add", "kept"}
    assert cli.index()["kept"] == {"by": "others"}
    assert not os.path.exists(folder_of("bye"))
    assert cli.run("default").stdout == "new\n"


def test_a_lock_that_others_hold_too_long_is_a_failure(cli):
    cli.certificate("abc")
    cli.folder("new")
    before = expect.tree(paths.ARCHIVE)
    with open(LOCK, "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        # All at once: each waits its ten seconds.
        began = time.monotonic()
        runs = {args: start(*args) for args in [binding("abc", "web"), ("add", "new"),
                                                ("remove", "abc"), ("default", "abc")]}
        for args, process in runs.items():
            _, err = process.communicate(timeout=60)
            assert process.returncode == 1
            assert err.decode() == \
                f"kova-archive: {args[0]}: cannot lock [{LOCK}]: Connection timed out\n"
        assert 9.5 < time.monotonic() - began < 20
        # What does not change the index does not wait for it.
        done(cli.run("list"))
        done(cli.run("check"))
    assert expect.tree(paths.ARCHIVE) == before
    assert not os.path.exists(service_folder())


def test_a_lock_that_is_released_in_time_is_waited_for(cli):
    cli.certificate("abc")
    with open(LOCK, "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        process = start(*binding("abc", "web"))
        time.sleep(1)
        assert process.poll() is None
    ended_well([process])


def test_a_planted_lock_file_is_neither_followed_nor_emptied(cli):
    cli.folder("abc")
    cli.host.write("/tmp/victim", "precious", 0o644)
    os.symlink("/tmp/victim", LOCK)
    failed(cli.run("add", "abc"),
           f"add: cannot lock [{LOCK}]: Too many levels of symbolic links")
    assert expect.read("/tmp/victim") == "precious" and not os.path.exists(INDEX)
    os.unlink(LOCK)
    os.symlink("/tmp/created-by-root", LOCK)
    failed(cli.run("add", "abc"),
           f"add: cannot lock [{LOCK}]: Too many levels of symbolic links")
    assert not os.path.lexists("/tmp/created-by-root")


def test_a_lock_file_of_another_user_serves(cli):
    cli.folder("abc")
    cli.host.write(LOCK, "theirs", 0o644)
    os.chown(LOCK, 65534, 65534)
    done(cli.run("add", "abc"))
    assert expect.read(LOCK) == "theirs" and os.stat(LOCK).st_uid == 65534


def fill(folder):
    """Leaves no room on the disk that the folder is on."""
    with open(folder + "/filler", "wb", buffering=0) as filler:
        try:
            while filler.write(b"x" * 4096):
                pass
        except OSError:
            pass


def whole(folder, *candidates):
    """The candidate folder whose whole set `folder` holds, or None."""
    if not os.path.isdir(folder):
        return None
    held = {name: expect.read(f"{folder}/{name}") for name in os.listdir(folder)}
    for candidate in candidates:
        if held == {name: expect.read(f"{candidate}/{name}") for name in os.listdir(candidate)}:
            return candidate
    return None


def reap_orphans(session):
    """Waits until nothing of a killed run is left."""
    for _ in range(200):
        try:
            os.killpg(session, 0)
        except ProcessLookupError:
            return
        time.sleep(0.01)


def test_after_a_kill_index_and_services_are_old_or_new(cli):
    random.seed(7)
    folders = [cli.certificate(identity) for identity in ("one", "two")]
    began = time.monotonic()
    done(cli.run(*binding("one", "web")))
    whole_run = time.monotonic() - began
    before = cli.index()
    where, moved = "one", 0
    for _ in range(40):
        other = "two" if where == "one" else "one"
        process = start(*binding(other, "web"), **NO_WAITS)
        time.sleep(random.uniform(0, whole_run * 1.5))
        process.send_signal(signal.SIGKILL)
        process.communicate()
        reap_orphans(process.pid)
        index = json.loads(expect.read(INDEX))  # whole, or this raises
        assert set(index) == set(before)
        listing = [identity for identity in ("one", "two") if index[identity]["services"]]
        assert listing in (["one"], ["two"])
        in_place = whole(service_folder(), *folders)
        assert in_place or whole(service_folder() + ".bak", *folders)
        if listing == [other]:
            where, moved = other, moved + 1
    assert 0 < moved < 40
    done(cli.run(*binding("one", "web")))
    deployed(folders[0])
    assert os.listdir(os.path.dirname(service_folder())) == ["web"]
    assert sorted(os.listdir(paths.ARCHIVE)) == ["INFO", "one", "two"]


def test_a_full_disk_leaves_the_old_index(cli):
    cli.host.mount(paths.ARCHIVE, mode=0o700, size=128 * 1024)
    cli.certificate("abc")
    before = expect.read(INDEX)
    fill(paths.ARCHIVE)
    result = cli.run(*binding("abc", "web"))
    assert result.status == 1
    assert result.stderr == (f"kova-archive: bind: Failed to write {INDEX}.temp: "
                             "No space left on device\n")
    assert expect.read(INDEX) == before
    assert not os.path.exists(INDEX + ".temp")
    os.unlink(paths.ARCHIVE + "/filler")
    done(cli.run(*binding("abc", "web")))


def test_a_service_folder_that_cannot_be_replaced_is_a_failure(cli):
    cli.certificate("old", service())
    cli.certificate("new")
    cli.host.mount(service_folder())  # can be neither removed nor renamed
    result = cli.run(*binding("new", "web"))
    assert result.status == 1
    assert result.stderr == ("kova-archive: bind: nginx/web could not be served with [new]: "
                             f"Failed to remove {service_folder()} (/bin/rm: cannot remove "
                             f"'{service_folder()}': Device or resource busy)\n")
    assert cli.services("old") == ["nginx/web"] and cli.services("new") == []


def test_a_full_disk_while_files_are_copied(cli):
    cli.host.mount("/usr/kova/etc/certificate/nginx", size=64 * 1024)
    old = cli.certificate("old", service())
    cli.certificate("new")
    done(cli.run("deploy", "old"))
    fill("/usr/kova/etc/certificate/nginx")
    result = cli.run(*binding("new", "web"))
    assert result.status == 1
    assert result.stderr.startswith("kova-archive: bind: nginx/web could not be served with [new]: "
                                    "Failed to ")
    deployed(old)
    assert cli.services("old") == ["nginx/web"] and cli.services("new") == []
    assert sorted(os.listdir("/usr/kova/etc/certificate/nginx")) == ["filler", "web"]


def test_leftovers_of_a_killed_run_are_cleared(cli):
    folder = cli.certificate("abc", service())
    for suffix in (".temp", ".bak"):
        cli.host.write(service_folder() + suffix + "/cert.pem", "half")
    cli.host.write(INDEX + ".temp", '{"half')
    result = cli.bind("abc")
    done(result)
    deployed(folder)
    assert os.listdir(os.path.dirname(service_folder())) == ["web"]
    assert not os.path.exists(INDEX + ".temp")


def test_a_private_key_is_at_no_time_open_to_others(cli):
    folder = cli.certificate("abc", service())
    os.chmod(folder + "/privkey.pem", 0o644)
    seen = cli.host.workspace + "/seen"
    os.rename("/usr/bin/cp", "/usr/bin/cp.real")
    try:
        cli.host.write("/usr/bin/cp", "#!/bin/sh\n/usr/bin/cp.real \"$@\"; s=$?\n"
                       f"[ \"$1\" = -f ] && stat -c '%a %U' \"$3\" >> {seen}\nexit $s\n", 0o755)
        done(cli.run("deploy", "abc", umask=0))
    finally:
        os.rename("/usr/bin/cp.real", "/usr/bin/cp")
    modes = set(expect.read(seen).splitlines())
    assert modes <= {"400 root", "600 root"} and modes
