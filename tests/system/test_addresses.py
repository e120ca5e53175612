"""A station's identity: addresses from real packets, as the access point's kernel sees them, and those of the lease file."""

import json
import signal

import pytest

from wsmlab import network
from wsmlab.overflow import overflow_neighbours

MAC = "02:00:00:00:00:0a"
OTHER = "02:00:00:00:00:0b"

# Sends one datagram to each address given, of either family.
_TALK = """
import socket, sys
for word in sys.argv[1:]:
    kind = socket.AF_INET6 if ":" in word else socket.AF_INET
    with socket.socket(kind, socket.SOCK_DGRAM) as talker:
        talker.sendto(b"hello", (word, 9))
"""

# Asks for 10.99.0.1 in the name of two hundred addresses.
_SPOOF = """
import socket, sys
mac = bytes.fromhex(sys.argv[1].replace(":", ""))
with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as liar:
    liar.bind(("eth0", 0))
    for number in range(200):
        sender = bytes((10, 99, 1, 1 + number))
        liar.send(b"\\xff" * 6 + mac + bytes.fromhex("0806" "0001" "0800" "0604" "0001") + mac + sender + bytes(6) + bytes((10, 99, 0, 1)))
"""


def talk(client, *addresses):
    client.run(["/usr/bin/python3", "-c", _TALK, *addresses])


def addresses(lab, mac=MAC):
    """Address -> origin, of a station; none while it is not known."""
    page = lab.bus("call", "wsmd", "stations", {"fields": ["addresses"], "limit": 256})
    return {one["address"]: one["origin"] for station in page["stations"] if station["mac"] == mac
            for one in station.get("addresses", [])}


def health(lab, section):
    return lab.bus("call", "wsmd", "health")[section]


def wait_for(lab, address, origin="neighbour", mac=MAC):
    lab.wait(lambda: addresses(lab, mac).get(address) == origin, 20, f"{address} to be known by {origin}")


@pytest.fixture
def client(running_lab):
    """A wireless client whose interface is a port of the bridge, and who has associated."""
    client = network.Client(running_lab, "ath0", MAC)
    running_lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0")
    return client


def test_a_static_address_is_known_though_the_client_spoke_too_early(running_lab):
    lab = running_lab
    client = network.Client(lab, "ath0", MAC)
    client.set_address("192.168.10.77")
    lab.wait(lambda: health(lab, "neighbours")["dumps"] >= 1, 10, "the first question")
    talk(client, network.ADDRESS)
    lab.wait(lambda: "192.168.10.77" in lab.run(["ip", "neigh"]).stdout, 10, "the kernel to know the client")
    lab.wait(lambda: health(lab, "neighbours")["unknown"] >= 1, 10, "nobody's address to be heard")
    lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0")
    wait_for(lab, "192.168.10.77")


def test_an_address_that_changes_is_told_and_the_old_one_stays_known(client):
    lab = client.lab
    told = lab.start("subscriber", ["ubus", "-S", "subscribe", "wsmd"])
    lab.wait_for_report(mac=MAC, log_type=3)
    client.set_address("192.168.10.77")
    talk(client, network.ADDRESS)
    wait_for(lab, "192.168.10.77")
    client.run(["ip", "address", "flush", "dev", "eth0", "scope", "global"])
    client.set_address("192.168.10.78")

    def heard():
        talk(client, network.ADDRESS)
        changes = [json.loads(line).get("changed", {}) for line in told.lines() if line.endswith("}")]
        return ("192.168.10.78", "neighbour") in {(one.get("address"), one.get("origin")) for one in changes}

    lab.wait(heard, 20, "the change to be told")
    known = lab.bus("call", "wsmd", "station", {"mac": MAC})
    assert {"192.168.10.77", "192.168.10.78"} <= {one["address"] for one in known["addresses"]}
    assert all(one["since"] <= one["seen"] for one in known["addresses"])
    assert "ip" not in known, "the described address is not changed by neighbours"
    assert lab.bus("call", "sta", "get", {"get_all_sta_status": "online"})["online_list"][0]["ip"] in ("", "0.0.0.0")


