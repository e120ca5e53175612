"""The daemon's life: the order of its start, one instance only, the end by a signal, and what stops a start."""

import signal
import stat

import pytest

from wsmlab import Lab

LOCK = "/tmp/.sta_file_lockpath"
EMPTY_MANGLE = [":PREROUTING ACCEPT", ":INPUT ACCEPT", ":FORWARD ACCEPT", ":OUTPUT ACCEPT", ":POSTROUTING ACCEPT"]
DAEMONS_CHAINS = [":PREROUTING-outgoing -", ":POSTROUTING-incoming -"]


def positions(lines, texts):
    """For each text the first line that holds it, searched from the line of the text before."""
    found, start = [], 0
    for text in texts:
        start = next((number for number, line in enumerate(lines) if number >= start and text in line), None)
        assert start is not None, f"{text!r} is not in the log after {texts[:len(found)]}"
        found.append(start)
    return found


def wrap_iptables(lab, before="", after=""):
    """Replaces iptables with a script that records its arguments and runs shell lines around the real one."""
    link = lab.root / "run/lab/bin/iptables"
    real = link.readlink()
    link.unlink()
    link.write_text(f'#!/bin/sh\necho "$*" >> /run/lab/iptables.log\n{before}\n{real} "$@"\nstatus=$?\n{after}\n'
                    "exit $status\n")
    link.chmod(0o755)


def iptables_commands(lab):
    try:
        return (lab.root / "run/lab/iptables.log").read_text().splitlines()
    except FileNotFoundError:
        return []


def test_start_up_takes_its_steps_in_order(running_lab):
    positions(running_lab.log_lines(), [
        "log_console: 0", "log_file_name: /tmp/sta.log", "WSMD starting..", "Run in function sta_ubus_object_connect!",
        "Run in function sta_sta_register_ip_change_event!", "Run in function sta_sta_register_dhcp_update_event!",
        "Run in function sta_sta_register_dev_mode_change_event!", "radio_json len = 2!",
        "g_path = /etc/config/wireless w_path=/etc/config", "Function sta_service_start:", "sta netlink init",
        "get sta family id failed.", "sta mem_total_cnt ", "update period:60 s", "WSMD init finish.."])


def test_a_daemon_without_the_package_of_its_settings_starts_with_defaults(open_lab):
    lab = open_lab(config={"wsmd": None}).start_all()
    assert lab.logged("log_level: ") == 0, "a missing package is not read"
    assert lab.bus("list", "sta") == ["sta"]


def test_a_second_instance_ends_at_once_and_changes_nothing(running_lab):
    rules = running_lab.firewall_rules("mangle")
    second = running_lab.run(["wsmd"], check=False)
    assert (second.status, second.stdout, second.stderr) == (255, "", "")
    assert running_lab.logged("WSMD starting..") == 1
    assert running_lab.firewall_rules("mangle") == rules
    assert running_lab.daemon.running


def test_a_lock_that_cannot_be_opened_ends_the_start_silently(lab):
    lab.run(["mkdir", LOCK])
    done = lab.run(["wsmd"], check=False)
    assert (done.status, done.stdout, done.stderr) == (255, "", "")
    assert lab.log_lines() == []


def test_the_lock_file_is_the_owners_alone_and_stays_after_the_end(running_lab):
    assert running_lab.daemon.stop() == 1
    mode = (running_lab.files / ".sta_file_lockpath").stat().st_mode
    assert stat.S_ISREG(mode) and stat.S_IMODE(mode) == 0o700


def test_arguments_and_environment_are_not_read(lab):
    lab.start_ubusd()
    lab.daemon = lab.start("wsmd", ["wsmd", "--help", "-x", "y"], environment={"WSMD": "1", "LC_ALL": "nowhere"})
    lab.wait_for_log("WSMD init finish..", timeout=30)
    assert lab.bus("call", "sta", "get", {"get_all_sta_status": "x"}) == {"count": "0"}


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_ends_it_with_status_1_and_without_its_chains(running_lab, number):
    assert set(DAEMONS_CHAINS) < set(running_lab.firewall_rules("mangle"))
    running_lab.run(["iptables", "-t", "nat", "-A", "prerouting_lan", "-s", "10.0.0.1", "-j", "RETURN", "-w"])
    running_lab.daemon.signal(number)
    assert running_lab.daemon.wait(20) == 1
    assert running_lab.firewall_rules("mangle") == EMPTY_MANGLE
    assert "-A prerouting_lan -s 10.0.0.1/32 -j RETURN" not in running_lab.firewall_rules("nat")
    assert ":prerouting_lan -" in running_lab.firewall_rules("nat")


def test_a_period_that_is_always_due_does_not_hold_up_a_stop(running_lab):
    walks = running_lab.logged("update period:-1000 s")
    running_lab.bus("call", "sta", "set", {"set_update_log_period": -1000})
    running_lab.wait_for_log("update period:-1000 s", walks + 2)
    assert running_lab.daemon.stop() == 1


