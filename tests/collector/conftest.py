"""Fixtures of the collector's tests: each test has its programs in a folder of its own."""

import pathlib
import sys

import pytest

TESTS = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(TESTS / "lab"))  # programs.py: how a test drives a program
sys.path.insert(0, str(TESTS / "system"))  # formats.py: the layouts by hand

from programs import starter  # noqa: E402


@pytest.fixture
def start(tmp_path):
    """Starts programs that are stopped after the test."""
    with starter(tmp_path) as start_one:
        yield start_one
