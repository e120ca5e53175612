"""The package for a device's build system: what it describes, what it installs, and that its scripts and rules work."""

import json
import os
import re
import shutil
import subprocess

import pytest

from init_scripts import STUBS, run_init
from trees import files_below


def make(tree, feed, *arguments, **variables):
    """Runs the package's Makefile with stand-ins for the build system's own."""
    command = ["make", "--no-print-directory", "-C", feed, f"TOPDIR={tree / STUBS}", f"INCLUDE_DIR={tree / STUBS}",
               *(f"{name}={value}" for name, value in variables.items()), *arguments]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


@pytest.fixture
def described(tree, feed):
    return dict(line.split("=", 1) for line in make(tree, feed, "describe").splitlines())


# --- the Makefile ---

def test_the_release_is_that_of_the_tree(described, tree):
    version = re.search(r"project\(wsmd VERSION ([\d.]+)", (tree / "CMakeLists.txt").read_text(encoding="utf-8"))[1]
    assert described["NAME"] == "wsmd"
    assert described["VERSION"] == version
    assert described["RELEASE"] == "1"


def test_it_names_licence_and_maintainer(described, tree):
    assert described["LICENSE"] == "MIT"
    assert (tree / described["LICENSE_FILES"]).read_text(encoding="utf-8").startswith("MIT License")
    assert re.fullmatch(r".+ <.+@.+>", described["MAINTAINER"])


def test_it_has_six_packages_and_each_has_a_title_of_one_line(described):
    titles = {name.split(".")[0]: value for name, value in described.items() if name.endswith(".TITLE")}
    assert sorted(titles) == ["libdebug-open", "libwas-open", "wsm-bridge", "wsm-collector", "wsmd", "wsmd-tools"]
    assert all(10 < len(title) <= 70 for title in titles.values())


def test_the_daemon_leaves_open_who_brings_the_vendor_libraries(described):
    depends = described["wsmd.DEPENDS"].split()
    assert {"+libdebug", "+libwas"} <= set(depends)
    assert not {"+libdebug-open", "+libwas-open"} & set(depends)
    assert described["libdebug-open.PROVIDES"] == "libdebug"
    assert described["libwas-open.PROVIDES"] == "libwas"


def test_it_builds_against_the_devices_own_base_libraries(described):
    assert {"-DWSMD_BASE=system", "-DWSMD_TESTS=OFF"} <= set(described["CMAKE_OPTIONS"].split())


def test_the_configuration_survives_an_upgrade(described):
    assert described["wsmd.conffiles"] == "/etc/config/wsmd"
    assert described["wsm-collector.conffiles"] == "/etc/config/wsm-collector"
    assert described["libdebug-open.conffiles"] == "/etc/config/debug"
    assert described["wsm-bridge.conffiles"] == "/etc/config/wsm-bridge"


def test_the_bridge_has_a_user_of_its_own_and_the_device_s_netlink_library(described):
    assert described["wsm-bridge.USERID"] == "wsm-bridge:wsm-bridge"
    assert {"+libnl-tiny", "+libwas-open", "+procd-ujail"} <= set(described["wsm-bridge.DEPENDS"].split())
    assert "-DWSMD_NETLINK=libnl-tiny" in described["CMAKE_OPTIONS"].split()


def test_the_group_of_the_bus_rules_is_made(described, feed):
    group = json.loads((feed / "files/usr/share/acl.d/wsmd.json").read_text())["group"]
    assert described["wsmd.USERID"].split(":")[1] == group


