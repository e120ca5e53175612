"""The uci tool of the build against the recorded answers in tests/golden/uci, one item per record."""

import importlib.util
import json
import os
import pathlib

import pytest

GOLDEN = pathlib.Path(__file__).resolve().parents[2] / "golden" / "uci"
_loader = importlib.util.spec_from_file_location("uci_check", GOLDEN / "check.py")
check = importlib.util.module_from_spec(_loader)
_loader.loader.exec_module(check)

PACKAGES = sorted((GOLDEN / "parse").glob("*.conf"))
RECORDS = [json.loads(line) for line in (GOLDEN / "cli.jsonl").read_text(encoding="utf-8").splitlines()]

# Where the recorded answer is plainly a fault, our own answer is expected instead. base/README.md gives the reasons.
REFUSED = {"stderr": "uci: Invalid argument\n", "rc": 1, "files_after": {}}
OURS = {
    "batch-two-errors": {"stderr": "uci: Entry not found\nuci: Entry not found\n"},
    "set-ext-missing-type": REFUSED,
    "rename-invalid-name": REFUSED,
    "set-type-other-length-anon": {
        "files_after": {
            "etc/network": (
                "\nconfig interface 'lan'\n\toption proto 'static'\n\toption ipaddr '192.168.10.1'\n"
                "\tlist dns '9.9.9.9'\n\tlist dns '1.1.1.1'\n\n"
                "config route6\n\toption target '10.20.0.0'\n\n"
                "config interface 'wan'\n\toption proto 'dhcp'\n\n"
                "config route\n\toption target '10.30.0.0'\n\n"
            ),
            "save/network": "",
        }
    },
}


# The recorded export of this package cannot be read back: "config p#q;r 'y'" ends at the #.
EXPORTED_WITH_QUOTES = "30-type-characters"


@pytest.fixture(autouse=True)
def common_umask():
    before = os.umask(0o022)
    yield
    os.umask(before)


@pytest.fixture(scope="session")
def uci_tool(build_dir):
    return str(build_dir / "bin" / "uci")


@pytest.mark.parametrize("package", PACKAGES, ids=lambda path: path.stem)
def test_package_reads_as_recorded(uci_tool, package):
    differences = check.check_parse(uci_tool, str(package))
    if package.stem == EXPORTED_WITH_QUOTES:
        assert {what for what, *_ in differences} == {"export", "export-S"}
        for _, (_, recorded, _), (_, ours, _) in differences:
            assert ours == recorded.replace(b"\nconfig p#q;r 'y'\n", b"\nconfig 'p#q;r' 'y'\n") != recorded
    else:
        assert differences == []


@pytest.mark.parametrize("record", RECORDS, ids=lambda record: record["id"])
def test_command_answers_as_recorded(uci_tool, record):
    assert check.check_cli(uci_tool, str(GOLDEN), record | OURS.get(record["id"], {})) == []


def test_only_answers_that_were_recorded_as_faults_are_replaced():
    assert set(OURS) <= {record["id"] for record in RECORDS if "quirk" in record}