def test_its_last_words_name_the_module_and_nothing_else(running_lab):
    running_lab.daemon.stop()
    ends = [line for line in running_lab.log_lines() if "Function sta_deinit:" in line]
    assert len(ends) == 1 and ends[0].endswith(" MAIN")
    assert running_lab.logged("terminating") == 0


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_during_start_up_is_obeyed_when_the_start_is_over(lab, number):
    # The third chain command of start-up waits until it is told to go on.
    wrap_iptables(lab, before='case "$*" in *"-N POSTROUTING-incoming"*) touch /run/lab/there; '
                              "until test -e /run/lab/go; do sleep 0.01; done;; esac")
    lab.start_ubusd()
    daemon = lab.start_daemon(wait=False)
    lab.wait((lab.root / "run/lab/there").exists, 30, "the third chain command")
    daemon.signal(number)
    (lab.root / "run/lab/go").touch()
    assert daemon.wait(20) == 1
    assert lab.logged("WSMD init finish..") == 1
    assert lab.firewall_rules("mangle") == EMPTY_MANGLE


def test_a_second_signal_does_not_cut_the_clean_up_short(lab):
    wrap_iptables(lab, before='if test -e /run/lab/ending; then case "$*" in *"-D POSTROUTING"*) touch /run/lab/there; '
                              "until test -e /run/lab/go; do sleep 0.01; done;; esac; fi")
    lab.start_ubusd()
    daemon = lab.start_daemon()
    (lab.root / "run/lab/ending").touch()
    daemon.signal(signal.SIGTERM)
    lab.wait((lab.root / "run/lab/there").exists, 10, "the fourth command of the clean-up")
    daemon.signal(signal.SIGTERM)
    (lab.root / "run/lab/go").touch()
    assert daemon.wait(20) == 1
    assert lab.firewall_rules("mangle") == EMPTY_MANGLE


def test_a_broken_pipe_does_not_end_it(running_lab):
    running_lab.daemon.signal(signal.SIGPIPE)
    assert running_lab.bus("call", "sta", "get", {"get_all_sta_status": "x"}) == {"count": "0"}


def test_chains_that_a_killed_daemon_left_are_replaced(running_lab):
    rules = running_lab.firewall_rules("mangle")
    running_lab.daemon.kill()
    running_lab.run(["iptables", "-t", "mangle", "-A", "PREROUTING-outgoing", "-s", "10.0.0.1", "-j", "RETURN", "-w"])
    running_lab.start_daemon()
    assert running_lab.firewall_rules("mangle") == rules


def test_a_failing_chain_command_ends_the_start(lab):
    wrap_iptables(lab, after='case "$*" in *"-N PREROUTING-outgoing"*) status=2;; esac')
    lab.start_ubusd()
    assert lab.start_daemon(wait=False).wait(30) == 1
    assert lab.logged("iptables command failed(2): iptables -t mangle -N PREROUTING-outgoing -w") == 1
    assert lab.logged("Sta-manage FW init fail") == 1
    assert iptables_commands(lab)[-1] == "-t mangle -N PREROUTING-outgoing -w"


def test_a_missing_capability_file_ends_the_start(open_lab):
    lab = open_lab(capability=None)
    wrap_iptables(lab)
    lab.start_ubusd()
    watch = lab.watch_bus()
    assert lab.start_daemon(wait=False).wait(30) == 1
    watch.wait_for_event("ubus.object.add", path="sta")
    positions(lab.log_lines(), ["(err)fopen [/tmp/tk_device/tk_device.json] fail!",
                                "(err)Open file[/tmp/tk_device/tk_device.json] fail!", "dev cap table init FAIL!!!",
                                "wifi_services cap table init failed, exit now!"])
    assert iptables_commands(lab) == []


@pytest.mark.parametrize("text", ["", "hello", "null", "[]", '{"wireless"', '{"wireless":null}', '{"wireless":[1]}',
                                  '{"wireless":{"radiolist":null}}', '{"wireless":{"radiolist":"x"}}',
                                  '{"wireless":{"radiolist":{}}}'])
def test_a_capability_file_of_the_wrong_shape_leaves_a_limit_of_no_stations(open_lab, text):
    lab: Lab = open_lab(capability=text).start_all()
    lab.apsim("assoc mac=02:00:00:00:00:01 ifname=ath0 radio=0")
    lab.wait_for_report(mac="02:00:00:00:00:01", log_type=1)
    lab.wait_for_log("sta add user 02:00:00:00:00:01 failed ! reach max sta_numbers 0.")
    assert lab.online() == {}


def test_an_empty_radio_list_means_512_stations(open_lab):
    lab = open_lab(capability='{"wireless":{"radiolist":[]}}').start_all()
    lab.apsim("assoc mac=02:00:00:00:00:01 ifname=ath0 radio=0")
    lab.wait_for_report(mac="02:00:00:00:00:01", log_type=1)
    assert list(lab.online()) == ["02:00:00:00:00:01"]
