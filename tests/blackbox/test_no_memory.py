"""kova-archive when memory runs out. Not for the sanitizers, which want all addresses for themselves."""

import subprocess

from lib.archive_cli import PROGRAM, ArchiveCli

ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8"}


def test_without_memory_it_ends_with_one_line(host):
    cli = ArchiveCli(host)
    cli.write_index('{"abc": {"desc": "' + "x" * 50000000 + '"}}')
    said = set()
    for megabytes in range(60, 500, 40):
        limited = ["/usr/bin/prlimit", f"--as={megabytes * 1000000}", PROGRAM, "list"]
        run = subprocess.run(limited, env=ENVIRONMENT, capture_output=True, check=False)
        assert run.returncode in (0, 1), (megabytes, run.returncode)
        if run.returncode == 1:
            assert run.stdout == b"" and run.stderr.count(b"\n") == 1
            said.add(run.stderr)
    assert b"kova-archive: out of memory\n" in said
