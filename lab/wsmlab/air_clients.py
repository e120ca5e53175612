"""Clients of an access point with simulated radios: each radio in a network namespace, real wpa_supplicant and udhcpc."""

import pathlib
import re
import shutil
import subprocess
import time

PATIENCE = 120
PASSWORD = "secret1234"

SEND = """import socket, sys
sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
for _ in range(int(sys.argv[2])): sender.sendto(bytes(int(sys.argv[3])), (sys.argv[1], 9))"""


class Silence(AssertionError):
    """A wait has timed out."""


def run(*argv, check=True, timeout=PATIENCE):
    """Runs a program to its end; returns what it printed."""
    done = subprocess.run([str(word) for word in argv], capture_output=True, text=True, errors="replace", timeout=timeout,
                          check=False)
    if check and done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, argv))}: status {done.returncode}: {done.stdout}{done.stderr}")
    return done.stdout


def wait(predicate, what, timeout=PATIENCE):
    """Calls it until it gives something true, and returns that."""
    end = time.monotonic() + timeout
    while not (value := predicate()):
        if time.monotonic() > end:
            raise Silence(f"waited {timeout} s for {what}; last value: {value!r}")
        time.sleep(0.05)
    return value


class Client:
    """A station: a radio in a network namespace of its own, with wpa_supplicant."""

    def __init__(self, air, name, phy):
        self.air, self.name, self.phy = air, name, phy
        self.network = None
        self.address = None
        run("ip", "netns", "add", name)
        run("iw", "phy", phy, "set", "netns", "name", name)
        self.interface = re.search(r"Interface (\S+)", self.inside("iw", "dev"))[1]
        self.mac = re.search(r"link/ether (\S+)", self.inside("ip", "link", "show", "dev", self.interface))[1]
        self.inside("ip", "link", "set", "lo", "up")
        folder = pathlib.Path(f"/run/wpa-{name}")
        folder.mkdir()
        configuration = folder / "conf"
        configuration.write_text(f"ctrl_interface={folder}\ncountry=US\n")
        air.spawn(f"wpa-{name}", "ip", "netns", "exec", name, "wpa_supplicant", "-t", "-i", self.interface, "-c", configuration)
        wait(lambda: "PONG" in self.cli("ping", check=False), f"wpa_supplicant of {name}")

    def inside(self, *words, check=True, timeout=PATIENCE):
        return run("ip", "netns", "exec", self.name, *words, check=check, timeout=timeout)

    def cli(self, *words, check=True):
        return run("wpa_cli", "-p", f"/run/wpa-{self.name}", "-i", self.interface, *words, check=check)

    def log_size(self):
        return len(self.air.log(f"wpa-{self.name}"))

    def log_since(self, begin):
        """The output of its program after the first `begin` characters."""
        return self.air.log(f"wpa-{self.name}")[begin:]

    def status(self):
        return dict(line.split("=", 1) for line in self.cli("status", check=False).splitlines() if "=" in line)

    def configure(self, ssid, *, key_mgmt="WPA-PSK", psk=PASSWORD, frequencies=(2437, 5180), **more):
        """Sets the network to join; earlier ones are removed."""
        self.cli("remove_network", "all")
        number = self.cli("add_network").split()[-1]
        settings = {"ssid": f'"{ssid}"', "key_mgmt": key_mgmt, "scan_freq": " ".join(map(str, frequencies)),
                    "freq_list": " ".join(map(str, frequencies)), **more}
        if key_mgmt != "NONE":
            settings["psk"] = f'"{psk}"'
        for name, value in settings.items():
            self.cli("set_network", number, name, value)
        return number

    def join(self, ssid, at, **how):
        """Joins, and is authorised at the access point's network `at`."""
        number = self.configure(ssid, **{"frequencies": (2437,) if at == self.air.names[0] else (5180,), **how})
        self.cli("select_network", number)
        self.is_at(at)

    def prefer(self, network):
        """At its next search it must choose this access point."""
        number = self.cli("list_networks").splitlines()[-1].split()[0]
        frequency = "2437" if network == self.air.names[0] else "5180"
        for name, value in (("bssid", self.air.bssid(network)), ("scan_freq", frequency), ("freq_list", frequency)):
            self.cli("set_network", number, name, value)

    def go_over(self, to):
        """It roams there."""
        begin = self.log_size()
        self.prefer(to)
        assert "OK" in self.cli("reassociate")
        wait(lambda: "CTRL-EVENT-CONNECTED" in self.log_since(begin), f"{self.name} to be anywhere")
        self.is_at(to)

    def is_at(self, network, timeout=PATIENCE):
        """Waits until it is connected there."""
        bssid = self.air.bssid(network)
        wait(lambda: (now := self.status()).get("wpa_state") == "COMPLETED" and now.get("bssid") == bssid,
             f"{self.name} to be at {network}", timeout)
        self.network = network

    def be_at(self, network):
        """Joins that network with its settings; None: leaves."""
        if network is None:
            self.leave()
        elif self.network == network:
            return
        elif network == "wlan1-open":
            self.join("Open", network, key_mgmt="NONE")
        else:
            self.join("Own" if network == "wlan1-own" else "Lobby", network)

    def leave(self, how="disconnect"):
        self.cli(how)
        self.network = None

    def get_address(self):
        """Asks for a lease, as every client does."""
        self.inside("udhcpc", "-i", self.interface, "-n", "-q", "-t", "10", "-s", "/bin/true", "-x", f"hostname:{self.name}")
        self.address = wait(lambda: next((line.split()[2] for line in pathlib.Path("/tmp/dhcp.leases").read_text().splitlines()
                                  if self.mac in line), None), f"a lease of {self.name}")
        self.inside("ip", "addr", "replace", f"{self.address}/24", "dev", self.interface)
        return self.address

    def send(self, address, packets, size):
        """Packets of this many bytes over UDP, to nobody."""
        self.inside("/usr/bin/python3", "-c", SEND, address, packets, size)

    def group(self, mask):
        """Sets which radios this one reaches: those of the same group."""
        pathlib.Path(f"/sys/kernel/debug/ieee80211/{self.phy}/hwsim/group").write_text(str(mask))

    def end(self):
        self.air.stop(f"wpa-{self.name}")
        shutil.rmtree(f"/run/wpa-{self.name}")
        run("ip", "netns", "del", self.name)
        self.network = None
