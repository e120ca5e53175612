"""What happens to the programs and the radios of the access point."""

import signal

from wsmlab.air import GLOBAL, run, wait
from story import DEAUTH_RECEIVED, NETWORK_ENDED, off, story

SENDTO, SENDMSG = "44", "46"  # of /proc/PID/syscall on x86-64


@story(anna="wlan1", ben="wlan0")
def hostapd_is_stopped_and_started(air, anna, ben):
    for number in (signal.SIGTERM, signal.SIGKILL):
        since = len(air.reports())
        air.stop("hostapd", number)
        off(air, since, anna, NETWORK_ENDED)
        off(air, since, ben, NETWORK_ENDED)
        air.start_hostapd()
        anna.is_at("wlan1")
        ben.is_at("wlan0")
        air.agree(anna, ben)


@story(anna="wlan1", ben="wlan0")
def the_daemon_starts_anew(air, anna, ben):
    air.stop("wsmd", signal.SIGINT)
    since = len(air.reports())
    air.start_daemon()
    air.wait_for_report(since, mac=anna.mac, log_type=1)
    air.wait_for_report(since, mac=ben.mac, log_type=1)
    air.agree(anna, ben)
    told = [one["mac"] for one in air.reports()[since:] if one["log_type"] == 1]
    assert sorted(told) == sorted([anna.mac, ben.mac]), told


@story(anna="wlan1", ben="wlan0")
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


@story(anna="wlan1", ben="wlan0")
def the_broker_starts_anew_and_the_daemon_with_it(air, anna, ben):
    air.stop("ubusd")
    air.start_ubusd()
    air.stop("wsmd", signal.SIGINT)  # as a supervisor does: the daemon does not connect again
    air.start_daemon()
    air.agree(anna, ben)
    ben.leave()
    air.agree(anna)


@story(anna="wlan1")
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


@story(anna="wlan1", ben="wlan0")
def the_bridge_stands_still_and_goes_on(air, anna, ben):
    air.running["wsm-bridge"].send_signal(signal.SIGSTOP)
    try:
        ben.leave()
    finally:
        air.running["wsm-bridge"].send_signal(signal.SIGCONT)
    air.agree(anna)


@story(anna="wlan1")
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


@story(anna="wlan1", ben="wlan1-open")
def a_network_is_removed(air, anna, ben):
    since = len(air.reports())
    run("iw", "dev", "wlan1-open", "del")
    off(air, since, ben, NETWORK_ENDED)
    ben.leave()
    air.agree(anna)
    air.stop("hostapd")
    air.start_hostapd()
    anna.is_at("wlan1")
    air.agree(anna)


@story(ben="wlan0")
def a_network_has_another_name_afterwards(air, anna, ben):
    since = len(air.reports())
    run("ip", "link", "set", "wlan0", "down")
    off(air, since, ben, NETWORK_ENDED)
    air.stop("hostapd")
    for old, new in (("wlan0", "ap0"), ("ap0", "wlan0")):
        ben.leave()
        since = len(air.reports())
        run("ip", "link", "set", old, "name", new)
        air.names[0] = new
        air.start_hostapd()
        ben.join("Lobby", new)
        report = air.wait_for_report(since, mac=ben.mac, log_type=1)
        assert (report["ifname"], report["radio_id"], report["channel"]) == (new, 0, 6), report
        air.agree(ben)
        air.stop("hostapd")
        off(air, since, ben, NETWORK_ENDED)
        run("ip", "link", "set", new, "down")
    air.start_hostapd()
    ben.is_at("wlan0")
    air.agree(ben)


@story(anna="wlan1", ben="wlan0")
def the_radios_driver_is_removed_and_loaded_again(air, anna, ben):
    since = len(air.reports())
    air.remove_radios()
    off(air, since, anna, NETWORK_ENDED)
    off(air, since, ben, NETWORK_ENDED)
    wait(lambda: air.daemon_list() == {}, "an empty list")
    air.reload_radios(clients=2)
    since = len(air.reports())
    again = air.client("anna")
    again.join("Lobby", "wlan1")
    report = air.wait_for_report(since, mac=again.mac, log_type=1)
    assert (report["version"], report["ifname"]) == ("11ax", "wlan1"), report
    air.agree(again)


