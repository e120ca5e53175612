"""Builds for measuring, in addition to the one for testing."""

import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build-bench"
BUILD_SMALL = ROOT / "build-small"


def prepare(*probes):
    """Installs what is missing, as ./test does; further probes as in scripts/prepare.sh."""
    done = subprocess.run(["bash", "-c", '. scripts/prepare.sh && prepare_packages "$@"', "prepare", *probes],
                          cwd=ROOT, check=False)
    if done.returncode != 0:
        sys.exit(1)


def build(folder, *options, targets=()):
    jobs = ["-j", str(os.cpu_count() or 2)]
    for command in (["cmake", "-S", ROOT, "-B", folder, "-G", "Ninja", "-DWSMD_TESTS=OFF", *options],
                    ["cmake", "--build", folder, *jobs, *(["--target", *targets] if targets else [])]):
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            sys.exit(done.stdout + done.stderr)
