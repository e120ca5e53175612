"""Every program can print its version, except the daemon, which takes no arguments."""

import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAMS = ["apsim", "dhcpmon", "ubus", "ubusd", "uci", "wsm", "wsm-bridge", "wsm-collector", "wsm-fleet-sim", "wsm-record", "wsm-replay"]


@pytest.mark.parametrize("program", PROGRAMS)
def test_the_program_prints_its_name_and_version(build_dir, program):
    if not (build_dir / "bin" / program).exists():
        pytest.skip("not built: a library that it needs is not there")
    version = re.search(r"project\(wsmd VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"))[1]
    said = subprocess.run([build_dir / "bin" / program, "--version"], capture_output=True, text=True, timeout=30,
                          check=True, stdin=subprocess.DEVNULL)
    assert (said.stdout, said.stderr) == (f"{program} {version}\n", "")
