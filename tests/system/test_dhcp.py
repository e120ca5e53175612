"""Real DHCP: a server on the access point's bridge, clients in network namespaces of their own."""

from wsmlab import network

CLIENTS = {"phone": "02:00:00:00:01:01", "tablet": "02:00:00:00:01:02", "tv": "02:00:00:00:01:03"}


def test_stations_get_the_address_and_name_that_the_server_wrote(running_lab):
    network.start_dhcp_server(running_lab)
    addresses = {mac: running_lab.client(name, mac).ask_for_address(name) for name, mac in CLIENTS.items()}
    for mac in CLIENTS.values():
        running_lab.apsim(f"assoc mac={mac} ifname=ath0 radio=0")
    running_lab.wait(lambda: [station["status"] for station in running_lab.online().values()] == [1] * 3, 15,
                     "three stations on line")
    shown = {mac: (station["ip"], station["name"]) for mac, station in running_lab.online().items()}
    assert shown == {mac: (addresses[mac], name) for name, mac in CLIENTS.items()}
    assert len(set(addresses.values())) == 3


def test_an_address_that_is_leased_late_is_found_at_the_next_look(running_lab):
    network.start_dhcp_server(running_lab)
    mac = CLIENTS["phone"]
    running_lab.apsim(f"assoc mac={mac} ifname=ath0 radio=0")
    running_lab.wait(lambda: running_lab.online().get(mac, {}).get("status") == 1, 15, "the station on line")
    address = running_lab.client("phone", mac).ask_for_address("phone")
    running_lab.wait(lambda: running_lab.online()[mac]["ip"] == address, 15, "the address")
    assert running_lab.online()[mac]["name"] == "phone"
