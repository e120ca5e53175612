"""A station's life after its association: the five-second pass, addresses and names, the early report, persistence."""

import pytest

from stations import A, B, C, associate, backup_lines, wait_online, write_leases


# --- addresses and names ---

def test_a_lease_gives_address_name_and_an_event(running_lab):
    watch = running_lab.watch_bus()
    write_leases(running_lab, (A, "192.168.10.20", "phone"))
    associate(running_lab, A)
    station = wait_online(running_lab, A)[A]
    assert (station["ip"], station["name"]) == ("192.168.10.20", "phone")
    event = watch.wait_for_event("ip_change", mac=A)
    assert list(event) == ["mac", "before_ip", "changed_ip", "changed_time"]
    assert (event["before_ip"], event["changed_ip"]) == ("0.0.0.0", "192.168.10.20")
    assert len(event["changed_time"]) == len("2025-05-03 07:04:09")


def test_without_a_lease_there_is_no_address_and_no_event(running_lab):
    watch = running_lab.watch_bus()
    associate(running_lab, A)
    station = wait_online(running_lab, A)[A]
    assert (station["ip"], station["name"]) == ("0.0.0.0", "-")
    assert [name for name, _ in watch.events if name == "ip_change"] == []


def test_a_changed_lease_file_changes_name_and_address_of_an_online_station(running_lab):
    write_leases(running_lab, (A, "192.168.10.20", "phone"))
    associate(running_lab, A)
    wait_online(running_lab, A)
    write_leases(running_lab, (A, "192.168.10.99", "tablet"))
    running_lab.wait_for_log(f"name change: mac {A}, phone->tablet", timeout=15)
    running_lab.wait_for_log(f"ip change: mac {A}, 192.168.10.20->192.168.10.99", timeout=5)
    station = running_lab.online()[A]
    assert (station["ip"], station["name"]) == ("192.168.10.99", "tablet")
    assert any(f"tablet {A} 192.168.10.99 " in line for line in backup_lines(running_lab))


def test_an_ip_change_event_counts_unless_the_lease_file_knows_better(running_lab):
    write_leases(running_lab, (A, "192.168.10.20", "phone"))
    associate(running_lab, A)
    associate(running_lab, B)
    wait_online(running_lab, A, B)
    for mac in (A, B):
        running_lab.bus("send", "ip_change", {"mac": mac, "before_ip": "192.168.10.1", "changed_ip": "192.168.10.77"})
    running_lab.wait_for_log("IP address is obtained from DHCP.")
    running_lab.wait_for_log(f"IP change: mac {B}, 0.0.0.0->192.168.10.77.")
    stations = running_lab.online()
    assert (stations[A]["ip"], stations[B]["ip"]) == ("192.168.10.20", "192.168.10.77")


@pytest.mark.parametrize("event, message, line", [
    ("ip_change", {}, "Parse sta_mac failed!"),
    ("ip_change", {"mac": A}, "Parse sta_before_ip failed!"),
    ("ip_change", {"mac": A, "before_ip": "1.1.1.1"}, "Parse sta_changed_ip failed!"),
    ("ip_change", {"mac": "0200000000aa", "before_ip": "1.1.1.1", "changed_ip": "1.1.1.2"}, "The parameter mac error."),
    ("ip_change", {"mac": A, "before_ip": "1.1.1", "changed_ip": "1.1.1.2"}, "The parameter before_ip error."),
    ("ip_change", {"mac": A, "before_ip": "1.1.1.1", "changed_ip": "1"}, "The parameter changed_ip error."),
    ("ip_change", {"mac": A, "before_ip": "0.0.0.0", "changed_ip": "0.0.0.0"}, "changed_ip is 0.0.0.0."),
    ("ip_change", {"mac": A, "before_ip": "0.0.0.0", "changed_ip": "1.1.1.1"}, "before_ip is 0.0.0.0."),
    ("ip_change", {"mac": A, "before_ip": "1.1.1.1", "changed_ip": "1.1.1.2"}, "No sta connection."),
    ("dhcp_client_update", {}, "Parse sta_mac failed!"),
    ("dhcp_client_update", {"mac": A, "ip": 5, "hostName": "x"}, "Parse sta_mac failed!"),
    ("dhcp_client_update", {"mac": A, "ip": "1.1.1", "hostName": "x"}, "The parameter ip error."),
    ("dhcp_client_update", {"mac": A, "ip": "0.0.0.0", "hostName": "x"}, "ip is 0.0.0.0."),
    ("dhcp_client_update", {"mac": A, "ip": "1.1.1.1"}, "Parse sta_mac failed!"),
    ("dhcp_client_update", {"mac": A, "ip": "1.1.1.1", "hostName": "h" * 129}, "The parameter hostName error."),
    ("dev_mode", {}, "Parse forwardMode failed!"),
])
def test_an_incomplete_event_is_dropped_after_one_line(running_lab, event, message, line):
    running_lab.bus("send", event, message)
    running_lab.wait_for_log(line)
    assert running_lab.logged(line) == 1
    assert running_lab.online() == {}


