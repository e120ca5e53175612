"""The lab's documents say what its programs do."""

import pathlib
import re
import shutil
import subprocess

import pytest

from wsmlab import fields

DOCS = pathlib.Path(__file__).resolve().parents[2] / "docs"
PROGRAMS = ["apsim", "wsm-collector", "wsm-fleet-sim", "dhcpmon", "wsm-record", "wsm-replay"]


def section(title):
    """A section of docs/lab.md, with those below it."""
    text = (DOCS / "lab.md").read_text(encoding="utf-8")
    found = re.search(rf"^(#+) {re.escape(title)}\n(.*?)(?=^#{{1,2}} |\Z)", text, re.M | re.S)
    assert found, title
    return found[2]


@pytest.mark.parametrize("program", PROGRAMS)
def test_the_manual_page_has_the_options_and_statuses_of_the_program(build_dir, program):
    if not (build_dir / "bin" / program).exists():
        pytest.skip("not built: a library that it needs is not there")
    usage = subprocess.run([build_dir / "bin" / program, "--help"], capture_output=True, text=True, timeout=30,
                           check=True).stdout
    page = (DOCS / "man" / f"{program}.1").read_text(encoding="utf-8").replace("\\-", "-")
    options = page[page.index(".SH OPTIONS"):]
    assert re.findall(r"^  (--[a-z]+)", usage, re.M) == re.findall(r"^\.BI? (--[a-z]+)", options, re.M)
    statuses = usage[usage.index("Exit status:"):]
    assert re.findall(r"(?:: |, |\n)(\d) ", statuses) == re.findall(r"^\.B (\d)$", page, re.M)


@pytest.mark.skipif(not (shutil.which("man") and shutil.which("groff")), reason="man or groff is not installed")
@pytest.mark.parametrize("program", PROGRAMS)
def test_the_manual_page_is_well_formed(program):
    done = subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", DOCS / "man" / f"{program}.1"],
                          capture_output=True, text=True, timeout=30, check=True)
    assert done.stderr == ""


def test_every_command_of_the_driver_simulator_is_documented(apsim):
    rows = [line for line in section("Commands").splitlines() if line.startswith("| `")]
    assert sorted(re.match(r"\| `(\w+)", row)[1] for row in rows) == sorted(apsim.ok("help").split())


def test_the_manual_page_has_the_commands_of_the_driver_simulator(apsim):
    page = (DOCS / "man/apsim.1").read_text(encoding="utf-8")
    commands = page[page.index(".SH COMMANDS"):page.index(".SH FIELDS")]
    described = re.findall(r"^\.T[PQ]\n\.B (\w+)(.*)$", commands, re.M)
    assert sorted({command for command, _ in described}) == sorted(apsim.ok("help").split())
    rows = [row for row in section("Commands").splitlines() if row.startswith("| `")]
    forms = [form for row in rows for form in re.findall(r"`(.*?)`", row.split(" | ")[0])]
    assert [f"{command}{rest.replace(chr(92) + 'fR', '')}" for command, rest in described] == forms


def test_the_manual_page_has_the_fields_that_a_command_may_set(build_dir):
    page = (DOCS / "man/apsim.1").read_text(encoding="utf-8")
    documented = re.findall(r"\w+", page[page.index(".SH FIELDS"):page.index(".SH EXIT STATUS")].split(".PP\n")[1])
    layouts = fields.printed(build_dir)
    names = {row[-1] for layout in ("station_event", "driver_basic", "driver_extended") for row in layouts[layout]}
    given_otherwise = {"assoc", "mac", "ssid", "ifname", "time_stamp", "radio_id"}
    assert sorted(documented) == sorted(names - given_otherwise)


def test_the_example_of_a_conversation_is_what_is_answered(apsim):
    example = re.search(r"\$ printf '(.*?)' .*\n((?:.+\n)+?)```", section("Commands"))
    listener = apsim.listener()
    commands = example[1].split("\\n")[:-1]
    assert "".join(apsim(command) + "\n" for command in commands) == example[2]
    listener.socket.close()
