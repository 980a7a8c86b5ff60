"""What `kova-archive check --host` found."""

from .archive_cli import ArchiveCli
from .nginx import Nginx


def host_in_order(host):
    """Makes it one on which nothing is amiss; the index is empty."""
    cli = ArchiveCli(host)
    cli.write_index({})
    Nginx(host).start()
    return cli


def check(cli, **options):
    """The findings by subject, each with a list of them."""
    result = cli.run("check", "--host", "--json", **options)
    findings = {}
    for finding in result.document["findings"]:
        findings.setdefault(finding["subject"], []).append(finding)
    failures = sum(each["level"] == "failure" for each in result.document["findings"])
    assert result.document["failures"] == failures
    assert result.status == (1 if failures else 0)
    return findings


def the_only(findings, subject):
    assert len(findings[subject]) == 1, findings[subject]
    return findings[subject][0]


def expect_finding(cli, subject, level, text, advice=None, **options):
    """The subject has this one finding."""
    finding = the_only(check(cli, **options), subject)
    assert (finding["level"], finding["text"]) == (level, text)
    if advice is not None:
        assert finding["advice"] == advice
