"""Faults around the daemon: peers that are slow, silent, refuse or die, and resources that run out for a while. Each test
ends with the daemon serving as before and its table equal to the driver's."""

import contextlib
import errno
import signal
import socket
import time

import pytest

from formats import REPORT_SIZE, report_fields
from stations import A, B, C, associate, backup_lines, wait_online, write_leases
from wsmlab.overflow import overflow

LAST = "02:00:00:00:00:99"


def serves_as_before(lab):
    """A new station is reported, goes online and is written; the table equals the driver's; the periodic report comes."""
    associate(lab, LAST)
    truth = {station["mac"] for station in lab.stations()}
    assert set(wait_online(lab, *truth)) == truth
    lab.wait(lambda: {line.split()[1] for line in backup_lines(lab)} == truth, 15, "a line for each station")
    lab.bus("call", "sta", "set", {"set_update_log_period": 60})
    for mac in truth:
        lab.wait(lambda: any(report["mac"] == mac and report["log_type"] == 3 for report in lab.reports()), 10,
                 f"the period report of {mac}")


def process(lab, name):
    return next(one for one in reversed(lab.space.processes) if one.name == name)


def seconds_of_work(lab):
    """Processor time that the daemon has used so far."""
    words = lab.run(["cat", f"/proc/{lab.daemon.pid}/stat"]).stdout.rpartition(")")[2].split()
    return (int(words[11]) + int(words[12])) / 100


def assert_does_not_spin(lab):
    before, since = seconds_of_work(lab), time.monotonic()
    lab.wait(lambda: time.monotonic() - since > 2, 10, "two seconds")
    assert seconds_of_work(lab) - before < 1


def wait_until_idle(lab):
    """Returns when the daemon waits in its loop and has handled everything that has reached it. Losing the bus in the
    middle of some work is a different case."""
    lab.wait(lambda: "epoll" in lab.run(["cat", f"/proc/{lab.daemon.pid}/wchan"]).stdout, 10, "an idle daemon")


# --- the collector ---

@contextlib.contextmanager
def collector(lab, backlog):
    """The test as the collector: a listening socket that accepts no connection by itself."""
    path = lab.files / "sta_server_domain"
    path.unlink(missing_ok=True)
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as listener:
        listener.bind(str(path))
        listener.listen(backlog)
        listener.settimeout(10 * lab.patience)
        yield listener
    path.unlink()


def read_report(listener):
    with listener.accept()[0] as report:
        report.settimeout(listener.gettimeout())
        image = b""
        while piece := report.recv(4096):
            image += piece
    assert len(image) == REPORT_SIZE
    return report_fields(image)


def test_a_collector_that_accepts_late_gets_every_report_in_order(running_lab):
    running_lab.collector.stop()
    macs = [f"02:00:00:00:01:{number:02x}" for number in range(8)]
    with collector(running_lab, backlog=0) as listener:
        sent = running_lab.logged("sta domain socket send.")
        for mac in macs:
            running_lab.apsim(f"assoc mac={mac} ifname=ath0 radio=0")
        # The first connection waits to be accepted; the daemon waits to connect for the second.
        running_lab.wait_for_log("sta domain socket send.", sent + 2)
        assert [fields["mac"] for fields in (read_report(listener) for _ in macs) if fields["log_type"] == 1] == macs
    running_lab.start_collector()
    serves_as_before(running_lab)


def test_a_stop_ends_the_wait_for_a_collector_that_lets_nobody_in(running_lab):
    running_lab.apsim("burst n=8")
    running_lab.wait(lambda: len(running_lab.online()) == 8, 30, "8 stations")
    running_lab.collector.stop()
    with collector(running_lab, backlog=0):
        sent = running_lab.logged("sta domain socket send.")
        running_lab.start("set", ["ubus", "call", "sta", "set", '{"set_update_log_period":60}'])  # a walk over all
        running_lab.wait_for_log("sta domain socket send.", sent + 2)
        assert running_lab.daemon.stop() == 1
    assert not any("-outgoing" in rule for rule in running_lab.firewall_rules("mangle"))


