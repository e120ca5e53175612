"""dhcpmon: the lease file's clients on the bus."""

import json
import subprocess
import time

import pytest

from programs import AS_ROOT, wait

ANNA = {"mac": "02:00:00:00:00:01", "ip": "10.0.0.1", "hostName": "anna-phone"}
BEN = {"mac": "02:00:00:00:00:02", "ip": "10.0.0.2", "hostName": "*"}


class Bus:
    """A broker, a monitor, and somebody who has subscribed to its notifications."""

    def __init__(self, start, build_dir, folder):
        self.start, self.bin = start, build_dir / "bin"
        self.path = folder / "bus.sock"
        self.leases = folder / "leases"
        self.broker = self.start_broker()

    def start_broker(self):
        broker = self.start([*AS_ROOT, self.bin / "ubusd", "-s", self.path], name="ubusd")
        broker.wait_for_socket(self.path)
        return broker

    def monitor(self, *options):
        monitor = self.start([self.bin / "dhcpmon", "--bus", self.path, "--leases", self.leases, *options])
        self.run("-t", "30", "wait_for", "dhcpmon", "dhcpmon.client.notify")
        return monitor

    def run(self, *arguments):
        return subprocess.run([self.bin / "ubus", "-s", self.path, *arguments], capture_output=True, text=True,
                              timeout=60, check=False)

    def call(self, method, **arguments):
        done = self.run("-S", "call", "dhcpmon", method, json.dumps(arguments))
        assert done.returncode == 0, done
        return json.loads(done.stdout) if done.stdout else None

    def subscriber(self):
        """A function that gives the notifications so far."""
        listener = self.start([self.bin / "ubus", "-s", self.path, "subscribe", "dhcpmon.client.notify"], name="listener")
        wait(listener.lines, "the list that a first subscriber gets")
        return lambda: [json.loads(line) for line in listener.lines()]

    def write(self, *clients, more=""):
        draft = self.leases.with_suffix(".new")
        draft.write_text("".join(f"1700000000 {one['mac']} {one['ip']} {one['hostName']} 01:{one['mac']}\n"
                                 for one in clients) + more)
        draft.rename(self.leases)


@pytest.fixture
def bus(start, build_dir, tmp_path):
    return Bus(start, build_dir, tmp_path)


def clients(notification):
    """The list in one notification, its count checked."""
    data = json.loads(notification["client"]["data"])
    assert data.keys() == {"count", "list"} and data["count"] == len(data["list"])
    return data["list"]


def test_its_objects_and_methods_are_on_the_bus(bus):
    bus.monitor()
    lines = bus.run("-v", "list").stdout.splitlines()
    assert [line.split("@")[0] for line in lines] == \
        ["'dhcpmon' ", '\t"client":{"mac":"String"}', '\t"del_client":{"mac":"String"}', '\t"notify":{"data":"String"}',
         "'dhcpmon.client.notify' "]


def test_a_client_is_answered_with_its_address_and_name(bus):
    bus.write(ANNA, BEN)
    bus.monitor()
    assert bus.call("client", mac=ANNA["mac"]) == {"count": 1, "list": [ANNA]}
    assert bus.call("client", mac=BEN["mac"]) == {"count": 1, "list": [BEN]}


def test_an_unknown_client_is_answered_with_an_empty_list(bus):
    bus.monitor()
    assert bus.call("client", mac=ANNA["mac"]) == {"count": 0, "list": []}


@pytest.mark.parametrize("method", ["client", "del_client"])
@pytest.mark.parametrize("arguments", ["{}", '{"mac":5}'])
def test_a_request_without_a_client_is_refused(bus, method, arguments):
    bus.monitor()
    assert bus.run("-S", "call", "dhcpmon", method, arguments).returncode == 2


def test_the_first_subscriber_gets_the_list_at_once(bus):
    bus.write(ANNA)
    bus.monitor()
    assert clients(bus.subscriber()()[0]) == [ANNA]


def test_every_change_of_the_lease_file_is_told(bus):
    bus.monitor()
    notifications = bus.subscriber()
    for number, now in enumerate([[ANNA], [ANNA, BEN], [BEN]], start=1):
        bus.write(*now)
        wait(lambda n=number: len(notifications()) > n, "the notification")
        assert clients(notifications()[number]) == now
    bus.leases.unlink()
    wait(lambda: len(notifications()) == 5, "the notification")
    assert clients(notifications()[4]) == []