def test_what_is_packed_is_what_was_installed(tree, feed, installed, tmp_path):
    if not (installed / "bin/apsim").exists() or not (installed / "sbin/wsm-bridge").exists():
        pytest.skip("built without the lab or the bridge")
    staged = tmp_path / "staged"
    staged.mkdir()
    (staged / "usr").symlink_to(installed)
    packages = ["wsmd", "wsm-bridge", "libdebug-open", "libwas-open", "wsmd-tools", "wsm-collector"]
    make(tree, feed, *(f"install-{name}" for name in packages), PKG_INSTALL_DIR=staged, DEST=tmp_path / "packed")
    assert {name: files_below(tmp_path / "packed" / name) for name in packages} == {
        "wsmd": ["etc/capabilities/wsmd.json", "etc/config/wsmd", "etc/init.d/wsmd", "etc/uci-defaults/wsmd",
                 "usr/bin/wsm", "usr/sbin/wsm-check", "usr/sbin/wsmd", "usr/share/acl.d/wsmd.json", "usr/share/rpcd/acl.d/wsmd.json"],
        "wsm-bridge": ["etc/capabilities/wsm-bridge.json", "etc/config/wsm-bridge", "etc/init.d/wsm-bridge", "usr/sbin/wsm-bridge"],
        "libdebug-open": ["etc/config/debug", "usr/lib/libdebug.so"],
        "libwas-open": ["usr/lib/libwas.so"],
        "wsmd-tools": ["usr/bin/apsim", "usr/bin/dhcpmon", "usr/bin/wsm-record", "usr/lib/libwsm-record.so"],
        "wsm-collector": ["etc/config/wsm-collector", "etc/init.d/wsm-collector", "usr/bin/wsm-collector",
                          *(f"usr/share/wsmd/web/{name}" for name in files_below(tree / "collector/web"))],
    }
    packed = tmp_path / "packed/wsmd"
    modes = {name: (packed / name).stat().st_mode & 0o777 for name in files_below(packed)}
    assert modes["etc/config/wsmd"] == 0o600
    assert modes["usr/share/acl.d/wsmd.json"] == 0o644
    assert (tmp_path / "packed/wsm-collector/etc/config/wsm-collector").stat().st_mode & 0o777 == 0o600
    assert {modes[name] for name in ("usr/sbin/wsmd", "etc/init.d/wsmd", "etc/uci-defaults/wsmd")} == {0o755}


def test_the_files_folder_holds_nothing_that_is_not_packed(feed):
    makefile = (feed / "Makefile").read_text(encoding="utf-8")
    for name in files_below(feed / "files"):
        assert f"./files/{name} " in makefile, name


def test_other_programs_get_the_vendor_libraries_headers(tree, feed, installed, tmp_path):
    (tmp_path / "usr").symlink_to(installed)
    make(tree, feed, "dev", PKG_INSTALL_DIR=tmp_path, DEST=tmp_path)
    assert files_below(tmp_path / "dev") == [
        "usr/include/debug/dbg.h", "usr/include/was/was.h", "usr/lib/libdebug.so", "usr/lib/libwas.so",
        "usr/lib/pkgconfig/libdebug.pc", "usr/lib/pkgconfig/libwas.pc"]


def test_the_patches_of_the_package_are_applied(tree, feed, tmp_path):
    make(tree, feed, "prepare", PKG_BUILD_DIR=tmp_path / "source")
    assert (tmp_path / "source/patched").exists()


def test_what_is_taken_from_the_tree_is_enough_to_configure_a_build(tree, feed, tmp_path):
    make(tree, feed, "prepare", PKG_BUILD_DIR=tmp_path / "source")
    subprocess.run(["cmake", "-S", tmp_path / "source", "-B", tmp_path / "build", "-DWSMD_TESTS=OFF", "-DWSMD_LAB=OFF",
                    "-DWSMD_BASE=bundled"], check=True, capture_output=True)


def test_every_header_of_the_tree_that_its_programs_include_is_taken_from_it(tree, feed, tmp_path):
    make(tree, feed, "prepare", PKG_BUILD_DIR=tmp_path / "source")
    source = tmp_path / "source"
    here = {name for name in files_below(source) if name.endswith(".h")}
    endings = {"/".join(name.split("/")[at:]) for name in here for at in range(name.count("/") + 1)}
    for path in sorted(source.rglob("*.cpp")) + sorted(source.rglob("*.h")):
        for header in re.findall(r'^#include "(.+)"', path.read_text(encoding="utf-8"), re.M):
            assert header in endings, f"{path.relative_to(source)} includes {header}"
    assert {"protocol/was_wire.h", "drivers/nl80211/bridge.h"} <= here


# --- the init scripts ---

def run_bridge_init(tree, feed, call, tmp_path):
    """The same for the bridge's script, with its folders below `tmp_path`."""
    script = (f'. "{tree / STUBS}/procd.sh"; . "{feed}/files/etc/init.d/wsm-bridge"; '
              f'RUN="{tmp_path}"; HOSTAPD_RIGHTS="{tmp_path}/wpad.json"; {call}')
    done = subprocess.run(["sh", "-c", script], check=False, capture_output=True, text=True)
    assert done.stderr == ""
    return [line.split() for line in done.stdout.splitlines()]


