"""Fixtures of the system tests: each test opens a lab of its own; when it fails, the report shows the lab's logs."""

import pathlib
import re
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "lab"))

from driver import Driver  # noqa: E402
from wsmlab import Lab  # noqa: E402
from wsmlab.clock import Clock  # noqa: E402

LABS = pytest.StashKey()


@pytest.fixture(scope="session")
def patience(sanitized):
    """Factor for time limits: other work may have most of the processors, and sanitized programs are several times slower."""
    return 8.0 if sanitized else 4.0


@pytest.fixture
def open_lab(request, build_dir, patience):
    """Opens labs with the options given; they are closed, and checked, after the test."""
    labs = request.node.stash.setdefault(LABS, [])

    def open_one(**options):
        lab = Lab(build_dir, patience=patience, **options)
        lab.__enter__()
        labs.append(lab)
        return lab

    yield open_one
    failed = getattr(request.node, "failed", False)
    try:
        for lab in labs:
            if failed:
                name = re.sub(r"\W+", "_", request.node.name)
                lab.keep_logs(build_dir / "lab-logs" / name)
            else:
                lab.end()
    finally:
        for lab in labs:
            lab.space.close()


@pytest.fixture
def lab(open_lab):
    """An access point on which nothing runs yet."""
    return open_lab()


@pytest.fixture
def running_lab(lab):
    """An access point on which the daemon runs, with broker, driver and collector."""
    return lab.start_all()


@pytest.fixture
def clock(lab):
    """A clock that the test moves; everything of the lab runs by it."""
    one = Clock(lab)
    lab.start_all(environment=one.environment)
    return one


@pytest.fixture
def driver(running_lab):
    """The test as the driver of running_lab."""
    return Driver(running_lab)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    report = (yield).get_result()
    if report.failed:
        item.failed = True
        for lab in item.stash.get(LABS, []):
            if lab.space.open:
                report.sections += [(f"lab: {name}", text) for name, text in lab.tails().items() if text.strip()]
