"""Fixtures of the tests of a whole fleet: brokers, database, collectors and the fleet's ledger."""

import pathlib
import sys

import pytest

TESTS = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / "lab"), str(TESTS / "system"), str(TESTS / "collector"), str(TESTS.parent / "lab")]

from access_points import AccessPoints  # noqa: E402
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


@pytest.fixture(name="run")
def everything_to_be_run(whole):
    """Starts it; reports are flowing when that returns."""
    def start_it(**fleet):
        whole.collector()
        whole.collector()
        whole.fleet(whole.cluster.nodes[0], **fleet)
        whole.fleet(whole.cluster.nodes[1], **fleet)
        whole.wait_until_stored(300)
        return whole
    return start_it


@pytest.fixture(name="running")
def everything_running(run):
    return run()


@pytest.fixture(name="with_cables")
def nodes_at_cables(cluster):
    if not cluster.cables:
        pytest.skip("only root may cut a network")


@pytest.fixture(name="access_points")
def whole_access_points(request, whole, with_cables):  # pylint: disable=unused-argument
    """Three access points, as whole as the lab has them."""
    whole.collector()  # the queue is there
    whole.access_points = AccessPoints(whole)
    yield whole.access_points
    whole.access_points.close(getattr(request.node, "failed", False))


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    report = (yield).get_result()
    if report.failed and call.when == "call":
        item.failed = True
