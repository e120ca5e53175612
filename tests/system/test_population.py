"""Many stations: a restart with a full table, more stations than a bus message can carry, and a full disk."""

import pytest

from stations import A, B, associate, backup_lines, wait_online
from wsmlab import BusError

FULL = 512


def burst(lab, count):
    lab.apsim(f"burst n={count}")
    lab.wait(lambda: len(lab.reports()) >= count, 60, f"{count} reports")


def identity(stations):
    kept = ("mac", "ip", "name", "radio_id", "ssid", "ssid_ifname", "vlanid", "status", "is_reassoc", "repeater_type")
    return {station["mac"]: [station[key] for key in kept] for station in stations}


def test_512_stations_come_back_whole_after_a_kill(running_lab):
    burst(running_lab, FULL)
    running_lab.wait((running_lab.files / "sta_sta.info").exists, 30, "the first pass")
    running_lab.wait(lambda: len(backup_lines(running_lab)) == FULL, 30, f"{FULL} lines")
    before = running_lab.online()
    running_lab.daemon.kill()
    running_lab.start_daemon()
    after = running_lab.online()
    assert len(after) == FULL
    assert identity(after.values()) == identity(before.values())
    assert len(backup_lines(running_lab)) == FULL
    counters = (running_lab.files / "sta_devc.info").read_text()
    assert counters == f"0 0 0 0 {FULL}\n"


def test_a_list_longer_than_a_bus_message_is_an_error_and_the_rest_goes_on(open_lab):
    lab = open_lab(capability='{"wireless":{"radiolist":[{"sta_limit_max":4000}]}}').start_all()
    burst(lab, 1200)
    asked = {"get_all_sta_status": "", "get_sta_count": "all"}
    lab.wait(lambda: lab.bus("call", "sta", "get", asked) == {"count": 1200}, 30, "1,200 stations")
    with pytest.raises(BusError) as refused:
        lab.online()
    assert refused.value.status == 11
    associate(lab, A)
    assert set(lab.online(A)) == {A}


def test_a_full_disk_stops_no_report_and_loses_no_station(running_lab):
    associate(running_lab, A)
    wait_online(running_lab, A)
    running_lab.run(["mount", "-t", "tmpfs", "-o", "remount,size=2M", "tmpfs", "/tmp"])
    running_lab.run(["sh", "-c", "cat /dev/zero > /tmp/all-of-it"], check=False)
    associate(running_lab, B)
    wait_online(running_lab, A, B)
    # The old file stays complete and is not half rewritten.
    assert all(len(line.split()) == 24 for line in backup_lines(running_lab))
    (running_lab.files / "all-of-it").unlink()
    running_lab.wait(lambda: len(backup_lines(running_lab)) == 2, 15, "both lines")
    running_lab.daemon.kill()
    running_lab.start_daemon()
    assert set(running_lab.online()) == {A, B}
