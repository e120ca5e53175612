"""What clients do."""

import json

from wsmlab.air import run, wait
from wsmlab.air_crowd import Crowd
from story import DEAUTH_RECEIVED, DEAUTH_SENT, DISASSOC_SENT, off, roam, story


@story()
def a_client_with_a_password_joins_and_is_named_and_addressed(air, anna, ben):
    since = len(air.reports())
    anna.join("Lobby", "wlan1")
    address = anna.get_address()
    report = air.wait_for_report(since, mac=anna.mac, log_type=1)
    assert (report["ssid"], report["ifname"], report["radio_id"], report["channel"]) == ("Lobby", "wlan1", 1, 36)
    assert (report["version"], report["is_reassoc"], report["rssi"]) == ("11ax", 0, -27)
    assert report["ap_auth_req"] and report["ap_assoc_req"]
    air.agree(anna)
    # The address is looked up in the daemon's next pass.
    wait(lambda: (one := air.daemon_list()[anna.mac])["ip"] == address and one["name"] == "anna", "address and name")


@story(anna="wlan1")
def known_traffic_is_counted(air, anna, ben):
    address = anna.get_address()
    air.agree(anna)
    before = air.daemon_list()[anna.mac]
    anna.send("192.168.60.1", packets=30, size=1000)
    air.send(address, packets=20, size=500)
    air.agree(anna)
    (air.folder / "beside.json").write_text(json.dumps(
        {"ubus call sta get": air.daemon_list()[anna.mac], "iw station dump": air.kernel_list()[anna.mac][1]}, indent=1))
    after = air.daemon_list()[anna.mac]
    # With the headers of UDP, IP and 802.11, and little else that was said meanwhile.
    assert 30 * 1042 <= after["wifi_up_cnt"] - before["wifi_up_cnt"] < 60 * 1042, (before, after)
    assert 20 * 542 <= after["wifi_down_cnt"] - before["wifi_down_cnt"] < 60 * 542, (before, after)


@story(anna="wlan1")
def clients_join_with_sae_and_without_any_password(air, anna, ben):
    since = len(air.reports())
    ben.join("Lobby", "wlan0", key_mgmt="SAE", ieee80211w=2)
    report = air.wait_for_report(since, mac=ben.mac, log_type=1)
    assert (report["ifname"], report["radio_id"], report["channel"], report["version"]) == ("wlan0", 0, 6, "11n")
    air.agree(anna, ben)
    since = len(air.reports())
    ben.join("Open", "wlan1-open", key_mgmt="NONE")
    report = air.wait_for_report(since, mac=ben.mac, log_type=1)
    assert (report["ssid"], report["ifname"], report["key_start"]) == ("Open", "wlan1-open", "")
    air.agree(anna, ben)


@story(anna="wlan1")
def a_wrong_password_is_no_station(air, anna, ben):
    since = len(air.reports())
    refused = air.log("wpa-ben").count("4-Way Handshake failed")
    ben.cli("select_network", ben.configure("Lobby", psk="not-the-password", frequencies=(5180,)))
    wait(lambda: air.log("wpa-ben").count("4-Way Handshake failed") > refused, "the refusal")
    ben.leave()
    air.agree(anna)
    assert not [one for one in air.reports()[since:] if one["mac"] == ben.mac and one["log_type"] != 2]


@story(anna="wlan1")
def a_client_leaves_by_itself(air, anna, ben):
    since = len(air.reports())
    anna.leave()
    report = off(air, since, anna, DEAUTH_RECEIVED)
    assert report["wifi_up"] > 0 and report["key_start"] and report["key_end"]
    air.agree()


@story(anna="wlan1")
def an_administrator_sends_a_client_away_on_the_bus(air, anna, ben):
    since = len(air.reports())
    run(air.build_dir / "bin/ubus", "call", "sta", "delete", json.dumps({"mac": anna.mac, "radio": 1}))
    off(air, since, anna, DEAUTH_SENT)
    air.wait_for_report(since, mac=anna.mac, log_type=1)  # it was told, and comes back
    anna.is_at("wlan1")
    air.agree(anna)


