"""./demo --radio, on a terminal."""

import os
import pathlib
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/system"))

from terminal import Terminal  # noqa: E402

NO_MACHINE = 125


def test_the_view_shows_clients_on_simulated_radios_and_ends_with_a_key(build_dir, tmp_path):
    argv = [sys.executable, "-m", "wsmlab.demo", "--build-dir", str(build_dir), "--radio", "--stations", "2"]
    environment = {**os.environ, "PYTHONPATH": str(ROOT / "lab"), "TERM": "xterm-256color", "LC_ALL": "C.UTF-8", "TMPDIR": str(tmp_path)}
    terminal = Terminal(argv, environment, 100, 30, limit=600)
    try:
        terminal.wait(lambda: terminal.lines_with("online") or terminal.process.poll() is not None, "the view")
        if terminal.process.poll() == NO_MACHINE:
            pytest.skip("no virtual machine here: " + " ".join(terminal.lines).strip()[-300:])
        line = terminal.wait(lambda: next((line for line in terminal.lines if line.startswith("02:00:00:00:0")), None), "a client")
        assert " dBm" not in line and "online" in terminal.lines[0], terminal.lines
        terminal.wait_for("report log on")
        terminal.press("q")
        terminal.wait_for("stations at the end, as kernel and hostapd have them; the daemon ended cleanly")
        assert terminal.wait_for_end() == 0
        assert terminal.modes == terminal.modes_before
    finally:
        terminal.close()
