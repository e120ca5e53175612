"""What an operator sees of each fault in the log of a device with the default log level."""

import pathlib
import re
import signal

import pytest

from wsmlab.clock import Clock
from wsmlab.overflow import overflow

DEFAULTS = {"debug": None}  # no /etc/config/debug: the threshold is the library's
MAC = "02:00:00:00:00:01"
OPERATIONS = pathlib.Path(__file__).resolve().parents[2] / "docs/operations.md"


def notices(lab):
    """The texts of the NOTICE lines so far."""
    return [line.split("NOTICE: ", 1)[1] for line in lab.log_lines() if "NOTICE: " in line]


def wait_for_notice(lab, text):
    lab.wait(lambda: text in notices(lab), 20, f"the notice {text!r} among {notices(lab)}")


@pytest.fixture
def device(open_lab):
    """Opens a lab with the configuration of a device as shipped, with the broker running."""
    def open_one(**options):
        lab = open_lab(config={**DEFAULTS, **options.pop("config", {})}, **options)
        if options.pop("broker", True):
            lab.start_ubusd()
        return lab
    return open_one


def test_without_a_driver_the_log_says_that_no_station_can_be_seen(device):
    lab = device()
    lab.start_daemon(wait=False)
    wait_for_notice(lab, "no driver has announced the family TK_STA yet: no station can be seen")
    lab.start_apsim()
    wait_for_notice(lab, "the driver has announced the family TK_STA")


def test_a_missing_collector_is_logged_once_and_its_return_with_the_count(device):
    lab = device()
    lab.start_apsim()
    lab.start_daemon(wait=False)
    wait_for_notice(lab, "the driver has announced the family TK_STA")
    for number in range(3):
        lab.apsim(f"assoc mac=02:00:00:00:00:0{number} ifname=ath0 radio=0")
    wait_for_notice(lab, "no collector at /tmp/sta_server_domain: reports are lost")
    # Each of the three has an arrival and an early log-up, and whether those were lost before the collector came is a matter of time.
    lab.start_collector()
    lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0")
    lab.wait_for_report(log_type=1)
    back = lab.wait(lambda: [text for text in notices(lab) if text.startswith("the collector is back, ")], 20, "its return")
    assert int(back[0].split()[4]) >= 3
    assert notices(lab).count("no collector at /tmp/sta_server_domain: reports are lost") == 1


def test_without_a_capability_file_the_log_names_it_and_the_daemon_ends(device):
    lab = device(capability=None)
    lab.start_apsim()
    daemon = lab.start_daemon(wait=False)
    assert daemon.wait(20) == 1
    assert notices(lab)[-1] == "no capability file /tmp/tk_device/tk_device.json"
    assert any("wifi_services cap table init failed, exit now!" in line for line in lab.log_lines())


@pytest.mark.parametrize("text", ["{", '{"wireless":{}}'])
def test_a_capability_file_without_radios_is_said(device, text):
    lab = device(capability=text)
    lab.start_apsim()
    lab.start_daemon(wait=False)
    wait_for_notice(lab, "the capability file has no radios: no station can be kept")


def test_a_full_table_is_said_once_with_the_station_that_is_refused(device):
    lab = device(capability='{"wireless":{"radiolist":[{"sta_limit_max":2}]}}')
    lab.start_apsim()
    lab.start_collector()
    lab.start_daemon(wait=False)
    wait_for_notice(lab, "the driver has announced the family TK_STA")
    for number in range(1, 3):
        lab.apsim(f"assoc mac=02:00:00:00:00:0{number} ifname=ath0 radio=0")
    lab.wait(lambda: [station["status"] for station in lab.online().values()] == [1, 1], 20, "two online stations")
    for number in range(3, 5):
        lab.apsim(f"assoc mac=02:00:00:00:00:0{number} ifname=ath0 radio=0")
        lab.wait_for_report(mac=f"02:00:00:00:00:0{number}", log_type=1)
    assert [text for text in notices(lab) if text.startswith("the table")] == [
        "the table is full with 2 stations: 02:00:00:00:00:03 is not kept"]


def test_without_a_broker_the_log_says_so_until_one_comes(open_lab):
    lab = open_lab(config=DEFAULTS)
    lab.start_apsim()
    lab.start_daemon(wait=False)
    wait_for_notice(lab, "no bus broker answers: trying again every two seconds")
    lab.start_ubusd()
    wait_for_notice(lab, "connected to the bus broker")


def programs_but_iptables(lab):
    """A folder with the programs of the lab's search path, without iptables."""
    folder = lab.root / "run/programs"
    folder.mkdir()
    for place in reversed(lab.space.environment["PATH"].split(":")):
        for program in pathlib.Path(place).iterdir() if pathlib.Path(place).is_dir() else []:
            if not program.name.startswith(("iptables", "xtables")):
                (folder / program.name).unlink(missing_ok=True)
                (folder / program.name).symlink_to(program)
    return "/run/programs"


def programs_and_an_iptables_that_fails(lab):
    failing = lab.root / "run/failing"
    failing.mkdir()
    (failing / "iptables").write_text("#!/bin/sh\nexit 1\n")
    (failing / "iptables").chmod(0o755)
    return f"/run/failing:{lab.space.environment['PATH']}"


