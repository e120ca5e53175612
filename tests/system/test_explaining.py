"""The object wsmd over a station's life: why stations come and go."""

import json
import signal

import pytest

from driver import Driver
from wsmlab.overflow import overflow

A, B = "02:00:00:00:00:0a", "02:00:00:00:00:0b"


class Told:
    """The notifications that a subscriber of wsmd gets, in order."""

    def __init__(self, lab):
        self.lab = lab
        self.process = lab.start("subscriber", ["ubus", "-S", "subscribe", "wsmd"])
        self.seen = 0
        # Nothing is notified before the subscription has arrived: a station comes and goes until a notification comes.
        lab.wait(self._greeted, 20, "the subscription")
        self.seen = len(self.all())

    def _greeted(self):
        self.lab.apsim("assoc mac=02:00:00:00:00:fe ifname=ath0 radio=0")
        self.lab.apsim("disassoc mac=02:00:00:00:00:fe reason=307")
        self.lab.wait(lambda: "02:00:00:00:00:fe" not in self.lab.online(), 10, "the greeter to be gone")
        return any("left" in one for one in self.all())

    def all(self):
        return [json.loads(line) for line in self.process.lines() if line.endswith("}")]

    def next(self, kind, **members):
        """The next notification of this kind with these members, later than the one before."""
        def found():
            told = self.all()
            for number in range(self.seen, len(told)):
                message = told[number].get(kind)
                if message and all(message.get(name) == value for name, value in members.items()):
                    self.seen = number + 1
                    return message
            return None
        return self.lab.wait(found, 20, f"{kind} {members}")


@pytest.fixture
def told(running_lab):
    return Told(running_lab)


def departed(lab, **arguments):
    return lab.bus("call", "wsmd", "departed", arguments)["departed"]


def test_a_station_s_life_is_told_in_order_and_its_end_explained(told):
    lab = told.lab
    lab.apsim(f"lease mac={A} ip=192.168.10.50 name=phone")
    lab.apsim(f"assoc mac={A} ifname=ath0 radio=0")
    joined = told.next("joined", mac=A)
    assert joined["again"] is False
    assert joined["station"]["interface"] == "ath0"
    address = told.next("changed", mac=A, address="192.168.10.50")
    assert address["origin"] == "lease"
    assert told.next("changed", mac=A, name="phone")["origin"] == "lease"
    lab.apsim(f"roam mac={A} ifname=ath1 radio=1")
    roamed = told.next("roamed", mac=A)
    assert (roamed["from"], roamed["to"]) == ({"interface": "ath0", "radio": 0}, {"interface": "ath1", "radio": 1})
    lab.apsim(f"disassoc mac={A} reason=307")
    left = told.next("left", mac=A)
    numbers = [message["seq"] for one in told.all() for message in one.values()]
    assert numbers == list(range(numbers[0], numbers[0] + len(numbers)))
    assert {message["boot"] for one in told.all() for message in one.values()} == {joined["boot"]}
    gone = departed(lab, limit=1)[0]
    assert gone == left["departure"]
    assert (gone["ended_by"], gone["known_from"], gone["reason"]) == ("station", "event", "OW_STA_DEAUTH_RECV")
    assert (gone["ip"], gone["interface"]) == ("192.168.10.50", "ath1")


def test_the_protocol_after_a_roam_is_that_of_the_new_radio(told):
    told.lab.apsim(f"assoc mac={A} ifname=ath0 radio=0")
    told.lab.apsim(f"roam mac={A} ifname=ath1 radio=1")
    told.next("roamed", mac=A)
    assert told.lab.bus("call", "wsmd", "station", {"mac": A})["protocol"] == "11ac"


def test_a_rate_above_2000_is_told_when_a_station_joins(told):
    told.lab.apsim(f"assoc mac={A} ifname=ath1 radio=1 maxRate=2402")
    assert told.next("joined", mac=A)["station"]["max_rate"] == 2402000000