def test_a_dhcp_update_is_taken_and_reported_before_the_station_is_online(running_lab):
    associate(running_lab, A)
    running_lab.bus("send", "dhcp_client_update", {"mac": A, "ip": "192.168.10.33", "hostName": "tv"})
    report = running_lab.wait_for_report(mac=A, log_type=1, ip="192.168.10.33")
    assert report["dhcp_update_time"] != 0
    assert running_lab.online()[A]["name"] == "tv"


def test_the_same_address_in_capitals_is_another_station_to_the_bus(running_lab):
    associate(running_lab, A)
    running_lab.bus("send", "dhcp_client_update", {"mac": A.upper(), "ip": "192.168.10.33", "hostName": "tv"})
    running_lab.wait_for_log("MAC don't match: ")
    assert running_lab.online()[A]["name"] == "-"


def test_a_bridged_station_gets_no_address_from_the_leases(running_lab):
    write_leases(running_lab, (A, "192.168.10.20", "phone"))
    running_lab.apsim(f'assoc mac={A} ifname=ath01 radio=0 ssid="Lobby Guest"')
    running_lab.wait_for_report(mac=A, log_type=1)
    assert wait_online(running_lab, A)[A]["ip"] == "0.0.0.0"


def test_a_station_without_a_network_in_the_configuration_counts_as_bridged(running_lab):
    write_leases(running_lab, (A, "192.168.10.20", "phone"))
    associate(running_lab, A, ssid="Nowhere")
    assert wait_online(running_lab, A)[A]["ip"] == "0.0.0.0"


def test_a_repeater_keeps_its_made_up_name(running_lab):
    write_leases(running_lab, (A, "192.168.10.20", "box"))
    running_lab.apsim(f"assoc mac={A} ifname=ath0 radio=0 repeater=1")
    running_lab.wait_for_report(mac=A, log_type=1)
    station = wait_online(running_lab, A)[A]
    assert (station["name"], station["ip"]) == ("wireless_repeater_000a", "192.168.10.20")


# --- reports of a new station ---

def test_a_new_station_is_reported_early_once_with_the_drivers_figures(running_lab):
    associate(running_lab, A)
    early = running_lab.wait_for_report(mac=A, log_type=3)
    assert early["single_log_up_cnt"] == 2
    truth = next(station for station in running_lab.stations() if station["mac"] == A)
    assert early["channel"] == truth["channel"] and early["maxRate"] == truth["maxRate"]
    # Three more passes of the one-second timer bring no second one.
    running_lab.apsim(f"assoc mac={B} ifname=ath0 radio=0")
    running_lab.wait_for_report(mac=B, log_type=3)
    assert [report["log_type"] for report in running_lab.reports() if report["mac"] == A] == [1, 3]


def test_a_station_that_the_driver_has_forgotten_is_still_reported(running_lab):
    associate(running_lab, A)
    wait_online(running_lab, A)
    running_lab.wait_for_report(mac=A, log_type=3)
    running_lab.apsim(f"forget mac={A}")
    running_lab.bus("call", "sta", "set", {"set_update_log_period": 60})
    running_lab.wait_for_report(mac=A, log_type=3)
    assert A in running_lab.online()


# --- persistence ---

def test_the_backup_file_holds_one_line_of_24_fields_per_online_station(open_lab):
    running_lab = open_lab(config={"sysinfo": "config sysinfo\n\toption forwardMode 'ROUTER'\n"}).start_all()
    write_leases(running_lab, (A, "192.168.10.20", "my-phone"))
    associate(running_lab, A, ssid="home net ")
    associate(running_lab, B, radio=1)
    wait_online(running_lab, A, B)
    running_lab.wait(lambda: len(backup_lines(running_lab)) == 2, 10, "two lines")
    line = next(line for line in backup_lines(running_lab) if A in line)
    fields = line.split(" ")
    assert len(fields) == 24
    assert fields[:3] == ["my-phone", A, "192.168.10.20"]
    assert (fields[7], fields[8], fields[9], fields[18]) == ("home/net", "0", "0", "ath0")
    assert (running_lab.files / "sta_devc.info").read_text() == "0 0 0 0 2\n"