@pytest.mark.parametrize("path, said", [(programs_but_iptables, "iptables: not found"), (programs_and_an_iptables_that_fails, "")])
def test_without_iptables_the_log_says_that_nothing_is_counted(device, path, said):
    lab = device()
    lab.start_apsim()
    lab.start_daemon(wait=False, environment={"PATH": path(lab)})
    wait_for_notice(lab, "iptables failed: bytes to and from the uplink are not counted")
    assert said in lab.daemon.text()


def test_lost_events_of_the_driver_are_said(device):
    lab = device()
    lab.start_apsim()
    lab.start_collector()
    lab.start_daemon(wait=False)
    wait_for_notice(lab, "the driver has announced the family TK_STA")
    lab.daemon.signal(signal.SIGSTOP)
    assert overflow(lab) > 0
    lab.daemon.signal(signal.SIGCONT)
    wait_for_notice(lab, "events of the driver were lost: its socket was full")


def test_a_backup_file_that_cannot_be_written_is_said_once(device):
    lab = device()
    lab.start_apsim()
    lab.start_collector()
    clock = Clock(lab)
    (lab.files / "sta_sta_tmp.info").mkdir()  # where the new file is made; root may write into any file, but not into a folder
    lab.start_daemon(wait=False, environment=clock.environment)
    wait_for_notice(lab, "the driver has announced the family TK_STA")
    lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0")
    wait_for_notice(lab, "/tmp/sta_sta.info cannot be written: a restart would lose stations")
    clock.skip(20_000)
    lab.wait(lambda: clock.idle, 20, "four passes")
    assert notices(lab).count("/tmp/sta_sta.info cannot be written: a restart would lose stations") == 1


def test_without_the_dhcp_monitor_the_log_says_that_it_is_not_found(device):
    lab = device()
    lab.start_apsim()
    lab.start_daemon(wait=False)
    lab.wait(lambda: any("Failed to lookup object: Not found" in line for line in lab.log_lines()), 30, "the failed look-up")


def test_with_a_full_tmp_stations_are_served_and_kept_as_soon_as_there_is_room(device):
    lab = device()
    lab.start_apsim()
    lab.start_collector()
    lab.start_daemon(wait=False)
    wait_for_notice(lab, "the driver has announced the family TK_STA")
    lab.run(["sh", "-c", "mount -t tmpfs -o remount,size=2m tmpfs /tmp && ! dd if=/dev/zero of=/tmp/filler bs=4096 2>&1"])
    lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0")
    lab.wait_for_report(log_type=3, timeout=30)
    lab.wait(lambda: MAC in lab.online(), 20, "the station")
    lab.run(["rm", "/tmp/filler"])
    backup = lab.files / "sta_sta.info"
    lab.wait(lambda: backup.exists() and MAC in backup.read_text(), 30, "its line in the backup file")


def test_a_healthy_start_says_only_that_the_driver_came(device):
    lab = device()
    lab.start_apsim()
    lab.start_collector()
    lab.start_daemon(wait=False)
    wait_for_notice(lab, "the driver has announced the family TK_STA")
    lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0")
    lab.wait_for_report(log_type=3)
    assert notices(lab) == ["no driver has announced the family TK_STA yet: no station can be seen",
                            "the driver has announced the family TK_STA"]


def documented_commands():
    """The commands that raise the level: at once, from the next start on, and for that start now."""
    text = OPERATIONS.read_text(encoding="utf-8")
    return re.search(r"test_the_documented_commands_raise_the_level -->\n```sh\n(.*?)```", text, re.DOTALL)[1].splitlines()


def test_the_documented_commands_raise_the_level(device):
    lab = device()
    reload_config = lab.root / "run/lab/bin/reload_config"  # a lab has no service manager
    reload_config.write_text("#!/bin/sh\ntouch /run/reloaded\n")
    reload_config.chmod(0o755)
    lab.start_apsim()
    lab.start_daemon(wait=False)
    wait_for_notice(lab, "the driver has announced the family TK_STA")
    at_once, *later = documented_commands()
    lab.run(["sh", "-c", at_once])
    lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0")
    lab.wait(lambda: any(MAC in line and "main 7: " in line for line in lab.log_lines()), 20, "a line of level 7")
    lab.run(["sh", "-ec", "\n".join(later)])
    assert (lab.root / "run/reloaded").exists()
    lab.daemon.stop()
    before = len(lab.log_lines())
    lab.start_daemon(wait=False)
    lab.wait(lambda: any("main 7: " in line for line in lab.log_lines()[before:]), 20, "a line of level 7")


def test_messages_that_found_no_room_are_counted_and_then_named(device):
    lab = device()
    lab.start_apsim()
    lab.start_daemon(wait=False)
    wait_for_notice(lab, "the driver has announced the family TK_STA")
    lab.run(["sh", "-c", "mount -t tmpfs -o remount,size=2m tmpfs /tmp && ! dd if=/dev/zero of=/tmp/filler bs=4096 2>&1"])
    lab.bus("call", "sta.debug", "set", {"level": 7})

    def lost():
        lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0")
        return lab.bus("call", "sta.debug", "get")["lost"]
    lab.wait(lost, 30, "a message without room")
    lab.run(["rm", "/tmp/filler"])
    said = re.compile(r" [1-9]\d* messages lost$")
    lab.wait(lambda: lost() and any(said.search(line) for line in lab.log_lines()), 30, "their number in the log")