def test_the_bridge_answers_in_the_folder_where_only_root_can_make_a_socket(tree, feed, tmp_path):
    calls = run_bridge_init(tree, feed, "start_service", tmp_path)
    assert ["procd_set_param", "command", "/usr/sbin/wsm-bridge", "--socket", f"{tmp_path}/wsm-bridge/was.sock",
            "--control", "/var/run/hostapd"] in calls
    assert ["chown", "wsm-bridge:root", f"{tmp_path}/wsm-bridge"] in calls
    assert (tmp_path / "wsm-bridge").stat().st_mode & 0o7777 == 0o2750
    assert os.readlink(tmp_path / "was.sock") == "wsm-bridge/was.sock"
    run_bridge_init(tree, feed, "start_service; stop_service", tmp_path)
    assert not (tmp_path / "was.sock").is_symlink()


def test_the_bridge_is_started_again_for_ever_as_its_own_user_with_one_right(tree, feed, tmp_path):
    calls = run_bridge_init(tree, feed, "start_service", tmp_path)
    assert ["procd_set_param", "respawn", "3600", "1", "0"] in calls
    assert ["procd_set_param", "user", "wsm-bridge"] in calls
    assert ["procd_set_param", "no_new_privs", "1"] in calls
    assert ["procd_set_param", "capabilities", "/etc/capabilities/wsm-bridge.json"] in calls
    assert ["procd_add_jail", "wsm-bridge", "requirejail"] in calls
    rights = json.loads((feed / "files/etc/capabilities/wsm-bridge.json").read_text())
    assert sorted(rights) == ["ambient", "bounding", "effective", "inheritable", "permitted"]
    assert all(one == ["CAP_NET_ADMIN"] for one in rights.values())


@pytest.mark.parametrize("has_user, group", [(True, "network"), (False, "root")], ids=["as its own user", "as root"])
def test_the_bridge_may_use_the_sockets_of_a_hostapd_that_runs(tree, feed, tmp_path, has_user, group):
    if has_user:
        (tmp_path / "wpad.json").touch()
    assert ["procd_set_param", "group", group] in run_bridge_init(tree, feed, "start_service", tmp_path)


def test_the_bridge_has_the_radios_of_its_configuration(tree, feed, tmp_path):
    calls = run_bridge_init(tree, feed, "BRIDGE_RADIOS='wlan2=0 wlan3=1'; BRIDGE_CONTROL=/elsewhere; start_service", tmp_path)
    assert ["procd_append_param", "command", "--radio", "wlan2=0"] in calls
    assert ["procd_append_param", "command", "--radio", "wlan3=1"] in calls
    assert [call[-2:] for call in calls if call[1:2] == ["command"]][0] == ["--control", "/elsewhere"]
    assert run_bridge_init(tree, feed, "service_triggers", tmp_path) == [["procd_add_reload_trigger", "wsm-bridge"]]


def test_the_daemon_is_started_again_for_ever(tree, feed, tmp_path):
    calls = run_init(tree, feed, "start_service", tmp_path)
    assert calls[0] == ["procd_open_instance"] and calls[-1] == ["procd_close_instance"]
    assert ["procd_set_param", "command", "/usr/sbin/wsmd"] in calls
    assert ["procd_set_param", "respawn", "3600", "5", "0"] in calls


def test_another_role_of_the_device_is_another_instance(tree, feed, tmp_path):
    assert ["procd_set_param", "data", "mod_type=ap", "debug=3"] in run_init(tree, feed, "start_service", tmp_path)
    assert run_init(tree, feed, "service_triggers", tmp_path) == [["procd_add_reload_trigger", "system", "debug"]]


def test_without_a_capability_file_one_is_made_with_a_limit_for_each_radio(tree, feed, tmp_path):
    calls = run_init(tree, feed, "start_service", tmp_path, capability_text=None)
    assert ["procd_set_param", "command", "/usr/sbin/wsmd"] in calls
    made = json.loads((tmp_path / "tk_device/tk_device.json").read_text())
    assert made == {"wireless": {"wireless_path": "/etc/config", "radiolist": [
        {"name": "radio0", "sta_limit_max": 256}, {"name": "radio1", "sta_limit_max": 256}]}}
    assert files_below(tmp_path) == ["tk_device/tk_device.json"]


def test_a_maker_s_capability_file_stays_as_it_is(tree, feed, tmp_path):
    run_init(tree, feed, "start_service", tmp_path, capability_text='{"maker": 1}')
    assert (tmp_path / "tk_device/tk_device.json").read_text() == '{"maker": 1}'


def test_without_radios_it_is_not_started_and_the_system_log_says_why(tree, feed, tmp_path):
    calls = run_init(tree, feed, "RADIOS=; start_service", tmp_path, capability_text=None)
    assert [call[0] for call in calls] == ["logger"]
    assert " ".join(calls[0]).startswith("logger -t wsmd -p daemon.err not started: no ")


