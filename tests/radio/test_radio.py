"""Real radios: the stories, played in one virtual machine with this build's programs. ./test --radio runs them.

Each story is a test of its own here; its result comes while the machine still plays the next ones. The programs' output is
in radio-results/ of the build folder.
"""

import json
import pathlib
import re
import shutil
import subprocess
import sys
import time

import pytest

FOLDER = pathlib.Path(__file__).resolve().parent
LAB = FOLDER.parents[1] / "lab"
sys.path.insert(0, str(LAB))

from wsmlab.scenario import for_any_driver  # noqa: E402


def named(path, decorated):
    return re.findall(rf"^@{decorated}\ndef (\w+)", path.read_text(encoding="utf-8"), flags=re.M)


STORIES = [*named(FOLDER / "client_stories.py", r"story\(.*\)"), *(path.stem for path in for_any_driver()),
           *named(FOLDER / "service_stories.py", r"story\(.*\)")]
LIMIT = 3600  # seconds, for all of them, on a machine with other work
NO_MACHINE = 125


class Machine:
    """The virtual machine while it plays; its results."""

    def __init__(self, build_dir):
        self.results = build_dir / "radio-results"
        shutil.rmtree(self.results, ignore_errors=True)
        self.results.mkdir()
        with (self.results / "machine.log").open("wb") as log:
            self.process = subprocess.Popen(
                [LAB / "vm", "--time", str(LIMIT), "--out", self.results, "--empty", "/tmp", "--empty", "/etc/config",
                 "env", f"PYTHONPATH={LAB}", "python3", FOLDER / "stories.py", build_dir], stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def told(self):
        """What is over: story -> its line."""
        path = self.results / "results"
        lines = path.read_text(encoding="utf-8").splitlines(keepends=True) if path.exists() else []
        return {one["story"]: one for one in (json.loads(line) for line in lines if line.endswith("\n"))}

    def verdict(self, story):
        while True:
            ended = self.process.poll() is not None  # before the last look
            if story in (told := self.told()):
                return told[story]
            if ended:
                said = (self.results / "machine.log").read_text(errors="replace")
                if self.process.returncode == NO_MACHINE and not told:
                    pytest.skip("no virtual machine here: " + said.strip()[-300:])
                raise AssertionError(f"{story} was not played: status {self.process.returncode}\n{said[-3000:]}")
            time.sleep(0.5)


@pytest.fixture(scope="module")
def machine(build_dir):
    machine = Machine(build_dir)
    yield machine
    if machine.process.poll() is None:
        machine.process.terminate()
        machine.process.wait(60)


@pytest.mark.parametrize("story", STORIES)
def test_story(machine, story):
    fault = machine.verdict(story)["fault"]
    assert not fault, fault
