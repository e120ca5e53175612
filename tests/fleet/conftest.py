"""Fixtures of the tests of a whole fleet: brokers, database, collectors and what the fleet meant to say."""

import pathlib
import sys

import pytest

TESTS = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / "lab"), str(TESTS / "system"), str(TESTS / "collector")]

from postgres import a_postgres  # noqa: E402
from programs import starter  # noqa: E402
from rabbit import Cluster  # noqa: E402
from whole import Whole  # noqa: E402


@pytest.fixture
def start(tmp_path):
    """Starts programs that are stopped after the test."""
    with starter(tmp_path) as start_one:
        yield start_one


@pytest.fixture(scope="session", name="cluster")
def a_cluster():
    one = Cluster()
    yield one
    one.close()


@pytest.fixture(scope="session", name="postgres")
def a_database():
    with a_postgres() as one:
        yield one


@pytest.fixture(name="whole")
def everything(request, cluster, postgres, start, build_dir, tmp_path):
    return Whole(cluster, postgres, start, build_dir, tmp_path, "t_" + request.node.name.removeprefix("test_"))


@pytest.fixture(name="running")
def everything_running(whole):
    """Reports are flowing when this returns."""
    whole.collector()
    whole.collector()
    whole.fleet(whole.cluster.nodes[0])
    whole.fleet(whole.cluster.nodes[1])
    whole.wait_until_stored(300)
    return whole
