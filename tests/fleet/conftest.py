"""Fixtures of the tests of a whole fleet: brokers, database, collectors and what the fleet meant to say."""

import pathlib
import sys

import pytest

TESTS = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / "lab"), str(TESTS / "system"), str(TESTS / "collector")]

from programs import starter  # noqa: E402


@pytest.fixture
def start(tmp_path):
    """Starts programs that are stopped after the test."""
    with starter(tmp_path) as start_one:
        yield start_one
