"""kova-archive: what each command does, says and leaves."""

import json
import os
import pwd
import re
import stat

import pytest
from cryptography import x509

from lib import expect, paths
from lib.archive_cli import DEFAULT, INDEX, ArchiveCli, done, failed, refused, remove
from lib.renewal import deployed, folder_of, service, service_folder

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
BROKEN = f"Broken [{INDEX}]"
REQUIRED = ["cert.pem", "privkey.pem", "fullchain.pem"]


@pytest.fixture
def cli(host):
    return ArchiveCli(host)


@pytest.fixture
def owner():
    """A real user of the host."""
    line = "webowner:x:4321:4322::/:/usr/sbin/nologin\n"
    with open("/etc/passwd", encoding="utf-8") as users:
        before = users.read()
    with open("/etc/passwd", "w", encoding="utf-8") as users:
        users.write(before + line)
    yield pwd.getpwnam("webowner")
    with open("/etc/passwd", "w", encoding="utf-8") as users:
        users.write(before)


# -- usage ------------------------------------------------------------------------------------------


def test_without_a_command_it_shows_its_usage_as_an_error(cli):
    refused(cli.run(), "missing COMMAND")
    refused(cli.run("frobnicate"), "unknown command frobnicate")


COMMANDS = ["list", "add", "remove", "default", "bind", "unbind", "deploy", "check", "self-signed"]


def test_help_goes_to_standard_output(cli):
    result = cli.run("--help")
    done(result)
    for command in COMMANDS:
        assert f"\n  {command}" in result.stdout
        help_text = cli.run(command, "--help")
        done(help_text)
        assert help_text.stdout.startswith(f"Usage: kova-archive {command}")
        assert "--json" in help_text.stdout


def test_it_tells_its_version(cli):
    with open(PROJECT + "/CMakeLists.txt", encoding="utf-8") as project:
        version = re.search(r"project\(kova-letsencrypt VERSION ([\d.]+)", project.read())[1]
    done(cli.run("--version"), f"kova-archive {version}\n")


@pytest.mark.parametrize("args, message", [
    (["list", "x"], "too many arguments"),
    (["add"], "missing ID"),
    (["add", "a", "b"], "too many arguments"),
    (["add", "a", "--desc"], "missing value of --desc"),
    (["remove"], "missing ID"),
    (["default", "a", "b"], "too many arguments"),
    (["bind", "a", "--service", "s", "--display-name", "d", "--owner", "o"],
     "missing --subscriber S"),
    (["bind", "a", "--subscriber", "s", "--service", "s", "--owner", "o"],
     "missing --display-name D"),
    (["bind", "a", "--subscriber", "s", "--service", "s", "--display-name", "d"],
     "missing --owner U"),
    (["unbind", "a", "--subscriber", "s"], "missing --service N"),
    (["deploy"], "missing ID"),
    (["self-signed"], "missing DIR"),
    (["check", "--frob"], "unknown option --frob"),
    (["list", "-x"], "unknown option -x"),
    (["check", "a", "-xy"], "unknown option -x"),
    (["list", "--json=yes"], "unknown option --json=yes"),
])
def test_wrong_arguments_are_usage_errors(cli, args, message):
    refused(cli.run(*args), message, args[0])


# -- list -------------------------------------------------------------------------------------------


def test_list_shows_one_row_per_certificate(cli):
    cli.certificate("bbb", service(), service("mail", "smtp"), days=60.5,
                    names=["b.host.example", "*.b.host.example"])
    cli.certificate("aaa", days=10.5, organisation="Some CA")
    cli.default("bbb")
    cli.host.write(folder_of("bbb") + "/renew.json", "{}", 0o400)
    cli.host.write(folder_of("aaa") + "/cert_info", '{"is_broken": true}')
    cli.host.write(folder_of("aaa") + "/is_default_cert", "")
    result = cli.run("list")
    done(result)
    head, first, second, rest = result.stdout.split("\n")
    assert head.split() == ["ID", "DEF", "NAMES", "ISSUER", "EXPIRES", "DAYS", "STATE", "SERVICES",
                            "FLAGS"]
    assert rest == ""
    expires = {identity: x509.load_pem_x509_certificate(
        expect.read(folder_of(identity) + "/cert.pem").encode()).not_valid_after.strftime("%Y-%m-%d")
        for identity in ("aaa", "bbb")}
    assert first.split() == ["aaa", "www.host.example", "Some", "CA", expires["aaa"], "10", "due",
                             "broken,", "self-signed"]
    assert second.split() == ["bbb", "*", "b.host.example,", "*.b.host.example", "Let's",
                              "Encrypt", expires["bbb"], "60", "valid", "nginx/web,", "mail/smtp",
                              "acme"]
    # Aligned: every column begins where its title does.
    for title, cell in [("NAMES", "b.host"), ("ISSUER", "Let's"), ("STATE", "valid"),
                        ("SERVICES", "nginx/web"), ("FLAGS", "acme")]:
        assert head.index(title) == second.index(cell)


