"""Fixtures of the packaging tests: the tree, and what it installs."""

import pathlib
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "lab"))


@pytest.fixture(scope="session")
def tree():
    """The root of the source tree."""
    return ROOT


@pytest.fixture(scope="session")
def feed():
    """The package's folder for a device's build system."""
    return ROOT / "openwrt" / "wsmd"


@pytest.fixture(scope="session")
def bundled(build_dir):
    """True when the base libraries are those of the tree."""
    return (build_dir / "bin" / "ubusd").exists()


@pytest.fixture(scope="session")
def installed(build_dir, tmp_path_factory):
    """A folder into which the build was installed, as below a prefix."""
    prefix = tmp_path_factory.mktemp("installed") / "usr"
    subprocess.run(["cmake", "--install", build_dir, "--prefix", prefix], check=True, capture_output=True)
    return prefix


@pytest.fixture
def open_lab(build_dir, sanitized):
    """Opens access points with the options given; they are closed, and checked, after the test."""
    from wsmlab import Lab
    labs = []

    def open_one(**options):
        labs.append(Lab(build_dir, patience=8.0 if sanitized else 4.0, **options).__enter__())
        return labs[-1]

    yield open_one
    try:
        for lab in labs:
            lab.end()
    finally:
        for lab in labs:
            lab.space.close()
