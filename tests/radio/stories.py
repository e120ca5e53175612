#!/usr/bin/python3
"""What the radio tests play, in one virtual machine: stories.py BUILD-FOLDER. Each story ends with the daemon, its reports,
the kernel and hostapd of one opinion. Writes one JSON line for each to $OUT/results, as soon as it is over."""

import json
import os
import pathlib
import re
import signal
import sys
import time
import traceback

from air import GLOBAL, Air, run, wait

TIMEOUT, NETWORK_ENDED, DEAUTH_RECEIVED, DISASSOC_RECEIVED, DEAUTH_SENT, DISASSOC_SENT = 300, 303, 307, 308, 309, 310
STORIES = []


def story(function):
    STORIES.append(function)
    return function


def off(air, since, client, reason):
    """The report that the client has gone."""
    report = air.wait_for_report(since, mac=client.mac, log_type=2)
    assert report["reason_code"] == reason, report
    return report


@story
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


@story
def figures_are_the_kernels(air, anna, ben):
    anna.send("192.168.60.1", packets=30, size=1000)
    air.send(anna.address, packets=20, size=500)

    def between():
        _, before = air.kernel_list()[anna.mac]
        told = air.daemon_list()[anna.mac]
        _, after = air.kernel_list()[anna.mac]
        (air.folder / "beside.json").write_text(json.dumps({"sta get": told, "iw": after}, indent=1))
        return (int(before["rx bytes"]) <= told["wifi_up_cnt"] <= int(after["rx bytes"]) and
                int(before["tx bytes"]) <= told["wifi_down_cnt"] <= int(after["tx bytes"]) and told["wifi_up_cnt"] > 20000 and
                told["power"] == str(95 + int(after["signal"].split()[0])) and
                told["flowup_rate_cnt"] == int(float(after["rx bitrate"].split()[0])) * 1024 and
                told["flowdown_rate_cnt"] == int(float(after["tx bitrate"].split()[0])) * 1024)
    # The daemon asks its driver at every log-up, so its figures are as old as that.
    wait(between, "the kernel's figures", 90)
    air.agree(anna)


@story
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


@story
def a_wrong_password_is_no_station(air, anna, ben):
    since = len(air.reports())
    ben.leave()
    air.agree(anna)
    since = len(air.reports())
    refused = air.log("wpa-ben").count("4-Way Handshake failed")
    ben.cli("select_network", ben.configure("Lobby", psk="not-the-password", frequencies=(5180,)))
    wait(lambda: air.log("wpa-ben").count("4-Way Handshake failed") > refused, "the refusal")
    ben.leave()
    air.agree(anna)
    assert not [one for one in air.reports()[since:] if one["mac"] == ben.mac and one["log_type"] != 2]


@story
def a_client_leaves_by_itself(air, anna, ben):
    since = len(air.reports())
    anna.leave()
    report = off(air, since, anna, DEAUTH_RECEIVED)
    assert report["wifi_up"] > 0 and report["key_start"] and report["key_end"]
    air.agree()


@story
def an_administrator_sends_a_client_away_on_the_bus(air, anna, ben):
    anna.join("Lobby", "wlan1")
    air.agree(anna)
    since = len(air.reports())
    run(air.build_dir / "bin/ubus", "call", "sta", "delete", json.dumps({"mac": anna.mac, "radio": 1}))
    off(air, since, anna, DEAUTH_SENT)
    air.wait_for_report(since, mac=anna.mac, log_type=1)  # it was told, and comes back
    anna.is_at("wlan1")
    air.agree(anna)


@story
def hostapd_sends_a_client_away(air, anna, ben):
    for command, reason in (("deauthenticate", DEAUTH_SENT), ("disassociate", DISASSOC_SENT)):
        since = len(air.reports())
        air.hostapd("wlan1", command, anna.mac)
        off(air, since, anna, reason)
        air.wait_for_report(since, mac=anna.mac, log_type=1)
        anna.is_at("wlan1")
        air.agree(anna)


@story
def another_program_takes_a_client_away(air, anna, ben):
    since = len(air.reports())
    run("iw", "dev", "wlan1", "station", "del", anna.mac)
    off(air, since, anna, DISASSOC_SENT)
    anna.leave()
    air.agree()


@story
def a_client_goes_out_of_reach(air, anna, ben):
    anna.join("Lobby", "wlan1")
    air.agree(anna)
    since = len(air.reports())
    anna.group(2)
    off(air, since, anna, TIMEOUT)
    anna.leave()
    anna.group(1)
    air.agree()


def roam(air, client, to):
    since = len(air.reports())
    bssid = pathlib.Path(f"/sys/class/net/{to}/address").read_text().strip()
    client.cli("scan")
    wait(lambda: bssid in client.cli("scan_results"), f"{to} to be seen")
    assert "OK" in client.cli("roam", bssid)
    client.is_at(to)
    arrival = air.wait_for_report(since, mac=client.mac, log_type=1, ifname=to)
    assert arrival["is_reassoc"] == 1, arrival
    departure = air.wait_for_report(since, mac=client.mac, log_type=4)
    assert departure["ifname"] != to, departure
    air.agree(*(one for one in air.clients if one.network))
    # The old network's entry ends two seconds later: that is no departure.
    wait(lambda: air.hostapd(departure["ifname"], "sta", client.mac, check=False).startswith("FAIL"), "the old entry's end")
    assert not [one for one in air.reports()[since:] if one["mac"] == client.mac and one["log_type"] == 2]


@story
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