def test_a_station_that_was_kicked_left_by_a_kick(running_lab):
    running_lab.apsim(f"assoc mac={A} ifname=ath0 radio=0")
    running_lab.wait_for_report(mac=A, log_type=1)
    running_lab.bus("call", "sta", "delete", {"mac": A, "radio": 0})
    running_lab.wait(lambda: departed(running_lab), 10, "the departure")
    assert [(one["mac"], one["ended_by"]) for one in departed(running_lab)] == [(A, "kick")]


def test_the_configuration_says_how_many_departures_are_kept(open_lab):
    lab = open_lab(config={"wsmd": "config wsmd 'main'\n\toption departed '2'\n"}).start_all()
    for mac in (A, B, "02:00:00:00:00:0c"):
        lab.apsim(f"assoc mac={mac} ifname=ath0 radio=0")
        lab.apsim(f"disassoc mac={mac} reason=300")
    lab.wait(lambda: lab.bus("call", "wsmd", "departed")["total"] == 3, 10, "three departures")
    assert [(one["mac"], one["ended_by"]) for one in departed(lab)] == [("02:00:00:00:00:0c", "idle"), (B, "idle")]


def test_another_start_of_the_daemon_has_another_name(running_lab):
    before = running_lab.bus("call", "wsmd", "stations")["boot"]
    running_lab.daemon.stop()
    running_lab.start_daemon()
    assert running_lab.bus("call", "wsmd", "stations")["boot"] != before


def health(lab):
    return lab.bus("call", "wsmd", "health")


def agree(lab):
    """Whether the daemon knows the driver's stations and no others."""
    page = lab.bus("call", "wsmd", "stations", {"limit": 256, "fields": ["mac"]})
    return "next" not in page and {one["mac"] for one in page["stations"]} == {one["mac"] for one in lab.stations()}


def test_an_overrun_of_the_drivers_socket_is_seen_and_healed(told):
    lab = told.lab
    for number in range(100):
        lab.apsim(f"assoc mac=02:00:00:00:01:{number:02x} ifname=ath0 radio=0")
    lab.wait(lambda: agree(lab), 20, "a hundred stations")
    # From now on the daemon listens to another family: it hears nothing of what the driver does.
    Driver(lab)
    for number in range(50):
        lab.apsim(f"disassoc mac=02:00:00:00:01:{number:02x} reason=307")
    for number in range(100):
        lab.apsim(f"assoc mac=02:00:00:00:02:{number:02x} ifname=ath{number % 2} radio={number % 2}")
    assert not agree(lab)
    lab.daemon.signal(signal.SIGSTOP)
    assert overflow(lab) > 0
    lab.daemon.signal(signal.SIGCONT)
    lab.wait(lambda: agree(lab), 10, "table and driver to agree")
    assert health(lab)["events"]["resyncs"] == 1
    resync = told.next("resync")
    assert (resync["arrived"], resync["departed"]) == (100, 50)
    assert health(lab)["events"]["overruns"] >= 1
    assert {(one["ended_by"], one["known_from"]) for one in departed(lab, limit=50)} == {("unknown", "inferred")}
    for number in range(50):
        lab.wait_for_report(mac=f"02:00:00:00:01:{number:02x}", log_type=2)
    lab.wait_for_report(mac="02:00:00:00:02:63", log_type=1)


def test_health_counts_what_has_happened(running_lab):
    before = health(running_lab)
    assert (before["role"], before["family"], before["stations"]["known"]) == ("access-point", True, 0)
    running_lab.apsim(f"assoc mac={A} ifname=ath0 radio=0")
    running_lab.wait_for_report(mac=A, log_type=3)
    after = health(running_lab)
    assert after["events"] == {**before["events"], "received": before["events"]["received"] + 1}
    assert after["driver"]["requests"] > before["driver"]["requests"]
    assert after["reports"]["sent"] >= 2
    assert after["loop"]["longest_us"] > 0 and after["loop"]["what"]
    assert after["memory"]["blocks"] >= 1 and after["memory"]["bytes"] >= 696