def test_a_collector_that_hangs_up_at_once_loses_its_reports_and_nothing_else(running_lab):
    running_lab.collector.stop()
    count = 40
    with collector(running_lab, backlog=count) as listener:
        running_lab.apsim(f"burst n={count}")
        for _ in range(count):
            listener.accept()[0].close()
    running_lab.wait(lambda: len(running_lab.online()) == count, 30, f"{count} stations")
    running_lab.apsim(f"burst n={count} leave")
    running_lab.start_collector()
    running_lab.wait(lambda: not running_lab.online(), 30, "an empty table")
    serves_as_before(running_lab)


def test_a_folder_in_the_place_of_the_collectors_socket_costs_no_station(running_lab):
    associate(running_lab, A)
    wait_online(running_lab, A)
    running_lab.collector.stop()
    place = running_lab.files / "sta_server_domain"
    place.unlink(missing_ok=True)
    place.mkdir()
    refused = running_lab.logged("domain connect error.")
    running_lab.bus("call", "sta", "set", {"set_update_log_period": 60})
    running_lab.wait_for_log("domain connect error.", refused + 1)
    running_lab.apsim(f"assoc mac={B} ifname=ath0 radio=0")
    assert set(wait_online(running_lab, A, B)) == {A, B}
    assert_does_not_spin(running_lab)
    place.rmdir()  # rmdir succeeds: the folder is still empty
    running_lab.start_collector()
    serves_as_before(running_lab)


# --- the broker ---

def start_again(lab):
    """Starts the daemon again, as a supervisor does some time after the bus has gone."""
    families = lab.logged("Creat a new g_sta.")
    lab.start_daemon()
    lab.wait_for_log("Creat a new g_sta.", families + 1)
    lab.run(["ubus", "-t", "10", "wait_for", "sta"])


def test_a_broker_that_is_replaced_costs_the_bus_and_no_report(running_lab):
    associate(running_lab, A)
    wait_online(running_lab, A)
    wait_until_idle(running_lab)
    process(running_lab, "ubusd").kill()
    running_lab.start_ubusd()
    assert_does_not_spin(running_lab)
    associate(running_lab, B)
    running_lab.wait(lambda: len(backup_lines(running_lab)) == 2, 15, "both in the backup file")
    assert running_lab.daemon.stop() == 1
    start_again(running_lab)
    serves_as_before(running_lab)


def test_a_broker_that_dies_in_a_call_costs_no_station(lab):
    lab.start_all(dhcpmon=True)  # without it the daemon would look it up at the broker now and then
    broker = process(lab, "ubusd")
    write_leases(lab, (A, "192.168.10.20", "phone"))
    broker.signal(signal.SIGSTOP)
    associate(lab, A)
    # The event of the new address waits for the broker's answer.
    lab.wait_for_log("Sta on, get ip from dhcp.")
    assert lab.logged("Send [ip_change] notify.") == 0
    assert_does_not_spin(lab)
    broker.kill()
    assert lab.daemon.wait(10 * lab.patience) == 1
    assert not any("outgoing" in rule for rule in lab.firewall_rules("mangle"))
    assert [line.split()[1:3] for line in backup_lines(lab)] == [[A, "192.168.10.20"]]  # it has finished its pass
    lab.start_ubusd()
    start_again(lab)
    serves_as_before(lab)


# --- the DHCP monitor ---

def test_a_silent_dhcp_monitor_stops_neither_the_start_nor_a_call(lab):
    lab.start_ubusd()
    lab.start_apsim()
    lab.start_collector()
    monitor = lab.start_dhcpmon()
    monitor.signal(signal.SIGSTOP)
    lab.start_daemon()
    lab.wait_for_family()
    associate(lab, A)
    assert wait_online(lab, A)[A]["ip"] == "0.0.0.0"
    assert lab.logged("data=") == 0
    monitor.signal(signal.SIGCONT)
    lab.wait_for_log("data={")
    serves_as_before(lab)


