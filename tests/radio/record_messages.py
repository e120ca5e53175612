#!/usr/bin/python3
"""Records the kernel's messages about one station, and what iw and hostapd say of it. tests/golden/nl80211 was made with

    lab/vm --out FOLDER --empty /tmp --empty /etc/config env PYTHONPATH=lab python3 tests/radio/record_messages.py

Each NAME.hex holds one message from its generic netlink header on. Only hostapd and one client run.
"""

import os
import pathlib
import socket
import struct

from wsmlab.air import CONTROL, Air, run, wait

SOL_NETLINK, ADD_MEMBERSHIP, GENERIC = 270, 1, 16
REQUEST, DUMP, DONE, ERROR = 1, 0x300, 3, 2
CONTROLLER, GET_FAMILY = 16, 3
GET_INTERFACE, GET_STATION, NEW_STATION, DEL_STATION, FRAME_TX_STATUS = 5, 17, 19, 20, 60
CONTROL_PORT_FRAME_TX_STATUS = 139


def attributes(data):
    """The attributes of a buffer: type -> body."""
    found = {}
    while len(data) >= 4:
        size, kind = struct.unpack_from("=HH", data)
        found[kind & 0x3fff] = data[4:size]
        data = data[(size + 3) & ~3:]
    return found


def attribute(kind, body):
    return (struct.pack("=HH", 4 + len(body), kind) + body).ljust((4 + len(body) + 3) & ~3, b"\0")


class Netlink:
    def __init__(self):
        self.socket = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, GENERIC)
        self.socket.bind((0, 0))
        self.socket.settimeout(30)

    def ask(self, family, command, body, flags=0):
        """The messages that answer, from their generic header on."""
        self.socket.send(struct.pack("=IHHII", 20 + len(body), family, REQUEST | flags, 1, 0) + struct.pack("=BBH", command, 0, 0) + body)
        answers = []
        while True:
            for kind, payload in self.read():
                if kind in (DONE, ERROR):
                    return answers
                answers.append(payload)
                if not flags:
                    return answers

    def read(self):
        data, found = self.socket.recv(32768), []
        while data:
            size, kind = struct.unpack_from("=IH", data)
            found.append((kind, data[16:size]))
            data = data[(size + 3) & ~3:]
        return found


def main():
    out = pathlib.Path(os.environ["OUT"])
    asks, hears = Netlink(), Netlink()
    with Air("/nowhere", out) as air:
        air.make_radios(3)
        air.lay_out()
        run("ip", "link", "add", "br-lan", "type", "bridge")
        run("ip", "addr", "add", "192.168.60.1/24", "dev", "br-lan")
        run("ip", "link", "set", "br-lan", "up")
        air.start_hostapd()
        described = attributes(asks.ask(CONTROLLER, GET_FAMILY, attribute(2, b"nl80211\0"))[0][4:])
        family, = struct.unpack("=H", described[1])
        groups = [attributes(one) for one in attributes(described[7]).values()]
        group = next(struct.unpack("=I", one[2])[0] for one in groups if one[1] == b"mlme\0")
        hears.socket.setsockopt(SOL_NETLINK, ADD_MEMBERSHIP, group)
        index = int(pathlib.Path("/sys/class/net/wlan1/ifindex").read_text())
        of_network = attribute(3, struct.pack("=I", index))

        def keep(name, payload):
            (out / f"{name}.hex").write_text("\n".join(payload[at:at + 32].hex(" ") for at in range(0, len(payload), 32)) + "\n")

        def hear(*commands):
            """The next message with one of these commands."""
            while True:
                for _, payload in hears.read():
                    if payload[0] in commands:
                        return payload

        anna = air.client("anna")
        anna.join("Lobby", "wlan1")
        keep("new_station_event", hear(NEW_STATION))
        response = hear(FRAME_TX_STATUS)
        while attributes(response[4:])[0x33][0] >> 4 != 1:
            response = hear(FRAME_TX_STATUS)
        keep("assoc_response_sent", response)
        keep("key_frame_sent", hear(CONTROL_PORT_FRAME_TX_STATUS))
        anna.inside("ip", "addr", "add", "192.168.60.9/24", "dev", anna.interface)
        anna.send("192.168.60.1", packets=30, size=1000)
        air.send("192.168.60.9", packets=20, size=500)
        keep("interface", asks.ask(family, GET_INTERFACE, of_network)[0])

        def quiet():
            """Between two lists nothing has changed except the time."""
            before = asks.ask(family, GET_STATION, of_network, DUMP)[0]
            said = run("iw", "dev", "wlan1", "station", "dump")
            after = asks.ask(family, GET_STATION, of_network, DUMP)[0]
            counts = [[attributes(attributes(one[4:])[21])[kind] for kind in (9, 10, 23, 24, 11, 12)] for one in (before, after)]
            return counts[0] == counts[1] and (before, said)
        listed, said = wait(quiet, "a quiet moment")
        keep("station_listed", listed)
        (out / "station_listed.iw").write_text(said)
        (out / "station_listed.hostapd").write_text(run("hostapd_cli", "-p", CONTROL, "-i", "wlan1", "sta", anna.mac))
        anna.leave()
        keep("del_station_event", hear(DEL_STATION))
        (out / "kernel").write_text(os.uname().release + "\n" + run("iw", "--version"))


if __name__ == "__main__":
    main()
