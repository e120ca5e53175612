"""The DHCP monitor on the bus: the subscription that the daemon renews when needed, and lists of every shape."""

import json

import pytest

A, B, C = "02:00:00:00:00:0a", "02:00:00:00:00:0b", "02:00:00:00:00:0c"
ROUTER = {"sysinfo": "config sysinfo\n\toption forwardMode 'ROUTER'\n"}


def entry(mac, ip="192.168.10.7", name="tv"):
    return {"mac": mac, "ip": ip, "hostName": name}


def notify(lab, data):
    """The monitor notifies its subscribers of this text, or this value as JSON; returns once the daemon has handled it."""
    text = data if isinstance(data, str) else json.dumps(data)
    lab.bus("call", "dhcpmon", "notify", {"data": text})
    lab.bus("call", "sta", "get", {"get_all_sta_status": "x"})  # answered after what was sent before it


@pytest.fixture
def monitored(lab):
    """Everything runs, and the daemon is subscribed."""
    lab.start_all(dhcpmon=True)
    lab.wait_for_log('data={')  # the first subscriber gets the list at once
    return lab


def test_a_bridging_access_point_subscribes_at_start(monitored):
    assert monitored.logged("Failed to lookup object") == 0
    notify(monitored, {"count": 1, "list": [entry(A)]})
    monitored.wait_for_log(f"ip=192.168.10.7, mac={A}, hostName=tv")


def test_a_routing_access_point_does_not_look_for_the_monitor(open_lab):
    lab = open_lab(config=ROUTER).start_all(dhcpmon=True)
    lab.bus("send", "dev_mode", {"forwardMode": "ROUTER"})
    lab.wait_for_log("call back dev_mode change!!")
    notify(lab, {"count": 1, "list": [entry(A)]})
    assert lab.logged("data={") == lab.logged("Failed to lookup object") == lab.logged("Change Mode To") == 0


def test_a_change_to_bridging_subscribes_once_the_monitor_is_there(open_lab):
    lab = open_lab(config=ROUTER).start_all()
    lab.bus("send", "dev_mode", {"forwardMode": "AP"})
    lab.wait_for_log("Change Mode To AP!")
    lab.wait_for_log("Failed to lookup object: Not found")
    lab.start_dhcpmon()
    lab.wait_for_log('data={')


def test_repeated_changes_leave_one_subscription(monitored):
    for _ in range(5):
        monitored.bus("send", "dev_mode", {"forwardMode": "AP"})
    monitored.wait_for_log("Change Mode To AP!", 5)
    notify(monitored, {"count": 1, "list": [entry(A, name="once")]})
    monitored.wait_for_log('"once"')
    assert sum("data=" in line and '"once"' in line for line in monitored.log_lines()) == 1


@pytest.mark.parametrize("end", ["stop", "kill"])
def test_when_the_monitor_comes_back_the_subscription_does_too(monitored, end):
    monitor = next(process for process in monitored.space.processes if process.name == "dhcpmon")
    getattr(monitor, end)()
    monitored.wait_for_log("Server remove dhcpdump ubus.")
    monitored.wait_for_log("Failed to lookup object: Not found")
    heard = monitored.logged("data={")
    monitored.start_dhcpmon()
    monitored.wait_for_log("data={", heard + 1)


def test_a_bridged_station_takes_address_and_name_from_the_list(monitored):
    notify(monitored, {"count": 2, "list": [entry(B, "192.168.10.8", "other"), entry(A)]})
    monitored.apsim(f'assoc mac={A} ifname=ath01 radio=0 ssid="Lobby Guest"')
    monitored.wait(lambda: monitored.online().get(A, {}).get("ip") == "192.168.10.7", 15, "the address")
    assert monitored.online()[A]["name"] == "tv"


def test_a_station_of_the_lan_without_a_lease_is_left_without_an_address(monitored):
    notify(monitored, {"count": 1, "list": [entry(A)]})
    monitored.apsim(f"assoc mac={A} ifname=ath0 radio=0")
    monitored.wait(lambda: monitored.online().get(A, {}).get("status") == 1, 15, "the station on line")
    assert monitored.online()[A]["ip"] == "0.0.0.0"


def test_the_count_bounds_what_is_read(monitored):
    notify(monitored, {"count": 2, "list": [entry(A, name="first"), entry(B, name="second"), entry(C, name="third")]})
    monitored.wait_for_log(f"mac={B}, hostName=second")
    assert monitored.logged("hostName=third") == 0


@pytest.mark.parametrize("data, line", [
    ({"list": [entry(A)]}, "get jsondata 'count' error ..."),
    ({"count": None, "list": [entry(A)]}, "get jsondata 'count' error ..."),
    ({"count": 1}, "get jsondata 'list' error ..."),
    ({"count": 1, "list": None}, "get jsondata 'list' error ..."),
    ({"count": 1, "list": "x"}, "get jsondata 'list' error ..."),
    ({"count": 1, "list": {"0": entry(A)}}, "get jsondata 'list' error ..."),
    ({"count": 1, "list": 5}, "get jsondata 'list' error ..."),
    ({"count": 3, "list": [entry(A)]}, "get jsondata 'mac' error ..."),
    ({"count": 2147483647, "list": []}, "get jsondata 'mac' error ..."),
    ({"count": 1, "list": [{}]}, "get jsondata 'mac' error ..."),
    ({"count": 1, "list": ["x"]}, "get jsondata 'mac' error ..."),
    ({"count": 1, "list": [None]}, "get jsondata 'mac' error ..."),
    ({"count": 1, "list": [[entry(A)]]}, "get jsondata 'mac' error ..."),
    ({"count": 1, "list": [{"mac": A}]}, "get jsondata 'ip' error ..."),
    ({"count": 1, "list": [{"mac": A, "ip": None}]}, "get jsondata 'ip' error ..."),
    ({"count": 1, "list": [{"mac": A, "ip": "1.1.1.1"}]}, "get jsondata 'hostName' error ..."),
])
def test_a_list_with_something_missing_says_what(monitored, data, line):
    notify(monitored, data)
    monitored.wait_for_log(line)
    assert monitored.logged(line) == 1


@pytest.mark.parametrize("data", ["", "x", "[", "null", "5", '"text"', "[]", "{", "[" * 10000,
                                  '{"count":1,"list":[{"mac":"' + "x" * 60000, '{"count":-5,"list":[]}',
                                  '{"count":"2","list":[{"mac":"x"}]}',
                                  '{"count":1e99,"list":[]}', '{"count":{},"list":[]}', '{"count":true,"list":[]}'])
def test_what_is_no_list_does_no_harm(monitored, data):
    notify(monitored, data)
    notify(monitored, {"count": 1, "list": [entry(A)]})
    monitored.wait_for_log(f"ip=192.168.10.7, mac={A}, hostName=tv")


def test_long_texts_of_a_list_are_cut(monitored):
    notify(monitored, {"count": 1, "list": [entry("m" * 25, "1" * 20, "h" * 40)]})
    monitored.wait_for_log(f"ip={'1' * 16}, mac={'m' * 19}, hostName={'h' * 31}")
    assert all(line.endswith("h" * 31) for line in monitored.log_lines() if "hostName=hhh" in line)


def test_a_list_of_a_thousand_entries_is_taken_whole(monitored):
    many = [entry(f"02:00:00:00:{number >> 8:02x}:{number & 255:02x}", f"10.0.{number >> 8}.{number & 255}")
            for number in range(1000)]
    notify(monitored, {"count": 1000, "list": many})
    monitored.wait_for_log("mac=02:00:00:00:03:e7, hostName=tv")
