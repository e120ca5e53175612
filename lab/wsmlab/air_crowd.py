"""Many stations at once: radios in one network namespace, with one wpa_supplicant for them all.

A machine under emulation has hostapd answer some ten authentications a second, and a station gives up after 0.6 s. So no
radio hears another's frames but the access point's, keys are computed once, and some stations at a time are on their way.
"""

import hashlib
import pathlib
import re
import shutil
import socket

from .air_clients import PASSWORD, PATIENCE, run, wait

NAME = "crowd"
FOLDER = pathlib.Path("/run/wpa-crowd")
SSIDS = ("Lobby", "Lobby", "Open")  # of the first three networks
ON_THE_WAY = 8


class CrowdStation:
    def __init__(self, interface, mac, network):
        self.interface, self.mac, self.network = interface, mac, network


class Crowd:
    """One station for each of an Air's free radios, a third of them for each of its first three networks; all are away."""

    def __init__(self, air):
        self._air = air
        run("ip", "netns", "add", NAME)
        for phy in air.free_radios:
            run("iw", "phy", phy, "set", "netns", "name", NAME)
        air.free_radios = []
        self._keep_apart()
        found = re.findall(r"Interface (\S+).*?addr (\S+)", run("ip", "netns", "exec", NAME, "iw", "dev"), flags=re.S)
        self.stations = [CrowdStation(interface, mac, air.names[number % 3]) for number, (interface, mac) in enumerate(sorted(found))]
        self._start_program()

    @staticmethod
    def _keep_apart():
        """The two radios of the access point are in every group, the others in one of 32 each."""
        radios = sorted(pathlib.Path("/sys/kernel/debug/ieee80211").iterdir(), key=lambda path: int(path.name[3:]))
        for number, radio in enumerate(radios):
            (radio / "hwsim/group").write_text(str(0xffffffff if number < 2 else 1 << number % 32))

    def _start_program(self):
        FOLDER.mkdir()
        key = hashlib.pbkdf2_hmac("sha1", PASSWORD.encode(), b"Lobby", 4096, 32).hex()
        words = []
        for station in self.stations:
            number = self._air.names.index(station.network)
            frequency = 2437 if number == 0 else 5180
            security = "key_mgmt=NONE" if SSIDS[number] == "Open" else f"key_mgmt=WPA-PSK\npsk={key}"
            configuration = FOLDER / f"{station.interface}.conf"
            configuration.write_text(f'network={{\ndisabled=1\nssid="{SSIDS[number]}"\nbssid={self._air.bssid(station.network)}\n'
                                     f"scan_freq={frequency}\nfreq_list={frequency}\n{security}\n}}\n")
            words += [*(["-N"] if words else []), "-i", station.interface, "-c", configuration]
        self._air.spawn(f"wpa-{NAME}", "ip", "netns", "exec", NAME, "wpa_supplicant", "-t", "-g", FOLDER / "global", *words)
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(str(FOLDER / "asks"))
        self._socket.settimeout(PATIENCE)
        wait(lambda: self._socket.connect_ex(str(FOLDER / "global")) == 0, "wpa_supplicant of the crowd")
        wait(lambda: all(self._ask(station, "PING") == "PONG" for station in self.stations), "all its interfaces")

    def _ask(self, station, command):
        self._socket.send(f"IFNAME={station.interface} {command}".encode())
        return self._socket.recv(4096).decode().strip()

    def come(self):
        """All join, some at a time."""
        begin, waiting, on_the_way = len(self._air.log(f"wpa-{NAME}")), list(self.stations), []

        def all_are_there():
            there = set(re.findall(r"(\S+): CTRL-EVENT-CONNECTED", self._air.log(f"wpa-{NAME}")[begin:]))
            on_the_way[:] = [station for station in on_the_way if station.interface not in there]
            while waiting and len(on_the_way) < ON_THE_WAY:
                on_the_way.append(waiting.pop(0))
                assert self._ask(on_the_way[-1], "SELECT_NETWORK 0") == "OK"
            return not on_the_way
        wait(all_are_there, "all to be there", 4 * PATIENCE)

    def leave(self):
        """All at once."""
        for station in self.stations:
            assert self._ask(station, "DISCONNECT") == "OK"

    def end(self):
        self._socket.close()
        self._air.stop(f"wpa-{NAME}")
        shutil.rmtree(FOLDER)
        run("ip", "netns", "del", NAME)