def test_list_marks_what_has_expired(cli):
    cli.certificate("old", days=-0.02)
    row = cli.run("list").stdout.split("\n")[1].split()
    assert "expired" in row and "-1" in row


def test_list_uses_the_configured_lead_time(cli):
    cli.certificate("abc", days=60)
    cli.host.settings(renew_before_expire_days=90)
    assert " due" in cli.run("list").stdout
    cli.host.settings(renew_before_expire_days=30)
    assert " valid" in cli.run("list").stdout


def test_list_as_json(cli):
    folder = cli.certificate("abc", service(), "odd", {"service": 1}, service("mail", package=True),
                             days=60.5)
    index = cli.index()
    index["abc"]["desc"] = "d"
    cli.write_index(index)
    cli.default("abc")
    result = cli.run("list", "--json")
    done(result)
    leaf = x509.load_pem_x509_certificate(expect.read(folder + "/cert.pem").encode())
    assert result.document == {"error": 0, "certificates": [{
        "id": "abc", "default": True, "desc": "d", "names": ["www.host.example"],
        "issuer": "Let's Encrypt", "state": "valid", "days_left": 60, "flags": [],
        "renewal": None,
        "not_after": leaf.not_valid_after.strftime("%Y-%m-%dT%H:%M:%SZ"),
        "services": [
            {"subscriber": "nginx", "service": "web", "display_name": "nginx web",
             "owner": "root", "package": False, "reload_status": 0},
            {"subscriber": "mail", "service": "web", "display_name": "mail web",
             "owner": "root", "package": True, "reload_status": 0}]}]}


def test_list_shows_damaged_entries_and_touches_nothing(cli):
    cli.certificate("abc")
    remove(folder_of("abc") + "/cert.pem")
    cli.write_index({"abc": {"services": 7}, "gone": {}, "num": 1, "../x": {"services": []}})
    before = expect.tree("/usr/kova")
    result = cli.run("list", "--json")
    done(result)
    assert expect.tree("/usr/kova") == before
    shown = {each["id"]: (each["state"], each["flags"])
             for each in result.document["certificates"]}
    assert shown == {"abc": ("unreadable", ["incomplete"]), "gone": ("unreadable", ["incomplete"]),
                     "num": ("unreadable", ["invalid"]), "../x": ("unreadable", ["invalid"])}
    assert cli.run("list").status == 0


def test_list_of_an_empty_index(cli):
    cli.write_index({})
    done(cli.run("list"), "The index holds no certificate.\n")
    assert cli.run("list", "--json").document == {"error": 0, "certificates": []}


@pytest.mark.parametrize("text, why", [(None, "No such file or directory"), ("{", "Bad message"),
                                       ("[]", "Bad message")])
def test_list_without_a_usable_index_fails(cli, text, why):
    if text is not None:
        cli.write_index(text)
    result = cli.run("list")
    failed(result, f"list: {BROKEN}: {why}")
    assert result.errors[0].startswith(f"utils.cpp:# {BROKEN}.[0x")
    with_json = cli.run("list", "--json")
    assert with_json.document == {"error": 1, "msg": f"{BROKEN}: {why}"}
    assert with_json.status == 1
    assert with_json.stderr == f"kova-archive: list: {BROKEN}: {why}\n"


def test_names_of_a_certificate_cannot_steer_the_terminal(cli):
    cli.certificate("abc", organisation="\x1b[2JEvil\nrow")
    assert "?[2JEvil?row" in cli.run("list").stdout
    assert len(cli.run("list").stdout.splitlines()) == 2


@pytest.mark.parametrize("wide", ["names", "issuer", "services", "id"])
def test_what_is_long_is_whole_and_in_its_own_row_alone(cli, wide):
    cli.certificate("aaa", service(), days=60)
    names = [f"n{n}.{'x' * 50}.example" for n in range(50)]
    services = [service("nginx", f"{'s' * 50}{n}") for n in range(60)] if wide == "services" else []
    identity = "i" * 200 if wide == "id" else "bbb"
    cli.certificate(identity, *services, days=60,
                    **{"names": {"names": names}, "issuer": {"organisation": "o" * 3000}}.get(wide, {}))
    shown = cli.run("list").stdout.splitlines()
    head, first = shown[:2]
    long = next(line for line in shown if line.startswith(identity))
    whole = {"names": ", ".join(names), "issuer": "o" * 3000, "id": identity,
             "services": ", ".join(f"nginx/{each['service']}" for each in services)}[wide]
    assert whole in long
    assert len(head) < 160 and len(first) < 160
    assert head.index("STATE") == first.index("valid")


