"""Tests that are written in JavaScript, one pytest item for each. One process of node with one browser gets their names in turn."""

import json
import os
import pathlib
import select
import subprocess

import pytest

FOLDER = pathlib.Path(__file__).resolve().parent
LIMIT = 240  # seconds for one test, on a loaded machine


def node(build, *arguments, **options):
    """A process of node that finds what scripts/prepare.sh has installed into the build."""
    environment = {**os.environ, "NODE_PATH": str(build / "browser/node_modules"), "WSMD_PICTURES": str(build / "browser/pictures")}
    return subprocess.Popen(["node", FOLDER / "run.js", *arguments], env=environment, stdout=subprocess.PIPE, **options)


def measured(config):
    """What tests have measured for people, a line each."""
    return pathlib.Path(config.getoption("--build-dir")).resolve() / "browser/measured"


def pytest_configure(config):
    if not hasattr(config, "workerinput"):
        measured(config).unlink(missing_ok=True)


def pytest_terminal_summary(terminalreporter, config):
    if measured(config).exists():
        terminalreporter.write_line(measured(config).read_text(encoding="utf-8").rstrip())


def pytest_generate_tests(metafunc):
    # A module names its suite; "case" is each of the suite's tests.
    if "case" in metafunc.fixturenames:
        build = pathlib.Path(metafunc.config.getoption("--build-dir")).resolve()
        listed = node(build, "--list", metafunc.module.SUITE)
        names = json.loads(listed.communicate()[0])
        metafunc.parametrize("case", names, ids=names)


class Browser:
    def __init__(self, build):
        self.process = node(build, stdin=subprocess.PIPE)

    def run(self, suite, name, told=None):
        """Fails with what the test found, or when it does not end."""
        self.process.stdin.write(json.dumps([suite, name, told]).encode() + b"\n")
        self.process.stdin.flush()
        assert select.select([self.process.stdout], [], [], LIMIT)[0], f"no end within {LIMIT} seconds"
        line = self.process.stdout.readline()
        assert line, f"node ended with {self.process.wait()}"
        failure = json.loads(line)
        assert failure is None, failure

    def close(self):
        self.process.stdin.close()
        try:
            self.process.wait(30)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.process.stdout.close()


@pytest.fixture(scope="session")
def browser(build_dir):
    started = Browser(build_dir)
    yield started
    started.close()
