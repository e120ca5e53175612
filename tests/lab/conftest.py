"""Fixtures for the lab's programs: each test has them in a folder, and a network, of its own."""

import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "system"))  # formats.py: the layouts by hand
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "lab"))

from programs import Apsim, starter  # noqa: E402


@pytest.fixture
def start(tmp_path):
    """Starts programs that are stopped after the test."""
    with starter(tmp_path) as start_one:
        yield start_one


@pytest.fixture
def open_apsim(start, build_dir, tmp_path):
    """Opens driver simulators in networks of their own; time stands still in them unless options say otherwise."""
    opened = []

    def open_one(*options, folder=tmp_path):
        apsim = Apsim(start, build_dir, folder, ["--tick", "0", *options])
        opened.append(apsim)
        return apsim

    yield open_one
    for apsim in opened:
        apsim.close()


@pytest.fixture
def apsim(open_apsim):
    """A driver simulator in which time stands still."""
    return open_apsim()
