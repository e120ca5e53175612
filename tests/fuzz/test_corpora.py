"""Every fuzz target is run once over each input of its corpus, without a fuzzing engine.

A target build/fuzz/NAME-replay has its inputs in corpus/NAME/: seeds, and each input that once made it fail.
"""

import pathlib
import re
import subprocess

import pytest

FUZZ = pathlib.Path(__file__).resolve().parent
TARGETS = sorted(
    name
    for lists in FUZZ.glob("*/CMakeLists.txt")
    for name in re.findall(r"^\s*wsmd_fuzzer\((\w+)", lists.read_text(encoding="utf-8"), re.MULTILINE))


@pytest.mark.parametrize("target", TARGETS)
def test_target_survives_every_input_of_its_corpus(build_dir, target):
    done = subprocess.run([build_dir / "fuzz" / f"{target}-replay", FUZZ / "corpus" / target],
                          capture_output=True, text=True, errors="replace", timeout=300, check=False)
    assert done.returncode == 0, done.stdout + done.stderr


def test_every_corpus_has_its_target():
    folders = sorted(folder.name for folder in (FUZZ / "corpus").iterdir() if folder.is_dir())
    assert folders == sorted([*TARGETS, "scenario_parser"])  # that one: test_scenario_parser.py
