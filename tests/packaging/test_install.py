"""What `cmake --install` installs on an ordinary Linux, and that it works from there."""

import os
import subprocess

import pytest

from trees import files_below

DAEMON = {
    "include/debug/dbg.h", "include/was/was.h",
    "lib/libdebug.so", "lib/libwas.so", "lib/pkgconfig/libdebug.pc", "lib/pkgconfig/libwas.pc",
    "lib/systemd/system/wsmd.service", "lib/tmpfiles.d/wsmd.conf",
    "bin/wsm", "sbin/wsm-check", "sbin/wsmd",
    "share/bash-completion/completions/wsm", "share/man/man1/wsm.1",
    "share/acl.d/wsmd.json",
    "share/doc/wsmd/README.Debian", "share/doc/wsmd/copyright",
    "share/doc/wsmd/examples/config/debug", "share/doc/wsmd/examples/config/sysinfo",
    "share/doc/wsmd/examples/config/system",
    "share/doc/wsmd/examples/config/wifiinfo", "share/doc/wsmd/examples/config/wireless",
    "share/doc/wsmd/examples/config/wsmd", "share/doc/wsmd/examples/tk_device/tk_device.json",
    "share/man/man8/wsm-check.8", "share/man/man8/wsmd.8",
}
BASE = {
    "bin/ubus", "bin/uci", "sbin/ubusd",
    *(f"include/libubox/{name}.h" for name in
      ("assert", "avl", "avl-cmp", "blob", "blobmsg", "blobmsg_json", "decls", "list", "uloop", "utils")),
    "include/libubus.h", "include/ubus_common.h", "include/ubusmsg.h", "include/uci.h", "include/uci_config.h",
    *(f"lib/lib{name}.so" for name in ("blobmsg_json", "ubox", "ubus", "uci")),
    *(f"lib/pkgconfig/lib{name}.pc" for name in ("blobmsg_json", "ubox", "ubus", "uci")),
    "lib/systemd/system/ubusd.service",
    "share/doc/wsmd-base/copyright",
}
BRIDGE = {
    "lib/systemd/system/wsm-bridge.service",
    "sbin/wsm-bridge",
    "share/doc/wsm-bridge/bridge.md", "share/doc/wsm-bridge/copyright",
    "share/doc/wsm-bridge/examples/config/wifiinfo", "share/doc/wsm-bridge/examples/config/wireless",
    "share/man/man8/wsm-bridge.8",
}
TOOLS = {
    "bin/apsim", "bin/dhcpmon", "bin/wsm-record", "bin/wsm-replay",
    "lib/libwsm-record.so",
    "share/doc/wsmd-tools/copyright",
    *(f"share/man/man1/{name}.1" for name in ("apsim", "dhcpmon", "wsm-record", "wsm-replay")),
}
COLLECTOR = {
    "bin/wsm-collector", "lib/systemd/system/wsm-collector.service", "lib/systemd/system/wsm-collector.socket",
    "lib/sysusers.d/wsm-collector.conf", "share/doc/wsm-collector/copyright", "share/man/man1/wsm-collector.1",
    "share/wsmd/wsm-collector.conf",
}
FLEET = {"bin/wsm-fleet-sim", "share/man/man1/wsm-fleet-sim.1"}

PROGRAM = """
#include <debug/dbg.h>
#include <libubox/blobmsg_json.h>
#include <libubus.h>
#include <stdio.h>
#include <uci.h>
#include <was/was.h>

int main(void) {
    struct blob_buf b = {0};
    blobmsg_buf_init(&b);
    blobmsg_add_u32(&b, "stations", 3);
    char *text = blobmsg_format_json(b.head, true);
    puts(text);
    free(text);
    blob_buf_free(&b);
    puts(ubus_strerror(UBUS_STATUS_NO_DATA));
    struct uci_context *uci = uci_alloc_context();
    printf("%s %d %d\\n", uci->confdir, dbg_module_reg("main"), was_ext_ioctl_msg(NULL, 0, NULL, 0, 0));
    uci_free_context(uci);
    return 0;
}
"""


def test_every_file_has_its_place(installed, build_dir, cache, bundled, tree):
    page = {f"share/wsmd/web/{name}" for name in files_below(tree / "collector/web")}
    lab = cache.get("WSMD_LAB") == "ON"
    bridge = BRIDGE if (build_dir / "bin/wsm-bridge").exists() else set()
    fleet = FLEET if (build_dir / "bin/wsm-fleet-sim").exists() else set()
    expected = DAEMON | bridge | fleet | (BASE if bundled else set()) | (TOOLS | COLLECTOR | page if lab else set())
    assert files_below(installed) == sorted(expected)


def test_nothing_remembers_where_it_was_built(installed, build_dir):
    for name in files_below(installed):
        if name.endswith((".pc", ".service", ".json", ".8", ".1")):
            assert str(build_dir) not in (installed / name).read_text(encoding="utf-8"), name
    programs = [*(installed / "sbin").iterdir(), *(installed / "bin").iterdir(), *(installed / "lib").glob("*.so")]
    for program in programs:
        if program.read_bytes()[:2] == b"#!":
            assert str(build_dir).encode() not in program.read_bytes(), program
            continue
        tags = subprocess.run(["readelf", "-d", program], check=True, capture_output=True, text=True).stdout
        assert str(build_dir) not in tags, program


def test_a_program_in_c_builds_against_the_installed_tree_and_runs(installed, bundled, sanitized, tmp_path):
    if not bundled:
        pytest.skip("the base libraries are those of the system")
    if sanitized:
        pytest.skip("the libraries need the sanitizers' own")
    (tmp_path / "program.c").write_text(PROGRAM, encoding="utf-8")
    environment = dict(os.environ, PKG_CONFIG_PATH=str(installed / "lib/pkgconfig"),
                       LD_LIBRARY_PATH=str(installed / "lib"))
    flags = subprocess.run(
        ["pkg-config", "--cflags", "--libs", "libblobmsg_json", "libubus", "libuci", "libdebug", "libwas"],
        check=True, capture_output=True, text=True, env=environment).stdout.split()
    assert f"-L{installed}/lib" in [os.path.normpath(flag) if flag[0] != "-" else flag[:2] + os.path.normpath(flag[2:])
                                    for flag in flags]
    subprocess.run(["cc", "-D_GNU_SOURCE", "-Wall", "-Werror", tmp_path / "program.c", "-o", tmp_path / "program", *flags],
                   check=True, env=environment)
    done = subprocess.run([tmp_path / "program"], check=True, capture_output=True, text=True, env=environment)
    assert done.stdout == '{"stations":3}\nNo response\n/etc/config 0 -1\n'


def test_manual_pages_are_well_formed(tree):
    for page in (tree / "docs/man").iterdir():
        done = subprocess.run(["groff", "-man", "-Tascii", "-ww", "-z", page], capture_output=True, text=True)
        assert (done.returncode, done.stderr) == (0, ""), page.name