def test_the_jail_has_the_bus_the_log_and_nothing_it_may_write_but_its_places(tree, feed, tmp_path):
    calls = run_init(tree, feed, "start_service", tmp_path)
    assert ["procd_add_jail", "wsmd", "ubus", "log", "procfs", "requirejail"] in calls
    writable = [call[1:] for call in calls if call[0] == "procd_add_jail_mount_rw"]
    assert writable == [["/tmp", "/var/run", "/dev/console"]]
    read_only = {path for call in calls if call[0] == "procd_add_jail_mount" for path in call[1:]}
    assert {"/lib", "/usr/lib", "/bin/sh", "/etc/passwd", "/etc/group"} <= read_only
    assert not read_only & {"/", "/etc", "/usr", "/root", "/dev", "/proc", "/sys"}


def test_the_jail_shows_the_wireless_configuration_where_the_device_keeps_it(tree, feed, tmp_path):
    folder = tmp_path / "elsewhere"
    folder.mkdir()
    assert ["procd_add_jail_mount", str(folder)] in run_init(tree, feed, "start_service", tmp_path, wireless=folder)


def test_the_jail_leaves_the_rights_that_iptables_and_the_driver_ask_for(tree, feed, tmp_path):
    calls = run_init(tree, feed, "start_service", tmp_path)
    assert ["procd_set_param", "capabilities", "/etc/capabilities/wsmd.json"] in calls
    assert ["procd_set_param", "no_new_privs", "1"] in calls
    sets = json.loads((feed / "files/etc/capabilities/wsmd.json").read_text())
    assert sorted(sets) == ["ambient", "bounding", "effective", "inheritable", "permitted"]
    assert all(rights == ["CAP_NET_ADMIN", "CAP_NET_RAW"] for rights in sets.values())


def test_the_shell_finds_nothing_wrong_with_the_scripts(feed):
    if shutil.which("shellcheck") is None:
        pytest.skip("shellcheck is not installed")
    scripts = [feed / f"files/etc/{name}" for name in ("init.d/wsmd", "init.d/wsm-bridge", "init.d/wsm-collector",
                                                       "uci-defaults/wsmd")]
    scripts.append(feed / "test.sh")
    done = subprocess.run(["shellcheck", "-s", "dash", *scripts], capture_output=True, text=True, check=False)
    assert done.stdout == ""


# --- the configuration ---

DEFAULTS = {"debug": "0", "syslog": "0", "loglevel": "5", "log_file": "1", "log_file_level": "6",
            "log_file_size": "65536", "log_file_name": "/tmp/sta.log", "departed": "128"}


def test_every_option_is_explained_and_set_to_its_default(feed):
    lines = (feed / "files/etc/config/wsmd").read_text(encoding="utf-8").splitlines()
    options = {}
    for number, line in enumerate(lines):
        if found := re.match(r"\toption (\w+) '(.*)'$", line):
            options[found[1]] = found[2]
            comment, above = [], number - 1
            while lines[above].startswith("\t# "):
                comment.insert(0, lines[above][3:])
                above -= 1
            assert f"Default {found[2]}" in " ".join(comment), f"{found[1]} has no comment with its default"
    assert options == DEFAULTS


def settings(lab):
    """The options of wsmd.main as the configuration tool sees them."""
    lines = lab.run(["uci", "show", "wsmd"]).stdout.splitlines()
    assert lines[0] == "wsmd.main=wsmd"
    return {key.removeprefix("wsmd.main."): value.strip("'") for key, value in (line.split("=", 1) for line in lines[1:])}


@pytest.mark.parametrize("before, kept", [
    (None, {}),
    ("config wsmd 'main'\n", {}),
    ("config wsmd 'main'\n\toption loglevel '7'\n\toption log_file_name '/tmp/other log'\n",
     {"loglevel": "7", "log_file_name": "/tmp/other log"}),
    ("config other 'main'\n\toption loglevel '7'\n", {}),
], ids=["no file", "no options", "some options", "a section of another type"])
def test_an_upgrade_adds_the_options_that_are_missing_and_keeps_the_others(open_lab, feed, before, kept):
    lab = open_lab(config={"wsmd": before})
    script = lab.root / "run/wsmd-defaults"
    script.write_bytes((feed / "files/etc/uci-defaults/wsmd").read_bytes())
    for _ in range(2):  # the second time it has nothing to do
        done = lab.run(["sh", "/run/wsmd-defaults"])
        assert (done.stdout, done.stderr) == ("", "")
        assert settings(lab) == {**DEFAULTS, **kept}
        assert lab.run(["uci", "changes"]).stdout == ""


