"""What ./test and ./demo do before they start: scripts/prepare.sh."""

import os
import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]


def prepare(script, folder=ROOT, **environment):
    """Runs bash code after sourcing prepare.sh; returns (status, output, errors)."""
    done = subprocess.run(["bash", "-c", f". {ROOT}/scripts/prepare.sh\n{script}"], cwd=folder, capture_output=True, text=True,
                          check=False, env={**os.environ, **environment})
    return done.returncode, done.stdout, done.stderr


def packages(probes):
    return prepare(f'for entry in "${{{probes}[@]}}"; do echo "${{entry##*:}}"; done')[1].split()


def test_the_readme_names_the_packages_that_a_build_needs():
    line = re.search(r"^apt-get install ([^#]+)#", (ROOT / "README.md").read_text(encoding="utf-8"), re.MULTILINE)[1]
    assert line.split() == packages("BUILD_PROBES")


def test_the_readmes_command_begins_a_build(tmp_path):
    line = re.search(r"^cmake -S \. .*? && cmake --build build\b", (ROOT / "README.md").read_text(encoding="utf-8"), re.MULTILINE)[0]
    line = line.replace(" build", f" {tmp_path}/tree") + " -- -n"  # it only says what it would do: to do it takes minutes
    done = subprocess.run(["sh", "-c", line], cwd=ROOT, capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (0, "")
    assert re.search(r"\[\d+/\d+\]", done.stdout.splitlines()[-1])


def test_each_command_installs_no_more_than_it_needs():
    build, demo, tests = (set(packages(f"{name}_PROBES")) for name in ("BUILD", "DEMO", "TESTS"))
    assert build < demo < tests
    assert not {"libgtest-dev", "shellcheck", "debootstrap", "python3-pytest", "groff-base"} & demo


def test_who_is_not_root_is_told_in_one_line_what_to_install(tmp_path):
    (tmp_path / "id").write_text("#!/bin/sh\necho 1000\n")
    (tmp_path / "id").chmod(0o755)
    status, out, errors = prepare(f"PATH={tmp_path}:$PATH; prepare_packages command:no-such-program:no-such-package")
    assert (status, out) == (1, "")
    assert errors == "missing packages; install them as root: apt-get install no-such-package\n"


def program(folder, name, script):
    (folder / name).write_text(f"#!/bin/sh\n{script}\n")
    (folder / name).chmod(0o755)


def test_a_service_that_is_installed_is_not_started(tmp_path):
    policy = tmp_path / "policy"
    program(tmp_path, "id", "echo 0")
    program(tmp_path, "apt-get", f"{policy}; echo $? >{tmp_path}/answer")
    status, out, errors = prepare(f"POLICY={policy}; PATH={tmp_path}:$PATH; prepare_packages command:no-such-program:a-broker")
    assert (status, out, errors) == (0, "installing a-broker\n", "")
    assert (tmp_path / "answer").read_text() == "101\n"  # no service may be started
    assert not policy.exists()


def test_a_build_goes_on_when_its_reader_has_seen_enough(tmp_path):
    program(tmp_path, "ninja", f"for i in 1 2 3 4; do echo [$i/4] part; done; echo done >{tmp_path}/built")
    reader, writer = os.pipe()
    os.close(reader)  # as of `| head`
    done = subprocess.run(["bash", "-c", f". {ROOT}/scripts/prepare.sh; PATH={tmp_path}:$PATH; ninja_lines build"],
                          stdout=writer, stderr=subprocess.PIPE, check=False)
    os.close(writer)
    assert (done.returncode, done.stderr) == (0, b"")
    assert (tmp_path / "built").exists()


def test_a_build_folder_of_a_tree_that_was_moved_is_named(tmp_path):
    (tmp_path / "build").mkdir()
    (tmp_path / "build/CMakeCache.txt").write_text("CMAKE_HOME_DIRECTORY:INTERNAL=/somewhere/else\n")
    status, out, errors = prepare("prepare_build build", tmp_path)
    assert (status, out) == (1, "")
    assert errors == (f"{tmp_path}/build was built for /somewhere/else, from where this tree has been moved or copied: "
                      "remove build\n")


def test_a_build_folder_of_another_user_is_named(tmp_path):
    if os.geteuid() != 0:
        pytest.skip("only root can be somebody else")
    (tmp_path / "build").mkdir(mode=0o755)
    tmp_path.chmod(0o755)
    for parent in tmp_path.parents:
        if parent.name.startswith("pytest-") or parent.name.startswith("popen-"):
            parent.chmod(0o755)
    script = f"cd {tmp_path}; . /dev/stdin; build_folder_trouble build"
    done = subprocess.run(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "bash", "-c", script],
                          stdin=open(ROOT / "scripts/prepare.sh", "rb"), capture_output=True, text=True, check=False)
    assert done.stdout == f"{tmp_path}/build belongs to another user (root): remove it as that user, or build in a copy of the tree\n"


def test_a_build_that_can_be_used_is_no_trouble(tmp_path):
    (tmp_path / "build").mkdir()
    (tmp_path / "build/CMakeCache.txt").write_text(f"CMAKE_HOME_DIRECTORY:INTERNAL={tmp_path}\n")
    assert prepare("build_folder_trouble build; build_folder_trouble build-new", tmp_path)[:2] == (0, "")


def test_a_build_shows_its_progress_and_what_failed(tmp_path):
    (tmp_path / "CMakeLists.txt").write_text(
        "cmake_minimum_required(VERSION 3.18)\nproject(p NONE)\nadd_custom_target(fine ALL COMMAND true)\n"
        "add_custom_target(bad COMMAND sh -c \"echo the reason; exit 3\")\n")
    status, out, errors = prepare("prepare_build build", tmp_path)
    assert (status, errors) == (0, "")
    assert re.fullmatch(r"building build: \d+ of \d+\n", out)
    status, _, errors = prepare("set -e; TARGETS=(bad); prepare_build build", tmp_path)
    assert status == 1
    assert "the reason" in errors