def test_a_disassociation_takes_the_line_out_of_the_backup_file(running_lab):
    associate(running_lab, A)
    associate(running_lab, B)
    wait_online(running_lab, A, B)
    running_lab.apsim(f"disassoc mac={A}")
    running_lab.wait_for_report(mac=A, log_type=2)
    assert [line.split(" ")[1] for line in backup_lines(running_lab)] == [B]


@pytest.mark.parametrize("end", ["kill", "stop"])
def test_stations_come_back_after_a_restart(running_lab, end):
    write_leases(running_lab, (A, "192.168.10.20", "phone"))
    associate(running_lab, A)
    associate(running_lab, B, radio=1)
    before = wait_online(running_lab, A, B)
    running_lab.wait(lambda: len(backup_lines(running_lab)) == 2, 10, "two lines")
    getattr(running_lab.daemon, end)()
    running_lab.start_daemon()
    after = running_lab.online()
    kept = ("mac", "ip", "name", "radio_id", "online_ts", "ssid", "ssid_ifname", "vlanid", "status")
    assert {mac: [station[key] for key in kept] for mac, station in after.items()} == \
           {mac: [station[key] for key in kept] for mac, station in before.items()}
    # They are online again before the start is over, and are reported.
    running_lab.wait_for_report(mac=A, log_type=3)
    assert len(backup_lines(running_lab)) == 2


def test_a_restored_station_is_confirmed_by_its_next_association(running_lab):
    associate(running_lab, A)
    wait_online(running_lab, A)
    running_lab.wait(lambda: backup_lines(running_lab), 10, "a line")
    running_lab.daemon.kill()
    families = running_lab.logged("Creat a new g_sta.")
    running_lab.start_daemon()
    running_lab.wait_for_report(mac=A, log_type=3, restored=1)
    running_lab.wait_for_log("Creat a new g_sta.", families + 1)
    associate(running_lab, A)
    assert len(running_lab.online()) == 1
    running_lab.wait_for_report(mac=A, log_type=3, restored=0)


@pytest.mark.parametrize("text, stations", [
    ("", 0),
    ("garbage\n", 0),
    ("phone 02:00:00:00:00:0a 10.0.0.1 5", 1),
    ("\0\0\0\n\xff\xfe\n" + "x" * 5000, 0),
    (f"phone {A} 192.168.10.20 1700000000 12 2048 4096 home/net 0 1 55 36 2M 4M 100 1000 20 200 ath1 1 1 0 0 866M\n",
     1),
    (f"phone {A} 192.168.10.20 1700000000 12 2048 4096 home/net 0 1 55 36 2M 4M 100 1000 20 200 ath1 1 1 0 0 866M\n"
     f"tv {B} 192.168.10.21 1700000000 12 2048 40", 2),
])
def test_a_start_survives_whatever_the_backup_file_holds(open_lab, text, stations):
    lab = open_lab(files={"/tmp/sta_sta.info": text}).start_all()
    assert len(lab.online()) == stations
    lab.apsim(f"assoc mac={C} ifname=ath0 radio=0")
    lab.wait_for_report(mac=C, log_type=1)


def test_the_fields_of_a_line_come_back_as_they_were_written(open_lab):
    line = (f"my-phone {A} 192.168.1.5 1700000000 12 2048 4096 home/net 0 1 55 36 2M 4M 100 1000 20 200 ath1 1 1 0 0 "
            "866M\n")
    lab = open_lab(files={"/tmp/sta_sta.info": line, "/tmp/dhcp.leases": f"1 {A} 192.168.1.5 my-phone *\n"}).start_all()
    station = lab.online()[A]
    expected = dict(ssid="home/net", mac=A, ip="192.168.1.5", name="my-phone", power="55", status=1,
                    online_ts=1700000000, radio_id=1, channel=36, wifi_up_cnt=100, wifi_down_cnt=1000, is_reassoc=1,
                    vlanid=1, roam_enable=0, repeater_type=0, ssid_ifname="ath1")
    assert {key: station[key] for key in expected} == expected