def test_lines_that_are_no_leases_are_passed_over(bus):
    bus.write(ANNA, more="\nhalf a line\nduid 00:01\n" + "x" * 100000 + "\n")
    bus.monitor()
    assert clients(bus.subscriber()()[0]) == [ANNA]


def test_a_name_with_quotation_marks_and_brackets_stays_one_text(bus):
    odd = dict(ANNA, hostName='"},{\\x')
    bus.write(odd)
    bus.monitor()
    assert clients(bus.subscriber()()[0]) == [odd]


def test_a_forgotten_client_comes_back_when_its_lease_changes(bus):
    bus.write(ANNA, BEN)
    bus.monitor()
    notifications = bus.subscriber()
    assert bus.call("del_client", mac=ANNA["mac"]) == {"result": "ok"}
    wait(lambda: len(notifications()) == 2, "the notification")
    assert clients(notifications()[1]) == [BEN]
    assert bus.call("client", mac=ANNA["mac"])["count"] == 0
    assert bus.call("del_client", mac=ANNA["mac"]) == {"result": "not found"}
    bus.write(dict(ANNA, ip="10.0.0.9"), BEN)
    wait(lambda: len(notifications()) == 3, "the notification")
    assert clients(notifications()[2]) == [dict(ANNA, ip="10.0.0.9"), BEN]


def test_any_text_can_be_sent_as_a_list(bus):
    bus.monitor()
    notifications = bus.subscriber()
    bus.call("notify", data="not JSON")
    bus.call("notify")
    wait(lambda: len(notifications()) == 3, "both")
    assert notifications()[1:] == [{"client": {"data": "not JSON"}}, {"client": {}}]


def test_a_late_answer_comes_after_its_delay(bus):
    bus.write(ANNA)
    bus.monitor("--delay", "300")
    before = time.monotonic()
    assert bus.call("client", mac=ANNA["mac"]) == {"count": 1, "list": [ANNA]}
    assert time.monotonic() - before >= 0.299


def test_several_late_answers_go_to_those_who_asked(bus):
    bus.write(ANNA, BEN)
    bus.monitor("--delay", "300")
    asking = [subprocess.Popen([bus.bin / "ubus", "-s", bus.path, "-S", "call", "dhcpmon", "client", json.dumps({"mac": one})],
                               stdout=subprocess.PIPE, text=True)
              for one in (ANNA["mac"], BEN["mac"], ANNA["mac"])]
    answers = [json.loads(one.communicate(timeout=60)[0])["list"] for one in asking]
    assert answers == [[ANNA], [BEN], [ANNA]]


def test_a_silent_monitor_never_answers(bus):
    bus.write(ANNA)
    bus.monitor("--silent")
    done = bus.run("-S", "-t", "1", "call", "dhcpmon", "client", json.dumps({"mac": ANNA["mac"]}))
    assert (done.returncode, done.stdout) == (7, "")


def test_it_is_back_after_the_broker_was_restarted(bus):
    bus.write(ANNA)
    monitor = bus.monitor()
    bus.broker.stop()
    bus.broker = bus.start_broker()
    assert bus.run("-t", "30", "wait_for", "dhcpmon", "dhcpmon.client.notify").returncode == 0
    assert bus.call("client", mac=ANNA["mac"])["count"] == 1
    assert monitor.stop() == 0


def test_it_waits_for_a_broker_that_comes_later(bus):
    bus.broker.stop()
    monitor = bus.start([bus.bin / "dhcpmon", "--bus", bus.path, "--leases", bus.leases])
    wait(monitor.err.read_text, "its complaint")
    bus.broker = bus.start_broker()
    assert bus.run("-t", "30", "wait_for", "dhcpmon").returncode == 0
    assert monitor.stop() == 0


@pytest.mark.parametrize("arguments", [["--bogus"], ["extra"], ["--delay", "x"], ["--delay", "-1"], ["--leases"]])
def test_wrong_usage_is_status_2(build_dir, arguments):
    done = subprocess.run([build_dir / "bin/dhcpmon", *arguments], capture_output=True, text=True, timeout=30, check=False)
    assert done.returncode == 2 and "usage: dhcpmon" in done.stderr


def test_help_is_status_0(build_dir):
    done = subprocess.run([build_dir / "bin/dhcpmon", "--help"], capture_output=True, text=True, timeout=30, check=False)
    assert done.returncode == 0 and done.stdout.startswith("usage: dhcpmon")