def test_a_long_description_takes_no_room(cli):
    cli.certificate("aaa", service(), days=60)
    plain = cli.run("list").stdout
    cli.write_index({"aaa": {**cli.index()["aaa"], "desc": "d" * 3000}})
    assert cli.run("list").stdout == plain
    assert cli.run("list", "--json").document["certificates"][0]["desc"] == "d" * 3000


# -- add --------------------------------------------------------------------------------------------


def test_add_enters_a_folder_and_creates_a_missing_index(cli):
    cli.folder("abc")
    done(cli.run("add", "abc"), "abc is in the index now.\n")
    assert cli.index() == {"abc": {"services": []}}
    assert expect.mode(INDEX) == 0o600
    assert expect.read(INDEX).endswith("}\n")


def test_add_keeps_a_description_and_what_others_wrote(cli):
    cli.write_index({"old": {"services": [], "mine": [1, {"x": None}]}, "odd": 7})
    cli.folder("abc")
    result = cli.run("add", "abc", "--desc", "grüße", "--json")
    done(result)
    assert result.document == {"error": 0, "id": "abc", "added": True}
    assert cli.index() == {"old": {"services": [], "mine": [1, {"x": None}]}, "odd": 7,
                           "abc": {"desc": "grüße", "services": []}}


def test_add_leaves_an_id_that_is_there_as_it_is(cli):
    cli.certificate("abc", service())
    before = expect.read(INDEX), os.stat(INDEX).st_ino
    done(cli.run("add", "abc", "--desc", "new"), "abc was in the index already.\n")
    assert cli.run("add", "abc", "--json").document == {"error": 0, "id": "abc", "added": False}
    assert (expect.read(INDEX), os.stat(INDEX).st_ino) == before


@pytest.mark.parametrize("name", REQUIRED)
def test_add_refuses_a_folder_that_lacks_a_file(cli, name):
    folder = cli.folder("abc")
    remove(f"{folder}/{name}")
    failed(cli.run("add", "abc"), f"add: [{folder}] lacks {name}")
    assert not os.path.exists(INDEX)


@pytest.mark.parametrize("name", ["cert.pem", "fullchain.pem"])
def test_add_refuses_a_certificate_of_another_key(cli, name):
    folder, other = cli.folder("abc"), cli.folder("other")
    os.replace(f"{other}/{name}", f"{folder}/{name}")
    failed(cli.run("add", "abc"), f"add: {name} is not for the key in privkey.pem")
    assert not os.path.exists(INDEX)


def test_add_refuses_nonsense(cli):
    folder = cli.folder("abc")
    cli.host.write(folder + "/privkey.pem", "nonsense", 0o400)
    failed(cli.run("add", "abc"), f"add: Failed to read private key from {folder}/privkey.pem")


@pytest.mark.parametrize("end", ["", "/"])
def test_add_takes_the_path_that_new_cert_prints(cli, end):
    folder = cli.folder("abc")
    done(cli.run("add", folder + end), "abc is in the index now.\n")
    assert cli.index() == {"abc": {"services": []}}
    result = cli.run("add", folder + end, "--json")
    assert result.document == {"error": 0, "id": "abc", "added": False}


@pytest.mark.parametrize("path, meant", [("/", ""), ("/../x", "../x"), ("/a/b", "a/b"),
                                         ("/abc//", "abc/"), ("/.", "."), ("//abc", "/abc")])
def test_add_takes_no_path_that_leads_elsewhere(cli, path, meant):
    cli.folder("abc")
    failed(cli.run("add", paths.ARCHIVE + path), f"add: the id [{meant}] is not a plain name")


@pytest.mark.parametrize("identity", ["", ".", "..", "a/b", "../x", "/etc", "abc/"])
def test_add_refuses_what_is_no_plain_name(cli, identity):
    cli.folder("abc")
    failed(cli.run("add", "--", identity), f"add: the id [{identity}] is not a plain name")


def test_add_refuses_links_and_missing_folders(cli):
    folder = cli.folder("abc")
    os.rename(folder, "/usr/kova/elsewhere")
    os.symlink("/usr/kova/elsewhere", folder)
    failed(cli.run("add", "abc"), f"add: [{folder}] is not a folder of the archive")
    failed(cli.run("add", "none"), f"add: [{folder_of('none')}] is not a folder of the archive")
    cli.host.write(INDEX, "{}")
    failed(cli.run("add", "INFO"), f"add: [{INDEX}] is not a folder of the archive")