@story
def a_client_roams_with_fast_transition(air, anna, ben):
    ben.cli("select_network", ben.configure("Lobby", key_mgmt="FT-PSK"))
    wait(lambda: ben.status().get("wpa_state") == "COMPLETED", "ben to be there")
    ben.network = "wlan0" if ben.status()["freq"] == "2437" else "wlan1"
    air.agree(ben)
    other = {"wlan0": "wlan1", "wlan1": "wlan0"}
    roam(air, ben, other[ben.network])
    assert air.daemon_list()[ben.mac]["roam_enable"] == 1
    roam(air, ben, other[ben.network])


@story
def a_client_changes_the_network_name(air, anna, ben):
    ben.join("Open", "wlan1-open", key_mgmt="NONE")
    air.agree(ben)


@story
def a_client_has_a_vlan_of_its_own(air, anna, ben):
    since = len(air.reports())
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


@story
def hostapd_is_stopped_and_started(air, anna, ben):
    anna.join("Lobby", "wlan1")
    ben.join("Lobby", "wlan0")
    air.agree(anna, ben)
    for number in (signal.SIGTERM, signal.SIGKILL):
        since = len(air.reports())
        air.stop("hostapd", number)
        off(air, since, anna, NETWORK_ENDED)
        off(air, since, ben, NETWORK_ENDED)
        air.start_hostapd()
        anna.is_at("wlan1")
        ben.is_at("wlan0")
        air.agree(anna, ben)


@story
def the_daemon_starts_anew(air, anna, ben):
    air.stop("wsmd", signal.SIGINT)
    since = len(air.reports())
    air.start_daemon()
    air.wait_for_report(since, mac=anna.mac, log_type=1)
    air.wait_for_report(since, mac=ben.mac, log_type=1)
    air.agree(anna, ben)
    told = [one["mac"] for one in air.reports()[since:] if one["log_type"] == 1]
    assert sorted(told) == sorted([anna.mac, ben.mac]), told


@story
def the_bridge_starts_anew(air, anna, ben):
    for number in (signal.SIGTERM, signal.SIGKILL):
        since = len(air.reports())
        air.stop("wsm-bridge", number)
        ben.leave()
        air.start_bridge()
        off(air, since, ben, DEAUTH_RECEIVED)
        air.agree(anna)
        assert not [one for one in air.reports()[since:] if one["mac"] == anna.mac and one["log_type"] in (1, 2)]
        ben.join("Lobby", "wlan0")
        air.agree(anna, ben)


@story
def the_broker_starts_anew_and_the_daemon_with_it(air, anna, ben):
    air.stop("ubusd")
    air.start_ubusd()
    air.stop("wsmd", signal.SIGINT)  # as a supervisor does: the daemon does not connect again
    air.start_daemon()
    air.agree(anna, ben)
    ben.leave()
    air.agree(anna)


@story
def clients_join_in_their_usual_time_while_the_daemon_stands_still(air, anna, ben):
    air.running["wsmd"].send_signal(signal.SIGSTOP)
    try:
        for _ in range(3):
            ben.join("Lobby", "wlan0")
            ben.leave()
        ben.join("Lobby", "wlan0")
    finally:
        air.running["wsmd"].send_signal(signal.SIGCONT)
    air.agree(anna, ben)


@story
def the_bridge_stands_still_and_goes_on(air, anna, ben):
    air.running["wsm-bridge"].send_signal(signal.SIGSTOP)
    try:
        ben.leave()
    finally:
        air.running["wsm-bridge"].send_signal(signal.SIGCONT)
    air.agree(anna)


@story
def hostapds_global_socket_does_for_networks_without_one(air, anna, ben):
    air.stop("wsm-bridge")
    air.start_bridge("--control", "/run/nowhere", "--global", GLOBAL)
    try:
        since = len(air.reports())
        ben.join("Lobby", "wlan0")
        report = air.wait_for_report(since, mac=ben.mac, log_type=1)
        assert report["version"] == "11n" and report["ap_assoc_req"], report
        air.agree(anna, ben)
        ben.leave()
        off(air, since, ben, DEAUTH_RECEIVED)
    finally:
        air.stop("wsm-bridge")
        air.start_bridge()
    air.agree(anna)


@story
def a_network_is_removed(air, anna, ben):
    ben.join("Open", "wlan1-open", key_mgmt="NONE")
    air.agree(anna, ben)
    since = len(air.reports())
    run("iw", "dev", "wlan1-open", "del")
    off(air, since, ben, NETWORK_ENDED)
    ben.leave()
    air.agree(anna)


def main():
    build_dir, results = sys.argv[1], pathlib.Path(os.environ["OUT"])
    chosen = re.compile(sys.argv[2]) if len(sys.argv) > 2 else None
    with Air(build_dir, results) as air, (results / "results").open("a", encoding="utf-8", buffering=1) as told:
        begin = time.monotonic()
        air.start(clients=2)
        anna, ben = air.client("anna"), air.client("ben")
        print(f"everything runs after {time.monotonic() - begin:.0f} s", flush=True)
        for one in STORIES:
            if chosen and not chosen.search(one.__name__):
                continue
            begin = time.monotonic()
            try:
                one(air, anna, ben)
                fault = ""
            except Exception:  # pylint: disable=broad-except # whatever it was, the next story is told, too
                fault = traceback.format_exc()
            seconds = time.monotonic() - begin
            told.write(json.dumps({"story": one.__name__, "fault": fault, "seconds": round(seconds, 1)}) + "\n")
            print(f"{seconds:6.1f} s  {one.__name__}{': FAILED' if fault else ''}", flush=True)


if __name__ == "__main__":
    main()