@story(anna="wlan1")
def hostapd_sends_a_client_away(air, anna, ben):
    for command, reason in (("deauthenticate", DEAUTH_SENT), ("disassociate", DISASSOC_SENT)):
        since = len(air.reports())
        air.hostapd("wlan1", command, anna.mac)
        off(air, since, anna, reason)
        air.wait_for_report(since, mac=anna.mac, log_type=1)
        anna.is_at("wlan1")
        air.agree(anna)


@story(anna="wlan1")
def another_program_takes_a_client_away(air, anna, ben):
    since = len(air.reports())
    run("iw", "dev", "wlan1", "station", "del", anna.mac)
    off(air, since, anna, DISASSOC_SENT)
    anna.leave()
    air.agree()


@story()
def a_client_roams_to_the_other_radio_and_back(air, anna, ben):
    anna.cli("select_network", anna.configure("Lobby"))
    wait(lambda: anna.status().get("wpa_state") == "COMPLETED", "anna to be there")
    here = anna.status()["freq"]
    anna.network = "wlan0" if here == "2437" else "wlan1"
    air.agree(anna)
    other = {"wlan0": "wlan1", "wlan1": "wlan0"}
    roam(air, anna, other[anna.network])
    roam(air, anna, other[anna.network])
    anna.leave()
    air.agree()


@story()
def a_client_roams_with_fast_transition(air, anna, ben):
    ben.cli("select_network", ben.configure("Lobby", key_mgmt="FT-PSK"))
    wait(lambda: ben.status().get("wpa_state") == "COMPLETED", "ben to be there")
    ben.network = "wlan0" if ben.status()["freq"] == "2437" else "wlan1"
    air.agree(ben)
    other = {"wlan0": "wlan1", "wlan1": "wlan0"}
    roam(air, ben, other[ben.network])
    assert air.daemon_list()[ben.mac]["roam_enable"] == 1
    roam(air, ben, other[ben.network])


@story(ben="wlan0")
def a_client_changes_the_network_name(air, anna, ben):
    ben.join("Open", "wlan1-open", key_mgmt="NONE")
    air.agree(ben)


@story()
def a_client_has_a_vlan_of_its_own(air, anna, ben):
    since = len(air.reports())
    with air.no_search_for_modules():
        ben.join("Own", "wlan1-own")
    report = air.wait_for_report(since, mac=ben.mac, log_type=1, ssid="Own")
    assert report["ifname"] == "wlan1-own", report
    interface, _ = air.kernel_list()[ben.mac]
    assert interface.startswith("wlan1-own."), interface
    air.agree(ben)
    since = len(air.reports())
    ben.leave()
    assert off(air, since, ben, DEAUTH_RECEIVED)["ifname"] == "wlan1-own"
    air.agree()


@story()
def a_client_with_four_addresses_is_a_repeater(air, anna, ben):
    since = len(air.reports())
    ben.inside("iw", "dev", ben.interface, "set", "4addr", "on")
    ben.join("Open", "wlan1-open", key_mgmt="NONE")
    wait(lambda: air.kernel_list().get(ben.mac, ("",))[0].startswith("wlan1-open.sta"), "its interface of its own")
    report = air.wait_for_report(since, mac=ben.mac, log_type=1, repeater_type=1)
    assert report["ifname"] == "wlan1-open", report
    air.agree(ben)
    since = len(air.reports())
    ben.leave()
    assert off(air, since, ben, DEAUTH_RECEIVED)["ifname"] == "wlan1-open"
    air.agree()
    ben.inside("iw", "dev", ben.interface, "set", "4addr", "off")


@story()
def sixty_clients_come_and_leave_together(air, anna, ben):
    with air.no_search_for_modules():  # hostapd asks for each radio that is moved away
        air.reload_radios(clients=60)
        crowd = Crowd(air)
        macs = sorted(station.mac for station in crowd.stations)
        assert len(macs) == 60
        try:
            since = len(air.reports())
            crowd.come()
            air.agree(*crowd.stations)
            # One that the slow machine sends away in the handshake comes again.
            assert sorted({one["mac"] for one in air.reports()[since:] if one["log_type"] == 1}) == macs
            since = len(air.reports())
            crowd.leave()
            air.agree()
            departures = [one for one in air.reports()[since:] if one["log_type"] == 2]
            assert sorted(one["mac"] for one in departures) == macs
            assert {one["reason_code"] for one in departures} == {DEAUTH_RECEIVED}
        finally:
            crowd.end()
            air.reload_radios(clients=2)