def test_add_does_not_replace_a_broken_index(cli):
    cli.folder("abc")
    cli.write_index("{ broken")
    failed(cli.run("add", "abc"), f"add: {BROKEN}: Bad message")
    assert expect.read(INDEX) == "{ broken"


# -- remove -----------------------------------------------------------------------------------------


def test_remove_takes_a_certificate_and_its_folder_away(cli):
    folder = cli.certificate("abc")
    cli.certificate("other", service())
    done(cli.run("remove", "abc"), "abc is removed.\n")
    assert list(cli.index()) == ["other"]
    assert not os.path.exists(folder)
    assert os.path.isdir(folder_of("other"))


def test_remove_as_json(cli):
    cli.certificate("abc")
    assert cli.run("remove", "abc", "--json").document == {"error": 0, "id": "abc"}


def test_remove_works_without_a_folder(cli):
    cli.write_index({"abc": {}})
    done(cli.run("remove", "abc"))
    assert cli.index() == {}


def test_remove_refuses_a_certificate_in_use(cli):
    folder = cli.certificate("abc", service(), service("mail", "smtp"))
    before = expect.tree(paths.ARCHIVE)
    failed(cli.run("remove", "abc"),
           "remove: certificate [abc] has services: nginx/web, mail/smtp")
    assert expect.tree(paths.ARCHIVE) == before and os.path.isdir(folder)


def test_remove_refuses_the_default_certificate(cli):
    cli.certificate("abc")
    cli.default("abc")
    failed(cli.run("remove", "abc"), "remove: certificate [abc] is the default certificate")
    assert os.path.isdir(folder_of("abc"))


@pytest.mark.parametrize("services", [7, "x", {"a": 1}])
def test_remove_refuses_a_damaged_service_list(cli, services):
    cli.certificate("abc")
    cli.write_index({"abc": {"services": services}})
    failed(cli.run("remove", "abc"), "remove: certificate [abc] has a damaged service list")


def test_remove_refuses_what_is_not_in_the_index(cli):
    folder = cli.folder("abc")
    cli.write_index({})
    failed(cli.run("remove", "abc"), "remove: certificate [abc] is not in the index")
    assert os.path.isdir(folder)


def test_remove_never_follows_a_link(cli):
    folder = cli.certificate("abc")
    os.rename(folder, "/usr/kova/elsewhere")
    os.symlink("/usr/kova/elsewhere", folder)
    failed(cli.run("remove", "abc"), f"remove: [{folder}] is not a folder of the archive")
    assert os.listdir("/usr/kova/elsewhere") and "abc" in cli.index()


@pytest.mark.parametrize("identity", ["", "..", "../..", "a/../b", "."])
def test_remove_refuses_what_is_no_plain_name(cli, identity):
    cli.write_index({identity: {"services": []}})
    failed(cli.run("remove", identity), f"remove: the id [{identity}] is not a plain name")
    assert os.path.isdir(paths.ARCHIVE)


# -- default ----------------------------------------------------------------------------------------


def test_default_shows_and_sets_the_default_certificate(cli):
    cli.certificate("abc")
    done(cli.run("default"), "")
    assert cli.run("default", "--json").document == {"error": 0, "default": None}
    done(cli.run("default", "abc"), "abc is the default certificate now.\n")
    assert expect.read(DEFAULT) == "abc\n"
    done(cli.run("default"), "abc\n")
    assert cli.run("default", "--json").document == {"error": 0, "default": "abc"}


def test_default_keeps_the_mode_of_its_file(cli):
    cli.certificate("abc")
    cli.host.write(DEFAULT, "x\n", 0o644)
    done(cli.run("default", "abc"))
    assert expect.mode(DEFAULT) == 0o644


def test_default_refuses_what_cannot_be_the_default(cli):
    cli.folder("loose")
    cli.write_index({"gone": {}, "a-very-long-identity": {}})
    os.mkdir(folder_of("a-very-long-identity"))
    failed(cli.run("default", "loose"), "default: certificate [loose] is not in the index")
    failed(cli.run("default", "gone"),
           f"default: certificate [gone] has no folder [{folder_of('gone')}]")
    failed(cli.run("default", "a-very-long-identity"),
           "default: the id [a-very-long-identity] is longer than 15 characters, which is all that "
           "is read of the default certificate's")
    failed(cli.run("default", "../x"), "default: the id [../x] is not a plain name")
    assert not os.path.exists(DEFAULT)


def test_default_says_when_it_names_nothing(cli):
    cli.default("gone")
    failed(cli.run("default"),
           f"default: [{folder_of('gone')}] doesn't exist: No such file or directory")


