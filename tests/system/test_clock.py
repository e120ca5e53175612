"""What takes minutes and hours, with a clock that the test moves."""

import pytest

from test_stations import A, B, associate, backup_lines, wait_online
from wsmlab.clock import Clock


@pytest.fixture
def clock(lab):
    clock = Clock(lab)
    lab.start_all(environment=clock.environment)
    return clock


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


def test_restored_stations_that_nobody_confirms_are_swept_after_five_minutes(lab, clock):
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
