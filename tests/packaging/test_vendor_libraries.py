"""A device's own libdebug and libwas take the place of ours, and the daemon is not built anew for it."""

import re
import subprocess

import pytest

MAC = "02:00:00:00:00:01"


@pytest.fixture
def vendor_lab(open_lab, tree, tmp_path):
    """An access point on which the daemon runs with a maker's libraries, found by the library path."""
    lab = open_lab()
    folder = lab.root / "run/vendor"
    folder.mkdir()
    for name in ("debug", "was"):
        library = tmp_path / f"lib{name}.so"
        subprocess.run(["cc", "-shared", "-fPIC", "-O1", "-Wall", "-Wextra", "-Werror", f"-I{tree}/base/include",
                        tree / f"tests/packaging/vendor/{name}.c", "-o", library], check=True)
        (folder / library.name).write_bytes(library.read_bytes())
    lab.start_ubusd()
    lab.start_apsim()
    lab.start_collector()
    lab.daemon = lab.start("wsmd", ["wsmd"], environment={"LD_LIBRARY_PATH": "/run/vendor"})
    lab.wait(lambda: "Creat a new g_sta." in written(lab, "vendor.log"), 30, "the daemon to know the driver")
    return lab


def written(lab, name):
    try:
        return (lab.files / name).read_text(errors="replace")
    except FileNotFoundError:
        return ""


def test_the_makers_log_library_gets_every_message(vendor_lab):
    log = written(vendor_lab, "vendor.log")
    assert log.startswith("<init> sta /tmp/sta.log 10\n<module> main\n")
    # A few messages of the start have no line feed of their own.
    assert re.search(r"<42:7> Function sta_init:\d+ WSMD starting\.\.\n", log)
    assert "<42:file> Run in function sta_ubus_object_connect!\n" in log
    assert not (vendor_lab.files / "sta.log").exists()


def test_the_makers_bus_object_is_published(vendor_lab):
    assert vendor_lab.bus("list") == ["sta", "vendor.debug", "wsmd"]


def test_the_makers_driver_library_gets_every_request(vendor_lab):
    vendor_lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0")
    vendor_lab.wait_for_report(mac=MAC, log_type=1)
    vendor_lab.bus("call", "sta", "delete", {"mac": MAC, "radio": 0})
    vendor_lab.wait(lambda: re.search(r"^\w+ cmd=4 size=24 arg=0$", written(vendor_lab, "vendor-requests.log"), re.M),
                    10, "the request to drop the station")
    assert vendor_lab.driver_requests() == []
