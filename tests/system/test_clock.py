"""Behaviour over minutes and hours, with a clock that the test moves."""

import os
import time

import pytest

from stations import A, B, associate, backup_lines, wait_online


def test_a_station_is_retired_300_seconds_after_the_driver_has_listed_it_last(lab, clock):
    for mac in (A, B):
        associate(lab, mac)
    wait_online(lab, A, B)
    lab.bus("call", "sta", "set", {"set_update_log_period": 60})
    lab.wait_for_report(mac=B, log_type=3)
    lab.apsim(f"forget mac={A}")
    clock.move(290)
    lab.bus("call", "sta", "set", {"set_update_log_period": 60})
    lab.wait_for_report(mac=A, log_type=3)  # still reported, with its old figures
    assert A in lab.online()
    clock.move(15)
    lab.bus("call", "sta", "set", {"set_update_log_period": 60})
    lab.wait_for_report(mac=A, log_type=2)
    assert set(lab.online()) == {B}
    assert [line.split()[1] for line in backup_lines(lab)] == [B]


def test_stations_in_two_networks_of_one_radio_stay(lab, clock):
    # The driver is asked once for a radio, through one network's interface, and lists all of them.
    associate(lab, A)
    lab.apsim(f'assoc mac={B} ifname=ath01 radio=0 ssid="Lobby Guest"')
    wait_online(lab, A, B)
    for round_ in range(1, 5):
        clock.move(100)
        lab.bus("call", "sta", "set", {"set_update_log_period": 60})
        for mac in (A, B):
            lab.wait(lambda mac=mac: len([report for report in lab.reports()
                                          if report["mac"] == mac and report["log_type"] == 3]) >= round_,
                     10, f"report {round_} of {mac}")
    assert set(lab.online()) == {A, B}
    assert [report for report in lab.reports() if report["log_type"] == 2] == []


def test_unconfirmed_restored_stations_are_swept_after_five_minutes(lab, clock):
    for mac in (A, B):
        associate(lab, mac)
    wait_online(lab, A, B)
    lab.wait(lambda: len(backup_lines(lab)) == 2, 10, "two lines")
    lab.daemon.kill()
    families = lab.logged("Creat a new g_sta.")
    lab.start_daemon(environment=clock.environment)
    lab.wait_for_log("Creat a new g_sta.", families + 1)
    associate(lab, B)  # comes back by itself; A does not
    clock.move(290)
    wait_online(lab, A, B)
    clock.move(15)
    report = lab.wait_for_report(mac=A, log_type=2)
    assert report["restored"] == 1
    assert report["offline_ts"] > report["online_ts"] > 0
    lab.wait(lambda: set(lab.online()) == {B}, 10, "only the confirmed station")
    assert [line.split()[1] for line in backup_lines(lab)] == [B]


def test_each_timer_keeps_its_pace(lab, clock):
    associate(lab, A)

    def passes():  # each fetches the driver's table once; only passes ask without the second section
        return sum(request.get("sections") == 1 for request in lab.driver_requests())

    def done_in(seconds, count):
        """How many more passes there are after this number of seconds, and how many seconds it really were."""
        before, since = count(), time.monotonic()
        clock.skip(seconds * 1000)
        lab.wait(lambda: clock.idle, 60, f"{seconds} seconds to be over")
        return count() - before, seconds + time.monotonic() - since

    # One more when one is due right at the beginning. The passes' work takes time, too.
    more, seconds = done_in(62, passes)
    assert 12 <= more <= seconds / 5 + 1
    more, seconds = done_in(182, lambda: lab.logged("update period:60 s"))
    assert 3 <= more <= seconds / 60 + 1
    since = time.monotonic()
    lab.bus("call", "sta", "set", {"set_update_log_period": 10})
    assert lab.logged("update time=10") == lab.logged("update period:10 s") == 1
    more, _ = done_in(32, lambda: lab.logged("update period:10 s"))
    assert 3 <= more <= (32 + time.monotonic() - since) / 10


def replace(path, text, written):
    """The whole file at once, with its time."""
    new = path.with_name(f".{path.name}.new")
    new.write_text(text)
    os.utime(new, (written, written))
    new.replace(path)


def test_changed_settings_are_read_and_logged_once_within_ten_seconds(lab, clock):
    path = lab.root / "etc/config/wsmd"
    assert lab.logged("log_level: ") == 1
    for count, level in enumerate((3, 4), 2):
        replace(path, f"config wsmd 'main'\n\toption loglevel '{level}'\n", 1700000000 + count)
        clock.skip(10000)
        lab.wait_for_log(f"log_level: {level}", timeout=8)
        clock.skip(35000)
        lab.wait(lambda: clock.idle, 30, "three more looks at the file")
        assert lab.logged("log_level: ") == lab.logged("log_file_name: ") == count
        path.unlink()  # a missing file is no change, and the polls go on
        clock.skip(15000)
        lab.wait(lambda: clock.idle, 30, "a look at no file")
        assert lab.logged("log_level: ") == count


def test_a_changed_snooping_table_is_not_copied(lab, clock):
    for written in (1700000001, 1700000002):
        replace(lab.files / "snoop_ip", f"1 {A} 10.0.0.9 br-lan\n", written)
        replace(lab.root / "etc/config/wsmd", "config wsmd 'main'\n", written)
        clock.skip(15000)
        lab.wait(lambda: clock.idle, 30, "a look at the watched files")
    assert lab.logged("log_level: ") == 3, "the other watcher has looked twice"
    assert not (lab.files / "snoop_ip_bak").exists()


@pytest.mark.parametrize("hours", [7, -7])
def test_a_wall_clock_that_jumps_by_hours_disturbs_nothing(lab, clock, hours):
    associate(lab, A)
    clock.move(wall=hours * 3600)
    wait_online(lab, A)
    before = lab.online()[A]["oltime"]
    assert 0 <= before < 60
    clock.move(wall=-hours * 3600)
    associate(lab, B)
    wait_online(lab, A, B)
    lab.bus("call", "sta", "set", {"set_update_log_period": 60})
    lab.wait_for_report(mac=A, log_type=3)
    assert before <= lab.online()[A]["oltime"] < 120
    lab.apsim(f"disassoc mac={A} reason=309")
    assert lab.wait_for_report(mac=A, log_type=2)["reason"] == "OW_STA_DEAUTH"