# -- bind -------------------------------------------------------------------------------------------


def test_bind_enters_and_deploys_a_service(cli, owner):
    folder = cli.certificate("abc")
    cli.reloads.script()
    result = cli.bind("abc", owner="webowner")
    done(result, "nginx/web uses abc now.\n")
    assert result.errors == []
    assert cli.index() == {"abc": {"services": [
        {"display_name": "Web site", "isPkg": False, "owner": "webowner", "service": "web",
         "subscriber": "nginx"}]}}
    deployed(folder)
    for name in os.listdir(service_folder()):
        status = os.stat(f"{service_folder()}/{name}")
        assert (status.st_uid, status.st_gid) == (owner.pw_uid, owner.pw_gid)
    assert cli.reloads.lines == ["nginx web"]


def test_bind_a_package(cli):
    folder = cli.certificate("abc")
    cli.reloads.script(package=True)
    done(cli.bind("abc", "--package"))
    assert cli.index()["abc"]["services"][0]["isPkg"] is True
    deployed(folder, service_folder(package=True))
    assert not os.path.exists(service_folder())
    assert cli.reloads.lines == ["nginx web"]


def test_bind_moves_a_service_from_the_certificate_that_has_it(cli):
    cli.certificate("old", service("a", "a"), service(), service("b", "b"))
    folder = cli.certificate("new", service("c", "c"))
    cli.reloads.script()
    result = cli.bind("new", "--json")
    done(result)
    assert result.document == {"error": 0, "id": "new", "subscriber": "nginx", "service": "web",
                               "moved_from": "old"}
    assert cli.services("old") == ["a/a", "b/b"]
    assert cli.services("new") == ["c/c", "nginx/web"]
    deployed(folder)
    assert cli.reloads.lines == ["nginx web"]


def test_bind_again_redeploys_and_lists_once(cli):
    folder = cli.certificate("abc", service(), service("a", "a"))
    cli.reloads.script()
    done(cli.bind("abc", name="renamed"))
    assert sorted(cli.services("abc")) == ["a/a", "nginx/web"]
    assert [each["display_name"] for each in cli.index()["abc"]["services"]] == ["a a", "renamed"]
    deployed(folder)
    assert cli.reloads.lines == ["nginx web"]


def test_bind_keeps_what_others_wrote_in_the_service(cli):
    cli.certificate("old", service(colour=7, display_name_i18n="web:site"))
    cli.certificate("new")
    done(cli.bind("new", name="nginx web"))
    assert cli.index()["new"]["services"] == [service(colour=7, display_name_i18n="web:site")]
    # A translated name is that of the old display name.
    done(cli.bind("new", name="another"))
    assert cli.index()["new"]["services"] == [service(colour=7, display_name="another")]


def test_bind_clears_up_a_service_that_several_certificates_list(cli):
    for identity in ("aaa", "bbb", "ccc"):
        cli.certificate(identity, service())
    done(cli.bind("bbb"))
    assert [cli.services(identity) for identity in ("aaa", "bbb", "ccc")] == [[], ["nginx/web"], []]


def test_bind_creates_a_missing_service_list(cli):
    cli.certificate("old", service())
    cli.folder("new")
    index = cli.index()
    cli.write_index({**index, "new": {"desc": "d"}})
    done(cli.bind("new"))
    assert cli.services("new") == ["nginx/web"] and cli.services("old") == []


@pytest.mark.parametrize("name", ["", ".", "..", "a/b", "/", "../../../tmp/x"])
def test_bind_refuses_names_that_lead_elsewhere(cli, name):
    cli.certificate("abc")
    before = expect.tree("/usr/kova")
    failed(cli.bind("abc", subscriber=name), f"bind: the subscriber [{name}] is not a plain name")
    failed(cli.bind("abc", service=name), f"bind: the service [{name}] is not a plain name")
    failed(cli.unbind("abc", service=name), f"unbind: the service [{name}] is not a plain name")
    assert expect.tree("/usr/kova") == before


def test_bind_never_deploys_into_the_archive(cli):
    cli.certificate("abc")
    victim = cli.certificate("victim")
    before = expect.tree(victim)
    failed(cli.bind("abc", subscriber="_archive", service="victim"),
           "bind: the subscriber [_archive] is the certificate archive itself")
    assert expect.tree(victim) == before


def test_bind_names_an_owner_that_does_not_exist(cli):
    cli.certificate("abc")
    before = expect.tree("/usr/kova")
    failed(cli.bind("abc", owner="no-such-user"), "bind: there is no user [no-such-user]")
    failed(cli.bind("abc", name=""), "bind: the display name is empty")
    assert expect.tree("/usr/kova") == before