# --- the driver ---

@pytest.mark.parametrize("request_number", [1, 4, 5], ids=["table", "roam_removal", "count"])
def test_a_driver_that_refuses_a_request_costs_its_answer_only(running_lab, request_number):
    associate(running_lab, A)
    wait_online(running_lab, A)
    running_lab.apsim(f"fail cmd={request_number}")
    running_lab.apsim(f"set mac={A} rx_rate=77")
    running_lab.apsim(f"roam mac={A} ifname=ath1 radio=1")
    running_lab.wait_for_report(mac=A, log_type=4, radio_id=0)
    running_lab.wait_for_report(mac=A, log_type=1, radio_id=1)
    running_lab.bus("call", "sta", "set", {"set_update_log_period": 60})
    associate(running_lab, B)
    wait_online(running_lab, A, B)
    results = [request["result"] for request in running_lab.driver_requests() if request["cmd"] == request_number]
    assert results and results[-1] != 0
    assert set(running_lab.online()) == {A, B}
    running_lab.apsim("fail off")
    running_lab.bus("call", "sta", "delete", {"mac": B, "radio": 0})
    running_lab.wait_for_report(mac=B, log_type=2)
    running_lab.apsim(f"set mac={A} rx_rate=78")
    running_lab.bus("call", "sta", "set", {"set_update_log_period": 60})
    running_lab.wait_for_report(mac=A, log_type=3, flow_rateup=78 * 1024)
    serves_as_before(running_lab)


# --- the netlink socket ---

def test_more_messages_than_the_socket_holds_are_lost_and_the_table_heals(lab, clock):  # noqa: F811
    for mac in (A, B):
        associate(lab, mac)
    wait_online(lab, A, B)
    lab.daemon.signal(signal.SIGSTOP)
    assert overflow(lab) > 0
    lab.apsim(f"forget mac={B}")  # its leave is among what was lost
    lab.daemon.signal(signal.SIGCONT)
    lab.wait_for_log(f"Recv msg error. -1 [{errno.ENOBUFS}]")
    clock.move(1)
    lab.wait_for_report(mac=B, log_type=2)
    associate(lab, C)
    assert set(wait_online(lab, A, C)) == {A, C}
    serves_as_before(lab)


# --- descriptors ---

def test_running_out_of_descriptors_for_a_while_costs_reports_and_no_station(running_lab):
    lab = running_lab
    associate(lab, A)
    wait_online(lab, A)
    limit = lab.run(["prlimit", f"--pid={lab.daemon.pid}", "--nofile", "--output=SOFT", "--noheadings"]).stdout.strip()
    lab.run(["prlimit", f"--pid={lab.daemon.pid}", "--nofile=3:"])
    lab.apsim(f"assoc mac={B} ifname=ath0 radio=0")
    lab.wait_for_log("domain socket error.")
    assert {A, B} == set(wait_online(lab, A, B))  # the bus needs no new descriptor
    assert [report for report in lab.reports() if report["mac"] == B] == []
    lab.apsim(f"disassoc mac={A} ifname=ath0")
    lab.wait(lambda: set(lab.online()) == {B}, 10, "the leave")
    lab.run(["prlimit", f"--pid={lab.daemon.pid}", f"--nofile={limit}:"])
    serves_as_before(lab)


def test_without_standard_error_the_daemon_does_not_print_into_its_files(lab):
    lab.start_ubusd()
    lab.start_apsim()
    lab.start_collector()
    process = lab.start("wsmd", ["sh", "-c", "exec wsmd 2>&- <&-"])
    lab.wait_for_log("init finish..")
    for fd in (0, 2):
        assert lab.run(["readlink", f"/proc/{process.pid}/fd/{fd}"]).stdout == "/dev/null\n"
    assert (lab.files / ".sta_file_lockpath").read_text() == ""
    assert process.stop() == 1