@story(anna="wlan1")
def the_kernel_alone_tells_of_stations(air, anna, ben):
    air.stop("wsm-bridge")
    air.start_bridge("--control", "/run/nowhere", "--global", "/run/nowhere/global", has_hostapd=False)
    try:
        since = len(air.reports())
        ben.join("Lobby", "wlan0")
        report = air.wait_for_report(since, mac=ben.mac, log_type=1)
        assert (report["ifname"], report["version"], report["ap_assoc_req"]) == ("wlan0", "", ""), report
        air.agree(anna, ben)
        # The kernel drops messages for a bridge that does not read: the next list shows who has left and come.
        with air.small_netlink_buffer("wsm-bridge") as lost:
            air.running["wsm-bridge"].send_signal(signal.SIGSTOP)
            try:
                ben.leave()
                ben.join("Open", "wlan1-open", key_mgmt="NONE")
                anna.leave()
                wait(lost, "lost messages")
            finally:
                air.running["wsm-bridge"].send_signal(signal.SIGCONT)
            wait(lambda: "messages came too fast" in air.log("wsm-bridge"), "the bridge to notice")
        air.agree(ben)
        since = len(air.reports())
        ben.leave()
        off(air, since, ben, DEAUTH_RECEIVED)
    finally:
        air.stop("wsm-bridge")
        air.start_bridge()
    air.agree()


@story(anna="wlan1", ben="wlan0")
def hostapd_stands_still_and_goes_on(air, anna, ben):
    since = len(air.reports())
    given_up = air.log("wsm-bridge").count("hostapd is gone")
    told = air.log("wsm-bridge").count("tells of its stations")
    air.running["hostapd"].send_signal(signal.SIGSTOP)
    try:
        wait(lambda: air.log("wsm-bridge").count("hostapd is gone") >= given_up + len(air.names), "the bridge to give hostapd up")
        assert set(air.daemon_list()) == {anna.mac, ben.mac}
        ben.leave()  # nobody receives its message
    finally:
        air.running["hostapd"].send_signal(signal.SIGCONT)
    wait(lambda: air.log("wsm-bridge").count("tells of its stations") >= told + len(air.names), "hostapd to be heard again")
    air.agree(anna)
    assert not [one for one in air.reports()[since:] if one["mac"] == anna.mac and one["log_type"] in (1, 2)]


@story(anna="wlan1")
def a_bridge_that_stands_still_stops_hostapd_until_it_is_killed(air, anna, ben):
    """What docs/bridge.md says of it. hostapd's sockets hold only some ten messages here, so that it does not take long."""
    def restart_hostapd():
        air.stop("hostapd")
        air.start_hostapd()
        anna.is_at("wlan1")
        air.agree(anna)

    def hostapd_waits():
        number = open(f"/proc/{air.running['hostapd'].pid}/syscall", encoding="ascii").read().split()[0]
        return number in (SENDTO, SENDMSG)
    with air.setting("net/core/wmem_default", 8192):
        restart_hostapd()
    air.running["wsm-bridge"].send_signal(signal.SIGSTOP)
    try:
        for _ in range(20):
            ben.cli("disconnect")
            ben.cli("select_network", ben.configure("Lobby", frequencies=(2437,)))
            wait(lambda: ben.status().get("wpa_state") == "COMPLETED" or hostapd_waits(), "ben to join, or hostapd to wait")
            if hostapd_waits():
                break
        wait(hostapd_waits, "hostapd to wait for the bridge")
    finally:
        air.stop("wsm-bridge", signal.SIGKILL)  # as its supervisor's watchdog does
    wait(lambda: not hostapd_waits(), "hostapd to go on")
    air.start_bridge()
    ben.is_at("wlan0")
    air.agree(anna, ben)
    ben.leave()
    restart_hostapd()