def test_bind_needs_a_certificate_of_the_index(cli):
    cli.folder("loose")
    cli.write_index({"num": 1, "bad": {"services": "x"}})
    os.mkdir(folder_of("bad"))
    failed(cli.bind("loose"), "bind: certificate [loose] is not in the index")
    failed(cli.bind("num"), "bind: certificate [num] is not in the index")
    failed(cli.bind("bad"), "bind: certificate [bad] has a damaged service list")
    assert not os.path.exists(service_folder())


def test_bind_says_why_a_service_could_not_be_served(cli):
    cli.certificate("abc")
    cli.host.write("/usr/kova/etc/certificate/nginx", "a file is in the way")
    result = cli.bind("abc")
    failed(result, "bind: nginx/web could not be served with [abc]: "
                   "Failed to create /usr/kova/etc/certificate/nginx/web: Not a directory")
    assert "utils.cpp:# Failed to set cert [abc] for [nginx][web]." in result.errors


def test_bind_names_what_failed_and_not_what_was_put_right(cli):
    folder = cli.certificate("abc")
    remove(folder + "/fullchain.pem")
    cli.host.write("/usr/kova/etc/certificate/nginx", "a file is in the way")
    result = cli.bind("abc")
    failed(result, "bind: nginx/web could not be served with [abc]: "
                   "Failed to create /usr/kova/etc/certificate/nginx/web: Not a directory")
    assert f"utils.cpp:# Lack of necessary files in cert dir [{folder}]" in result.errors
    assert json.loads(expect.read(folder + "/cert_info")) == {"is_broken": True}


def test_a_long_message_with_brackets_is_told_as_it_is(cli):
    # The expression that once took messages apart overran the stack on such a text.
    name = "[0x0002 " + "A" * 120000
    cli.write_index({})
    result = cli.run("check", name)
    assert result.status == 1
    assert result.stderr == f"kova-archive: check: {name}: Invalid cert id: [{name}]\n"


def test_bind_fails_when_the_reload_script_cannot_run(cli):
    cli.certificate("abc")
    path = cli.reloads.script()
    os.chmod(path, 0o644)
    failed(cli.bind("abc"), "bind: nginx/web could not be served with [abc]: "
                            f"Failed to [{path}][web]: Permission denied")


def test_what_a_reload_script_says_reaches_the_user(cli):
    cli.certificate("abc")
    cli.reloads.script(then="echo to-stdout; echo to-stderr >&2")
    result = cli.bind("abc")
    assert (result.status, result.stdout, result.stderr) == \
        (0, "nginx/web uses abc now.\n", "to-stderr\n")


# -- unbind -----------------------------------------------------------------------------------------


def test_unbind_hands_the_service_to_the_default_certificate(cli):
    cli.certificate("abc", service())
    folder = cli.certificate("std")
    cli.default("std")
    cli.reloads.script()
    result = cli.unbind("abc")
    done(result, "nginx/web uses std, the default certificate, now.\n")
    assert cli.services("abc") == [] and cli.services("std") == ["nginx/web"]
    deployed(folder)
    assert cli.reloads.lines == ["nginx web"]


def test_unbind_a_package(cli):
    cli.certificate("abc", service(package=True))
    folder = cli.certificate("std")
    cli.default("std")
    result = cli.unbind("abc", "--json")
    assert result.document == {"error": 0, "id": "abc", "subscriber": "nginx", "service": "web",
                               "handed_to": "std"}
    deployed(folder, service_folder(package=True))


def test_unbind_without_a_default_only_takes_it_off_the_list(cli):
    cli.certificate("abc", service(), service("a", "a"))
    cli.reloads.script()
    done(cli.unbind("abc"), "nginx/web is off the list of abc.\n")
    assert cli.services("abc") == ["a/a"]
    assert cli.reloads.lines == [] and not os.path.exists(service_folder())
    assert cli.unbind("abc", "--json", subscriber="a", service="a").document["handed_to"] is None


def test_unbind_from_the_default_certificate_takes_it_off_the_list(cli):
    cli.certificate("std", service())
    cli.default("std")
    done(cli.unbind("std"), "nginx/web is off the list of std.\n")
    assert cli.services("std") == []


def test_unbind_fails_when_the_certificate_does_not_list_the_service(cli):
    cli.certificate("abc", service("a", "a"))
    cli.certificate("other", service())
    failed(cli.unbind("abc"), "unbind: certificate [abc] does not list nginx/web")
    failed(cli.unbind("none"), "unbind: certificate [none] is not in the index")
    assert cli.services("other") == ["nginx/web"]


