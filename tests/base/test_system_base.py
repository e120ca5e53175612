"""The tree against base libraries that are already installed: our own play the system's."""

import subprocess

import pytest


def run(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def test_programs_around_the_base_build_against_installed_libraries(build_dir, cache, tmp_path, pytestconfig):
    if not (build_dir / "bin/ubusd").exists():
        pytest.skip("this build is itself one against the system's libraries")
    run("cmake", "--install", build_dir, "--prefix", tmp_path / "usr", "--component", "base")
    same = [f"-D{name}={cache[name]}" for name in ("CMAKE_CXX_COMPILER", "CMAKE_C_COMPILER", "WSMD_SANITIZE")]
    told = run("cmake", "-S", pytestconfig.rootpath, "-B", tmp_path / "build", "-G", "Ninja", *same, "-DCMAKE_BUILD_TYPE=Debug",
               "-DWSMD_BASE=system", f"-DCMAKE_PREFIX_PATH={tmp_path}/usr")
    assert "Base libraries: of the system" in told
    folders = [f"tests/fuzz/{library}/all" for library in ("libubox", "libubus", "libuci")]
    run("cmake", "--build", tmp_path / "build", "--target", "base/all", "tests/base/all", *folders)
    made = {path.name for path in (tmp_path / "build/fuzz").iterdir()}
    assert {"fuzz_blobmsg-replay", "fuzz_ubus_client-replay", "fuzz_uci_edit-replay"} <= made