def test_an_address_of_its_own_making_is_known(client):
    lab = client.lab
    lab.run(["ip", "address", "add", "2001:db8:10::1/64", "dev", network.BRIDGE, "nodad"])
    lab.start("router", ["dnsmasq", "--keep-in-foreground", "--conf-file=/dev/null", "--pid-file=", "--log-facility=-",
                         "--user=", "--group=", "--port=0", f"--interface={network.BRIDGE}", "--bind-interfaces",
                         "--enable-ra", "--ra-param=*,4", "--dhcp-range=2001:db8:10::,ra-only", "--leasefile-ro"])

    def own():
        return [word.split("/")[0] for line in client.run(["ip", "-6", "address", "show", "dev", "eth0", "scope", "global"]).stdout.splitlines()
                if "tentative" not in line for word in line.split() if word.startswith("2001:db8:10:")]

    made = lab.wait(own, 30, "the client's own address")[0]
    talk(client, "2001:db8:10::1")
    wait_for(lab, made)


def test_an_address_from_the_dhcp_server_is_known_by_its_lease(running_lab):
    lab = running_lab
    network.start_dhcp_server(lab)
    client = network.Client(lab, "ath0", MAC)
    address = client.ask_for_address("phone")
    lab.apsim(f"assoc mac={MAC} ifname=ath0 radio=0")
    wait_for(lab, address, "lease")
    known = lab.bus("call", "wsmd", "station", {"mac": MAC})
    assert known["ip"] == address
    assert [(one["name"], one["origin"]) for one in known["names"]] == [("phone", "lease")]
    talk(client, network.ADDRESS)
    assert addresses(lab)[address] == "lease", "the better way of knowing stays"


def test_who_claims_two_hundred_addresses_keeps_eight(client):
    lab = client.lab
    lab.run(["ip", "address", "add", "10.99.0.1/16", "dev", network.BRIDGE])

    def refused():
        # The kernel keeps a thousand neighbours of all namespaces together: those of other tests may leave no place for a moment.
        client.run(["/usr/bin/python3", "-c", _SPOOF, MAC])
        return health(lab, "addresses")["refused"]

    lab.wait(lambda: refused() >= 150, 20, "most of the claims to be refused")
    assert len(addresses(lab)) == 8
    assert health(lab, "addresses")["kept"] == 8
    lab.apsim(f"disassoc mac={MAC} reason=307")
    lab.wait(lambda: health(lab, "addresses")["kept"] == 0, 10, "the addresses to be given back")


def test_neighbours_of_another_bridge_and_of_groups_are_counted_only(client):
    lab = client.lab
    lab.run(["ip", "-batch", "-"], stdin=f"""\
link add br-guest type bridge
link set br-guest up
neigh add 192.168.20.5 lladdr {MAC} dev br-guest nud permanent
neigh add 192.168.10.5 lladdr 01:00:5e:00:00:05 dev {network.BRIDGE} nud permanent
neigh add 192.168.10.6 lladdr {MAC} dev {network.BRIDGE} nud permanent
""".encode())
    wait_for(lab, "192.168.10.6")
    counted = health(lab, "neighbours")
    assert counted["foreign"] >= 1 and counted["unusable"] >= 1
    assert "192.168.20.5" not in addresses(lab)
    assert "192.168.10.5" not in addresses(lab)


def test_an_overrun_of_the_neighbours_socket_is_counted_and_healed(client):
    lab = client.lab
    lab.wait(lambda: health(lab, "neighbours")["dumps"] >= 2, 20, "the questions of start and association to be asked")
    before = health(lab, "neighbours")
    lab.daemon.signal(signal.SIGSTOP)
    overflow_neighbours(lab, OTHER)
    lab.run(["ip", "neigh", "add", "192.168.10.99", "lladdr", MAC, "dev", network.BRIDGE, "nud", "permanent"])
    lab.daemon.signal(signal.SIGCONT)
    wait_for(lab, "192.168.10.99")
    after = health(lab, "neighbours")
    assert after["overruns"] > before["overruns"]
    assert after["dumps"] > before["dumps"]
    assert health(lab, "events")["overruns"] == 0