def test_unbind_fails_when_the_default_cannot_take_it(cli):
    cli.certificate("abc", service())
    cli.folder("loose")
    cli.default("loose")
    failed(cli.unbind("abc"),
           "unbind: nginx/web could not be taken from [abc]: Invalid cert id: [loose]")
    assert cli.services("abc") == ["nginx/web"]


# -- deploy -----------------------------------------------------------------------------------------


def test_deploy_serves_the_certificates_own_services(cli):
    folder = cli.certificate("abc", service(), service("mail", "smtp"))
    cli.reloads.script()
    cli.reloads.script("mail")
    before = expect.read(INDEX)
    result = cli.run("deploy", "abc")
    done(result, "abc is deployed to nginx/web, mail/smtp.\n")
    deployed(folder)
    deployed(folder, service_folder("mail", "smtp"))
    assert cli.reloads.lines == ["nginx web", "mail smtp"]
    assert expect.read(INDEX) == before
    assert cli.run("deploy", "abc", "--json").document == {
        "error": 0, "id": "abc", "services": ["nginx/web", "mail/smtp"],
        "has_system_default": False}


def test_deploy_without_services(cli):
    cli.certificate("abc")
    done(cli.run("deploy", "abc"), "abc has no services.\n")


def test_deploy_serves_the_others_when_one_fails(cli):
    folder = cli.certificate("abc", service(owner="no-such-user"), service("mail", "smtp"))
    failed(cli.run("deploy", "abc"),
           "deploy: Failed to KOVAUserGetUGID [no-such-user]: No such file or directory")
    deployed(folder, service_folder("mail", "smtp"))


def test_deploy_never_leaves_the_services_folders(cli):
    cli.certificate("abc", service("..", "x"), service("mail", "../../../../../tmp/x"))
    failed(cli.run("deploy", "abc"), "deploy: service object is error.")
    assert not os.path.exists("/tmp/x") and not os.path.exists("/usr/kova/etc/x")


@pytest.mark.parametrize("services, why", [(None, "Bad message"), (7, "Bad message")])
def test_deploy_needs_a_service_list(cli, services, why):
    cli.certificate("abc")
    cli.write_index({"abc": {} if services is None else {"services": services}})
    result = cli.run("deploy", "abc")
    assert result.status == 1 and result.stderr.startswith(f"kova-archive: deploy: {BROKEN}")
    assert result.errors[-1] == "utils.cpp:# Failed to get service list of abc"


# -- check ------------------------------------------------------------------------------------------


def test_check_finds_a_good_archive_good(cli):
    cli.certificate("abc")
    cli.certificate("def")
    done(cli.run("check"), "abc: ok\ndef: ok\n")
    done(cli.run("check", "def"), "def: ok\n")
    assert cli.run("check", "--json").document == {"error": 0, "certificates": [
        {"id": "abc", "result": "ok", "reason": ""}, {"id": "def", "result": "ok", "reason": ""}]}


def test_check_recovers_what_lacks_files(cli):
    folder = cli.certificate("abc", service())
    cli.host.hook("notify", f'echo "$@" >> {cli.host.workspace}/notified')
    remove(folder + "/privkey.pem")
    result = cli.run("check", "abc")
    done(result, f"abc: recovered (Lack of necessary files in cert dir [{folder}])\n")
    assert result.errors == [f"utils.cpp:# Lack of necessary files in cert dir [{folder}]",
                             "utils.cpp:# abc is incomplete, start recovering"]
    assert expect.read(f"{cli.host.workspace}/notified") == "certificate_broken\n"
    assert json.loads(expect.read(folder + "/cert_info")) == {"is_broken": True}
    verify = cli.host.run("verify", "-CAfile", folder + "/kova-ca-cert.pem", "-verify_hostname",
                          "kova", folder + "/cert.pem", program="/usr/bin/openssl")
    assert verify.status == 0
    flags = cli.run("list", "--json").document["certificates"][0]["flags"]
    assert flags == ["broken", "self-signed"]
    done(cli.run("check"), "abc: ok\n")


def test_check_reports_every_certificate_and_fails_for_the_bad_ones(cli):
    cli.certificate("abc")
    result = cli.run("check", "none", "abc", "../x", "--json")
    assert result.status == 1
    reasons = "none: Invalid cert id: [none], ../x: Invalid cert id: [../x]"
    assert result.document == {"error": 1, "msg": reasons, "certificates": [
        {"id": "none", "result": "failed", "reason": "Invalid cert id: [none]"},
        {"id": "abc", "result": "ok", "reason": ""},
        {"id": "../x", "result": "failed", "reason": "Invalid cert id: [../x]"}]}
    assert result.stderr == f"kova-archive: check: {reasons}\n"


