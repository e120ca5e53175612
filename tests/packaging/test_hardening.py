"""What the device's programs are built with, read from the built files."""

import re
import subprocess

import pytest

LIBRARIES = ["libdebug.so", "libwas.so", "libubox.so", "libblobmsg_json.so", "libubus.so", "libuci.so", "libwsm-record.so"]
PROGRAMS = ["wsmd", "wsm-bridge", "ubusd", "ubus", "uci"]


def readelf(path, *options):
    return subprocess.run(["readelf", "-W", *options, path], check=True, capture_output=True, text=True).stdout


def built(build_dir, name):
    path = build_dir / ("lib" if name.endswith(".so") else "bin") / name
    if not path.exists():
        pytest.skip(f"{name} is the system's")
    return path


@pytest.mark.parametrize("name", PROGRAMS)
def test_a_program_can_be_loaded_anywhere(build_dir, name):
    assert re.search(r"Type:\s+DYN", readelf(built(build_dir, name), "-h"))


@pytest.mark.parametrize("name", PROGRAMS + LIBRARIES)
def test_its_tables_are_read_only_once_it_is_loaded(build_dir, name):
    path = built(build_dir, name)
    assert "GNU_RELRO" in readelf(path, "-l")
    assert re.search(r"BIND_NOW|FLAGS.*NOW", readelf(path, "-d"))


@pytest.mark.parametrize("name", PROGRAMS + LIBRARIES)
def test_its_stack_cannot_be_executed_and_nothing_is_writable_and_executable(build_dir, name):
    segments = re.findall(r"^\s+(\w+)\s+(?:0x\w+\s+){5}([RWE ]{3})", readelf(built(build_dir, name), "-l"), re.M)
    assert ("GNU_STACK", "RW ") in segments
    assert not [kind for kind, flags in segments if "W" in flags and "E" in flags]


@pytest.mark.parametrize("name", PROGRAMS + LIBRARIES)
def test_it_needs_no_cxx_runtime_library(build_dir, name, sanitized):
    if sanitized:
        pytest.skip("the sanitizers need it")
    needed = re.findall(r"NEEDED.*\[(.*)\]", readelf(built(build_dir, name), "-d"))
    assert not [library for library in needed if library.startswith(("libstdc++", "libc++", "libgcc_s"))]


@pytest.mark.parametrize("name", ["wsmd", "ubusd", "ubus", "libdebug.so", "libubox.so", "libubus.so", "libuci.so"])
def test_a_smashed_stack_ends_the_program(build_dir, name, sanitized):
    if sanitized:
        pytest.skip("the sanitizers bring their own checks")
    assert "__stack_chk_fail" in readelf(built(build_dir, name), "--dyn-syms")


@pytest.mark.parametrize("name", ["wsmd", "libdebug.so", "libubox.so"])
def test_formatting_and_copying_check_the_size_of_what_they_write(build_dir, name, sanitized, cache):
    if sanitized or cache["CMAKE_BUILD_TYPE"] == "Debug":
        pytest.skip("_FORTIFY_SOURCE needs an optimized build")
    symbols = readelf(built(build_dir, name), "--dyn-syms")
    assert re.search(r"__v?snprintf_chk", symbols)


@pytest.mark.parametrize("name", ["wsmd"])
def test_a_library_path_goes_before_the_folder_of_the_build(build_dir, name):
    tags = readelf(built(build_dir, name), "-d")
    assert "(RUNPATH)" in tags and "(RPATH)" not in tags
