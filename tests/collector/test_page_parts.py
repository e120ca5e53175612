"""The parts of the collector's page that need no browser, by node's own test runner: figures, order, choices, axes, stays."""

import pathlib
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PARTS = sorted((ROOT / "tests/collector/web").glob("*.test.mjs"))


@pytest.fixture(scope="module")
def tree(tmp_path_factory):
    """A copy with a package.json that declares its scripts modules: not every version of node detects it."""
    folder = tmp_path_factory.mktemp("page")
    for part in ("collector/web", "tests/collector/web"):
        shutil.copytree(ROOT / part, folder / part)
    (folder / "package.json").write_text('{"type": "module"}')
    return folder


@pytest.mark.skipif(not shutil.which("node"), reason="node is not installed (package nodejs)")
@pytest.mark.parametrize("part", [path.name for path in PARTS])
def test_a_part_of_the_page(tree, part):
    done = subprocess.run(["node", "--test", f"tests/collector/web/{part}"], cwd=tree, capture_output=True, text=True, timeout=120, check=False)
    assert done.returncode == 0, done.stdout + done.stderr
