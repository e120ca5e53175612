"""The daemon's accounting chains, as iptables-save shows them, with both back ends of iptables."""

import re

import pytest

from wsmlab import FirewallUnusable

BUILT_IN = [":PREROUTING ACCEPT", ":INPUT ACCEPT", ":FORWARD ACCEPT", ":OUTPUT ACCEPT", ":POSTROUTING ACCEPT"]
CHAINS = [":PREROUTING-outgoing -", ":POSTROUTING-incoming -"]
HOOKS = ["-A PREROUTING -j PREROUTING-outgoing", "-A POSTROUTING -j POSTROUTING-incoming"]
NAT = [":PREROUTING ACCEPT", ":INPUT ACCEPT", ":OUTPUT ACCEPT", ":POSTROUTING ACCEPT", ":prerouting_lan -",
       "-A PREROUTING -i br-lan -j prerouting_lan", "-A POSTROUTING -o wan -j MASQUERADE"]


@pytest.fixture(params=["nft", "legacy"])
def access_point(request, open_lab):
    try:
        lab = open_lab(firewall=request.param)
    except FirewallUnusable as error:
        pytest.skip(str(error))
    lab.start_ubusd()
    return lab


def mangle(lab):
    return sorted(lab.firewall_rules("mangle"))


def exchange_datagrams(lab, client, count, sent, answered):
    """The client sends datagrams to the access point, each of which is answered."""
    server = lab.start("server", ["/usr/bin/python3", "-c", f"""
import socket
with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
    s.bind(("192.168.10.1", 4000))
    print("ready", flush=True)
    for _ in range({count}):
        s.sendto(bytes({answered}), s.recvfrom(2000)[1])"""])
    lab.wait(server.text, what="the server")
    client.run(["/usr/bin/python3", "-c", f"""
import socket
with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
    s.settimeout(10)
    s.connect(("192.168.10.1", 4000))
    for _ in range({count}):
        s.send(bytes({sent}))
        s.recv(2000)"""])
    assert server.wait() == 0


def test_a_start_makes_two_chains_and_hooks_them(access_point):
    access_point.start_daemon()
    assert mangle(access_point) == sorted(BUILT_IN + CHAINS + HOOKS)
    assert access_point.firewall_rules("nat") == NAT


def test_a_stop_takes_them_away_and_leaves_foreign_rules_of_the_table(access_point):
    foreign = "-A FORWARD -s 10.9.9.9/32 -j DROP"
    access_point.run(["iptables", "-t", "mangle", "-A", "FORWARD", "-s", "10.9.9.9", "-j", "DROP", "-w"])
    access_point.start_daemon()
    assert access_point.daemon.stop(20) == 1
    assert mangle(access_point) == sorted(BUILT_IN + [foreign])


def test_start_and_stop_empty_the_systems_chain_for_clients(access_point):
    rule = ["iptables", "-t", "nat", "-A", "prerouting_lan", "-s", "10.0.0.1", "-j", "RETURN", "-w"]
    access_point.run(rule)
    access_point.start_daemon()
    assert access_point.firewall_rules("nat") == NAT
    access_point.run(rule)
    access_point.daemon.stop(20)
    assert access_point.firewall_rules("nat") == NAT


def test_a_start_after_a_crash_replaces_what_was_left(access_point):
    access_point.start_daemon()
    access_point.run(["iptables", "-t", "mangle", "-A", "PREROUTING-outgoing", "-s", "10.0.0.1", "-m", "mac",
                      "--mac-source", "02:00:00:00:00:01", "-j", "RETURN", "-w"])
    access_point.daemon.kill()
    access_point.start_daemon()
    assert mangle(access_point) == sorted(BUILT_IN + CHAINS + HOOKS)


def test_on_a_clean_system_the_clean_up_fails_six_times_and_says_so(access_point):
    access_point.start_daemon()
    commands = re.findall(r"iptables command failed\(\d+\): (.*)", "\n".join(access_point.log_lines()))
    assert commands == [f"iptables {arguments} -w" for arguments in (
        "-t mangle -D PREROUTING -j PREROUTING-outgoing", "-t mangle -F PREROUTING-outgoing",
        "-t mangle -X PREROUTING-outgoing", "-t mangle -D POSTROUTING -j POSTROUTING-incoming",
        "-t mangle -F POSTROUTING-incoming", "-t mangle -X POSTROUTING-incoming")]