# --- the rules of bus and web login ---

def test_the_web_login_reads_and_writes_apart(feed):
    rules = json.loads((feed / "files/usr/share/rpcd/acl.d/wsmd.json").read_text())
    assert list(rules) == ["wsmd"] and rules["wsmd"]["description"]
    assert rules["wsmd"]["read"] == {"ubus": {"sta": ["get"], "wsmd": ["stations", "station", "departed", "health"], "sta.debug": ["get"]},
                                     "uci": ["wsmd"]}
    assert rules["wsmd"]["write"] == {"ubus": {"sta": ["set", "delete"], "sta.debug": ["set"]}, "uci": ["wsmd"]}


MEMBER, STRANGER = 4711, 65534  # group ids: of the group of the rules, of another that the system knows
DENIED = 6                      # what the bus answers


@pytest.fixture
def ruled_lab(open_lab, feed, bundled):
    """A running access point whose broker enforces the package's rules."""
    if not bundled:
        pytest.skip("the broker is the system's")
    if os.geteuid() != 0:
        pytest.skip("only root can be somebody else")
    lab = open_lab()
    # /etc/group is a link out of the lab: replaced, never written through.
    lab.run(["sh", "-c", f"cat /etc/group > /run/group && echo wsmd:x:{MEMBER}: >> /run/group && "
                         "rm /etc/group && cp /run/group /etc/group && mkdir -m 755 /run/acl.d"])
    rules = lab.root / "run/acl.d/wsmd.json"
    rules.write_bytes((feed / "files/usr/share/acl.d/wsmd.json").read_bytes())
    rules.chmod(0o644)
    lab.start("ubusd", ["ubusd", "-A", "/run/acl.d"])
    lab.wait(lambda: lab.run(["ubus", "list"], check=False).status == 0, 10, "the broker")
    lab.start_apsim()
    lab.start_collector()
    lab.start_daemon()
    return lab


def as_group(group, *command):
    return ["setpriv", "--reuid=65534", f"--regid={group}", "--clear-groups", *command]


def test_a_member_of_the_group_may_ask_for_stations_and_do_nothing_else(ruled_lab):
    def status(*words):
        return ruled_lab.run(as_group(MEMBER, "ubus", "-S", *words), check=False).status

    assert ruled_lab.bus("list") == ["sta", "sta.debug", "wsmd"]  # for root
    assert ruled_lab.run(as_group(MEMBER, "ubus", "list")).stdout == "sta\nwsmd\n"
    assert status("call", "sta", "get", '{"get_all_sta_status":"online"}') == 0
    assert status("call", "wsmd", "stations", "{}") == 0
    assert status("call", "sta", "set", '{"set_update_log_period":1}') == DENIED
    assert status("call", "sta", "delete", '{"mac":"02:00:00:00:00:01","radio":0}') == DENIED
    assert status("call", "sta.debug", "set", '{"level":7}') != 0
    assert status("send", "ip_change", "{}") == DENIED
    assert ruled_lab.logged("update_time = 1") == 0


def test_a_member_of_the_group_hears_of_stations_and_nothing_else(ruled_lab):
    heard = ruled_lab.start("member", as_group(MEMBER, "ubus", "listen", "ip_change"))
    denied = ruled_lab.run(as_group(MEMBER, "ubus", "listen", "dhcp_client_update"), check=False)
    assert denied.stderr == "Error while registering for event 'dhcp_client_update': Permission denied\n"

    def events():
        ruled_lab.bus("send", "ip_change", {"mac": "x"})
        return heard.text()
    ruled_lab.wait(events, 10, "an event")
    assert heard.text().startswith('{ "ip_change": {"mac":"x"} }')

    told = ruled_lab.start("subscriber", as_group(MEMBER, "ubus", "subscribe", "sta"))

    def notifications():
        ruled_lab.apsim("assoc mac=02:00:00:00:00:01 ifname=ath0 radio=0")
        return told.text()
    ruled_lab.wait(notifications, 10, "a notification")
    assert "notify_sta_status" in told.text()


def test_who_is_not_in_the_group_sees_nothing(ruled_lab):
    def run(*words):
        return ruled_lab.run(as_group(STRANGER, "ubus", *words), check=False)

    assert (run("list").status, run("list").stdout) == (0, "")
    assert run("call", "sta", "get", '{"get_all_sta_status":"online"}').status != 0
    assert "Permission denied" in run("listen", "ip_change").stderr
    assert run("subscribe", "sta").status != 0
