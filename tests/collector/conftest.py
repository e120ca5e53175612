"""Fixtures of the collector's tests: each test has its programs in a folder of its own."""

import pathlib
import subprocess
import sys

import pytest

TESTS = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(TESTS / "lab"))  # programs.py: how a test drives a program
sys.path.insert(0, str(TESTS / "system"))  # formats.py: the layouts by hand

import postgres  # noqa: E402
from brokers import Broker, Publisher  # noqa: E402
from programs import starter  # noqa: E402
from served import Served  # noqa: E402


@pytest.fixture
def start(tmp_path):
    """Starts programs that are stopped after the test."""
    with starter(tmp_path) as start_one:
        yield start_one


@pytest.fixture
def broker(start, tmp_path):
    return Broker(tmp_path, start)


@pytest.fixture
def with_mqtt(build_dir):
    done = subprocess.run([build_dir / "bin/wsm-collector", "--publish", "x", "--socket", "/"], capture_output=True, text=True,
                          timeout=30, check=False)
    if "built without" in done.stderr:
        pytest.skip("built without libmosquitto")


@pytest.fixture
def publish(start, build_dir, tmp_path, broker, with_mqtt):  # pylint: disable=unused-argument
    return lambda *options: Publisher(start, build_dir, tmp_path, f"mqtt://127.0.0.1:{broker.port}/home", *options)


@pytest.fixture
def serve(start, build_dir, tmp_path):
    """Starts collectors that serve on a port of their own."""
    def serve_one(*options, http="127.0.0.1:0"):
        if "libmicrohttpd" in subprocess.run([build_dir / "bin/wsm-collector", "--http", "127.0.0.1:x", "--socket", "/"],
                                             capture_output=True, text=True, timeout=30, check=False).stderr:
            pytest.skip("built without libmicrohttpd")
        return Served(start, build_dir, tmp_path, [*(["--http", http] if http else []), *options])
    return serve_one


@pytest.fixture(scope="module")
def server(build_dir):
    """A PostgreSQL of the test module's own."""
    yield from postgres.serve(build_dir)


@pytest.fixture
def database(server, build_dir):
    return postgres.Database(server, build_dir)