def test_the_hooks_count_the_bytes_of_a_clients_packets(access_point):
    access_point.start_daemon()
    client = access_point.client("phone", "02:00:00:00:00:10")
    client.set_address("192.168.10.20")
    exchange_datagrams(access_point, client, count=10, sent=972, answered=200)

    def counted(chain, rule):
        lines = access_point.run(["iptables", "-t", "mangle", "-nvxL", chain, "-w"]).stdout.splitlines()
        return next(int(line.split()[1]) for line in lines if rule in line)
    # 28 bytes of headers on each of ten packets; the kernel adds a few multicast reports of its own
    assert 0 <= counted("PREROUTING", "PREROUTING-outgoing") - 10 * (972 + 28) < 500
    assert 0 <= counted("POSTROUTING", "POSTROUTING-incoming") - 10 * (200 + 28) < 500


# --- one host's rules: nothing in the daemon adds them, so the tests call its functions directly ---

IP, MAC = "192.168.10.20", "02:00:00:00:00:10"
HOST_RULES = {
    "mangle": [f"-A POSTROUTING-incoming -d {IP}/32 -j RETURN",
               f"-A PREROUTING-outgoing -s {IP}/32 -m mac --mac-source {MAC} -j RETURN"],
    "nat": [f"-A prerouting_lan -s {IP}/32 -m mac --mac-source {MAC} -j RETURN"],
}


@pytest.fixture
def hosts(access_point):
    """Calls a firewall function in a lab whose daemon runs; returns what it printed."""
    access_point.start_daemon()

    def call(*words):
        return access_point.run(["fw-hosts", *words]).stdout.strip()
    call.lab = access_point
    return call


def host_rules(lab):
    return {table: sorted(rule for rule in lab.firewall_rules(table) if "RETURN" in rule)
            for table in ("mangle", "nat")}


def test_a_host_gets_three_rules_once(hosts):
    assert hosts("exist", IP, MAC) == "0"
    assert hosts("add", IP, MAC) == "0"
    assert host_rules(hosts.lab) == HOST_RULES
    assert hosts("exist", IP, MAC) == "1"
    assert hosts("add", IP, MAC) == "0"
    assert host_rules(hosts.lab) == HOST_RULES
    assert hosts("exist", IP, MAC.upper()) == "1"


def test_a_host_is_not_taken_for_one_whose_address_begins_alike(hosts):
    assert hosts("add", IP + "0", MAC) == "0"
    assert hosts("exist", IP, MAC) == "0"
    assert hosts("bytes", IP) == "0 0 0"


def test_a_hosts_rules_are_deleted_and_a_second_time_are_not_there(hosts):
    hosts("add", IP, MAC)
    assert hosts("delete", IP, MAC) == "0"
    assert host_rules(hosts.lab) == {"mangle": [], "nat": []}
    assert int(hosts("delete", IP, MAC)) > 0


@pytest.mark.parametrize("ip, mac", [
    ("0.0.0.0", MAC), ("", MAC), ("1.2.3", MAC), ("a.b.c.d", MAC), (IP, ""), ("1.1.1.1;touch /tmp/owned", MAC),
    ("$(touch /tmp/owned)", MAC), (IP, "$(touch /tmp/owned)"), (IP, "`touch /tmp/owned`"), (IP, ";touch /tmp/owned"),
    (IP, "\ntouch /tmp/owned\n"), (IP, "'\"")])
def test_what_is_no_address_is_refused_before_it_reaches_a_command(hosts, ip, mac):
    before = host_rules(hosts.lab)
    assert hosts("add", ip, mac) == hosts("delete", ip, mac) == "-1"
    assert hosts("exist", ip, mac) == "0"
    if mac == MAC:
        assert hosts("bytes", ip) == "0 0 0"
    assert host_rules(hosts.lab) == before
    assert not (hosts.lab.files / "owned").exists()


def test_a_hosts_counters_show_the_bytes_that_its_packets_had(hosts):
    hosts("add", IP, MAC)
    client = hosts.lab.client("phone", MAC)
    client.set_address(IP)
    exchange_datagrams(hosts.lab, client, count=20, sent=1172, answered=472)
    # 28 bytes of headers; of one flow the nat table sees the first packet alone
    assert hosts("bytes", IP) == f"{20 * 1200} {20 * 500} 1200"
    up, down = map(int, hosts("total").split())
    assert 20 * 1200 // 1024 <= up <= 20 * 1200 // 1024 + 1 and 20 * 500 // 1024 <= down <= 20 * 500 // 1024 + 1


def test_a_client_with_a_foreign_address_is_not_counted_on_the_host(hosts):
    hosts("add", IP, "02:00:00:00:00:99")  # this address belongs to another station
    client = hosts.lab.client("phone", MAC)
    client.set_address(IP)
    exchange_datagrams(hosts.lab, client, count=3, sent=100, answered=100)
    assert hosts("bytes", IP) == f"0 {3 * 128} 0"
