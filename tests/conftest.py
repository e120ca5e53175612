"""One runner for all tests: pytest also collects the GoogleTest programs in BUILD/tests.

Every GoogleTest case is an item of its own, run in a process of its own. So pytest's final count is the count of all tests,
and no case can depend on what an earlier one left behind.
"""

import collections
import os
import pathlib
import shlex
import signal
import subprocess
import tempfile

import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent

# A shell's background job ignores these signals, and so would every program that a test starts and then interrupts.
signal.signal(signal.SIGINT, signal.default_int_handler)
signal.signal(signal.SIGQUIT, signal.SIG_DFL)


def pytest_addoption(parser):
    parser.addoption("--build-dir", default=str(ROOT / "build"), help="folder of the build under test")
    parser.addoption("--wrapper", default="", help="words before every GoogleTest program, like those of a memory checker")
    parser.addoption("--browser", action="store_true", help="collect the tests in a browser, for which ./test --browser installs one")
    parser.addoption("--minutes", action="store_true", help="collect the tests that take minutes")
    parser.addoption("--fleet", action="store_true", help="collect the tests with a cluster of brokers and a database")
    parser.addoption("--radio", action="store_true", help="collect the tests with radios, which play in a virtual machine")


def pytest_ignore_collect(collection_path, config):
    asked_for = {ROOT / "tests/browser": "--browser", ROOT / "tests/radio": "--radio",
                 ROOT / "tests/collector/test_minutes.py": "--minutes", ROOT / "tests/fleet": "--fleet"}
    return True if collection_path in asked_for and not config.getoption(asked_for[collection_path]) else None


@pytest.fixture(scope="session")
def build_dir(request):
    """The folder of the build under test, with bin/, lib/ and tests/ in it."""
    return pathlib.Path(request.config.getoption("--build-dir")).resolve()


@pytest.fixture(scope="session")
def cache(build_dir):
    """The settings of the build under test, by name."""
    lines = (build_dir / "CMakeCache.txt").read_text(encoding="utf-8").splitlines()
    settings = (line.split("=", 1) for line in lines if "=" in line and not line.startswith(("#", "//")))
    return {name.split(":")[0]: value for name, value in settings}


@pytest.fixture(scope="session")
def sanitized(cache):
    """True when the programs were built with the sanitizers."""
    return cache.get("WSMD_SANITIZE") == "ON"


def pytest_collect_file(parent, file_path):
    # A CMakeLists.txt that calls wsmd_gtest() stands for the programs it builds.
    if file_path.name == "CMakeLists.txt" and "wsmd_gtest(" in file_path.read_text(encoding="utf-8"):
        return GTestFolder.from_parent(parent, path=file_path)
    return None


def pytest_collection_modifyitems(config, items):
    """Mixes the files when several processes share the tests, which are handed out by hundreds of neighbours: a file whose tests
    take a minute each would keep one process when the others have nothing left to do. The quick ones in C++ come last."""
    if not hasattr(config, "workerinput"):
        return
    files = collections.defaultdict(list)
    for item in items:
        files[item.path].append(item)
    places = {}
    for number, tests in enumerate(files.values()):
        quick = isinstance(tests[0], GTestCase)
        shared = not quick and any(definitions[-1].scope == "module" for item in tests
                                   for definitions in item._fixtureinfo.name2fixturedefs.values())  # set up once for the file
        for at, item in enumerate(tests):
            places[item] = at / len(tests) if quick else (number / len(files) if shared else at / len(tests)) * 0.7
    items.sort(key=places.get)


def emulator(build):
    """The words before a program of a build for another architecture; none for this machine's own."""
    for line in (build / "CMakeCache.txt").read_text(encoding="utf-8").splitlines():
        if line.startswith("CMAKE_CROSSCOMPILING_EMULATOR:"):
            return line.split("=", 1)[1].split()
    return []


class GTestFolder(pytest.File):
    def collect(self):
        build = pathlib.Path(self.config.getoption("--build-dir")).resolve()
        for line in self.path.read_text(encoding="utf-8").splitlines():
            if line.strip().startswith("wsmd_gtest("):
                name = line.strip()[len("wsmd_gtest("):].split()[0].rstrip(")")
                command = [*emulator(build), build / "tests" / name]
                wrapper = shlex.split(self.config.getoption("--wrapper"))
                yield GTestProgram.from_parent(self, name=name, command=command, wrapper=wrapper)


class GTestProgram(pytest.Collector):
    def __init__(self, *, command, wrapper, **kw):
        super().__init__(**kw)
        self.command, self.wrapper = command, wrapper

    def collect(self):
        listed = subprocess.run([*self.command, "--gtest_list_tests"], capture_output=True, text=True, check=True)
        suite = ""
        for line in listed.stdout.splitlines():
            word = line.split("#")[0].strip()
            if line.startswith(" "):
                yield GTestCase.from_parent(self, name=suite + word, command=[*self.wrapper, *self.command])
            elif word.endswith("."):
                suite = word


class GTestCase(pytest.Item):
    def __init__(self, *, command, **kw):
        super().__init__(**kw)
        self.command = command

    def runtest(self):
        # Its temporary files are removed, also when it was killed and could not do that itself.
        with tempfile.TemporaryDirectory(prefix="wsmd-test-", ignore_cleanup_errors=True) as folder:
            os.chmod(folder, 0o711)  # some give up their rights in it
            environment = dict(os.environ, GTEST_BRIEF="1", GTEST_COLOR="no", TMPDIR=folder)
            done = subprocess.run([*self.command, f"--gtest_filter={self.name}"], capture_output=True, text=True,
                                  errors="replace", timeout=900, env=environment, check=False)
        if "[  SKIPPED ]" in done.stdout and done.returncode == 0:
            reason = [line for line in done.stdout.splitlines() if line and not line.startswith("[")]
            pytest.skip(" ".join(reason[-1:]) or "skipped by the test itself")
        if done.returncode != 0:
            raise GTestFailure(f"exit status {done.returncode}\n{done.stdout}{done.stderr}")

    def repr_failure(self, excinfo, style=None):
        if isinstance(excinfo.value, GTestFailure):
            return str(excinfo.value)
        return super().repr_failure(excinfo, style)

    def reportinfo(self):
        return self.path, None, f"{self.command[-1].name}: {self.name}"


class GTestFailure(Exception):
    """A GoogleTest case that failed; its text is what the case printed."""