def test_check_without_an_index_fails(cli):
    failed(cli.run("check"), f"check: {BROKEN}: No such file or directory")


def test_check_names_a_damaged_serial_file(cli):
    folder = cli.certificate("abc")
    remove(folder + "/cert.pem")
    cli.host.write("/usr/kova/etc/ssl/.mkcert.serial", "no number", 0o600)
    result = cli.run("check")
    reason = ("Failed to generate default certificate to recover for [abc]: Failed to generate cert: "
              "[/usr/kova/etc/ssl/.mkcert.serial]: holds no serial number")
    assert (result.status, result.stdout) == (1, f"abc: failed ({reason})\n")
    assert result.stderr.startswith(f"kova-archive: check: abc: {reason}")


def test_check_expiry_tells_what_ends_soon_and_changes_nothing(cli):
    cli.certificate("fine", days=60.5)
    cli.certificate("soon", days=10.5)
    cli.certificate("past", days=-0.02)
    remove(cli.certificate("lost") + "/cert.pem")
    before = expect.tree("/usr/kova")
    ends = {identity: x509.load_pem_x509_certificate(
        expect.read(folder_of(identity) + "/cert.pem").encode()).not_valid_after.strftime(
            "%Y-%m-%dT%H:%M:%SZ") for identity in ("soon", "past")}
    result = cli.run("check", "--expiry", "30")
    assert result.status == 1
    assert result.stdout == ("lost: its cert.pem cannot be read\n"
                             f"past: ended at {ends['past']}\nsoon: ends at {ends['soon']}\n")
    assert result.stderr == "kova-archive: check: 3 of 4 certificates need attention\n"
    assert expect.tree("/usr/kova") == before
    with_json = cli.run("check", "--expiry", "30", "--json", "soon", "fine", "none")
    assert with_json.document == {
        "error": 1, "msg": "2 of 3 certificates need attention", "findings": [
            {"id": "soon", "finding": f"ends at {ends['soon']}"},
            {"id": "none", "finding": "is not a certificate of the index"}]}
    done(cli.run("check", "--expiry", "0", "soon", "fine"), "")
    done(cli.run("check", "--expiry", "60", "fine"), "")
    assert cli.run("check", "--expiry", "61", "fine").status == 1


@pytest.mark.parametrize("days", ["", "x", "-1", "1.5", "36501", "99999999999"])
def test_check_expiry_wants_a_number_of_days(cli, days):
    refused(cli.run("check", f"--expiry={days}"), "--expiry takes a number of days, 0 to 36500",
            "check")


# -- self-signed ------------------------------------------------------------------------------------


def test_self_signed_generates_a_set(cli):
    folder = "/usr/kova/new/set"
    done(cli.run("self-signed", folder), f"A certificate set was generated into {folder}.\n")
    assert sorted(os.listdir(folder)) == ["cert.pem", "fullchain.pem", "is_default_cert",
                                          "kova-ca-cert.pem", "kova-ca-privkey.pem", "privkey.pem"]
    for name in os.listdir(folder):
        if name.endswith(".pem"):
            assert expect.mode(f"{folder}/{name}") == 0o400
    assert cli.run("self-signed", folder, "--json").document == {"error": 0, "folder": folder}


def test_self_signed_takes_relative_and_odd_names(cli):
    os.mkdir("/usr/kova/w")
    done(cli.run("self-signed", "--", "-out", cwd="/usr/kova/w"))
    assert os.path.exists("/usr/kova/w/-out/cert.pem")


def test_self_signed_says_why_it_failed(cli):
    result = cli.run("self-signed", "/proc/none/x")
    failed(result, "self-signed: Exec mkdir failed (/bin/mkdir: cannot create directory "
                   "‘/proc/none’: No such file or directory)")
    failed(cli.run("self-signed", ""), "self-signed: Invalid paramter []")


def test_a_generated_set_can_be_added_and_served(cli):
    done(cli.run("self-signed", folder_of("std")))
    done(cli.run("add", "std"))
    done(cli.run("default", "std"))
    done(cli.bind("std", subscriber="system", service="default"))
    names = sorted(os.listdir(service_folder("system", "default")))
    assert names == ["cert.pem", "fullchain.pem", "kova-ca-cert.pem", "privkey.pem"]
    assert cli.run("deploy", "std", "--json").document["has_system_default"] is True


def test_its_own_folders_are_closed_to_others(cli):
    done(cli.run("self-signed", folder_of("std")))
    assert stat.S_IMODE(os.stat("/usr/kova/etc/ssl/cfg.d").st_mode) == 0o755
    assert expect.mode("/usr/kova/etc/ssl/.mkcert.serial") == 0o600
