"""The access point of the radio tests and its clients, inside the virtual machine: simulated radios (mac80211_hwsim), real
hostapd, wpa_supplicant, dnsmasq and udhcpc, and this build's broker, daemon, bridge and collector.

    with Air(build_dir, folder) as air:
        air.start()
        anna = air.client("anna")
        anna.join("Lobby", psk="secret1234", frequency=5180)
        air.agree()

Times are those of a machine ten times slower than a real one: everything waits for what it can see, up to PATIENCE.
"""

import json
import os
import pathlib
import re
import signal
import subprocess
import time

PATIENCE = 60
CONTROL = "/run/hostapd"
GLOBAL = "/run/hostapd-global"
AP_RADIOS = 2
USER = 4712
# As its services start it: no right but one, and hostapd's sockets through their group.
AS_ITS_USER = ["setpriv", f"--reuid={USER}", "--regid=0", "--clear-groups", "--bounding-set=-all,+net_admin",
               "--inh-caps=-all,+net_admin", "--ambient-caps=-all,+net_admin", "--no-new-privs"]
PASSWORD = "secret1234"

WIRELESS = "\n".join(f"""config wifi-iface '{name}'
	option device 'radio{radio}'
	option ifname '{name}'
	option network 'lan'
	option ssid '{ssid}'
	option vlanid '{vlan}'
	option transmode 'router'
""" for name, radio, ssid, vlan in (("wlan0", 0, "Lobby", 10), ("wlan1", 1, "Lobby", 11), ("wlan1-open", 1, "Open", 12),
                                        ("wlan1-own", 1, "Own", 13)))

CONFIG = {
    "wifiinfo": "config wifiinfo 'global'\n\toption sdk 'mtk'\n",
    "sysinfo": "config sysinfo\n\toption forwardMode 'AP'\n",
    "system": "config system\n\toption hostname 'AP-radio'\n\toption mod_type 'ap'\n",
    "wireless": WIRELESS,
    "wsmd": "config wsmd 'main'\n\toption debug '0'\n\toption syslog '0'\n\toption loglevel '5'\n\toption log_file '0'\n"
            "\toption log_file_level '6'\n\toption log_file_size '65536'\n\toption log_file_name '/tmp/sta.log'\n",
}
CAPABILITY = {"wireless": {"radiolist": [{"sta_limit_max": 256}, {"sta_limit_max": 256}], "wireless_path": "/etc/config"}}

SECURITY = f"""wpa=2
wpa_key_mgmt=WPA-PSK SAE FT-PSK
rsn_pairwise=CCMP
ieee80211w=1
wpa_passphrase={PASSWORD}
mobility_domain=a1b2
ft_over_ds=0
ft_psk_generate_local=1
nas_identifier=ap
"""
COMMON = f"""ctrl_interface={CONTROL}
bridge=br-lan
country_code=US
ieee80211n=1
wmm_enabled=1
ap_max_inactivity=5
"""
RADIO_0 = f"""interface=wlan0
{COMMON}ssid=Lobby
hw_mode=g
channel=6
{SECURITY}"""
RADIO_1 = f"""interface=wlan1
{COMMON}ssid=Lobby
hw_mode=a
channel=36
ieee80211ac=1
ieee80211ax=1
{SECURITY}bss=wlan1-open
ctrl_interface={CONTROL}
bridge=br-lan
ssid=Open
ap_max_inactivity=5
wmm_enabled=1
bss=wlan1-own
ctrl_interface={CONTROL}
ssid=Own
ap_max_inactivity=5
wmm_enabled=1
per_sta_vif=1
{SECURITY}"""


SEND = """import socket, sys
sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
for _ in range(int(sys.argv[2])): sender.sendto(bytes(int(sys.argv[3])), (sys.argv[1], 9))"""


class Silence(AssertionError):
    """Something was waited for and did not come."""


def run(*argv, check=True, timeout=PATIENCE):
    """Runs a program to its end; what it printed."""
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


class Air:
    def __init__(self, build_dir, folder):
        self.build_dir = pathlib.Path(build_dir)
        self.folder = pathlib.Path(folder)
        self.running = {}
        self.clients = []
        self.free_radios = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for name in list(self.running):
            self.stop(name)

    # --- programs ---

    def spawn(self, name, *argv):
        """Starts a program whose output goes to a file of the results."""
        with (self.folder / f"{name}.log").open("ab") as log:
            self.running[name] = subprocess.Popen([str(word) for word in argv], stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        return self.running[name]

    def stop(self, name, number=signal.SIGTERM):
        process = self.running.pop(name)
        process.send_signal(number)
        try:
            process.wait(20)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()

    def log(self, name):
        path = self.folder / f"{name}.log"
        return path.read_text(errors="replace") if path.exists() else ""

    # --- the access point ---

    def start(self, clients=4):
        self.make_radios(AP_RADIOS + clients)
        self.lay_out()
        run("ip", "link", "add", "br-lan", "type", "bridge")
        run("ip", "addr", "add", "192.168.60.1/24", "dev", "br-lan")
        run("ip", "link", "set", "br-lan", "up")
        self.spawn("dnsmasq", "dnsmasq", "--keep-in-foreground", "--conf-file=/dev/null", "--interface=br-lan", "--bind-interfaces",
                   "--port=0", "--dhcp-range=192.168.60.10,192.168.60.200,1h", "--dhcp-leasefile=/tmp/dhcp.leases", "--user=root")
        self.start_hostapd()
        self.start_ubusd()
        self.start_collector()
        self.start_bridge()
        self.start_daemon()

    def make_radios(self, count):
        run("modprobe", "mac80211_hwsim", f"radios={count}")
        for module in ("ccm", "ctr", "cmac", "gcm"):
            run("modprobe", module)
        run("mount", "-t", "debugfs", "debugfs", "/sys/kernel/debug", check=False)
        run("iw", "reg", "set", "US")
        self.free_radios = [f"phy{number}" for number in range(AP_RADIOS, count)]

    def lay_out(self):
        pathlib.Path("/run/ubus").mkdir(exist_ok=True)
        pathlib.Path("/tmp/tk_device").mkdir(exist_ok=True)
        pathlib.Path("/tmp/tk_device/tk_device.json").write_text(json.dumps(CAPABILITY))
        folder = pathlib.Path("/run/wsm-bridge")
        folder.mkdir()
        os.chown(folder, USER, 0)
        folder.chmod(0o2750)
        pathlib.Path("/run/was.sock").symlink_to("wsm-bridge/was.sock")
        for name, text in CONFIG.items():
            (pathlib.Path("/etc/config") / name).write_text(text)

    def start_hostapd(self, wait_for_it=True):
        for name, text in (("radio0", RADIO_0), ("radio1", RADIO_1)):
            pathlib.Path(f"/run/{name}.conf").write_text(text)
        self.spawn("hostapd", "hostapd", "-g", GLOBAL, "/run/radio0.conf", "/run/radio1.conf")
        if wait_for_it:
            for name in self.networks():
                wait(lambda name=name: "state=ENABLED" in self.hostapd(name, "status", check=False), f"{name} to be enabled")

    def start_ubusd(self):
        self.spawn("ubusd", self.build_dir / "bin/ubusd")
        wait(lambda: pathlib.Path("/run/ubus/ubus.sock").exists(), "the broker")

    def start_collector(self):
        self.spawn("collector", self.build_dir / "bin/wsm-collector", "--json")
        wait(lambda: pathlib.Path("/tmp/sta_server_domain").exists(), "the collector")

    def start_daemon(self):
        self.spawn("wsmd", self.build_dir / "bin/wsmd")
        wait(lambda: "sta" in run(self.build_dir / "bin/ubus", "list", check=False).split(), "the daemon's bus object")

    def start_bridge(self, *options):
        heard = self.log("wsm-bridge").count("tells of its stations")
        self.spawn("wsm-bridge", *AS_ITS_USER, self.build_dir / "bin/wsm-bridge", "--socket", "/run/wsm-bridge/was.sock",
                   "--control", CONTROL, *options)
        if "hostapd" in self.running:
            wait(lambda: self.log("wsm-bridge").count("tells of its stations") - heard >= len(self.networks()), "the bridge")

    @staticmethod
    def networks():
        return ["wlan0", "wlan1", "wlan1-open", "wlan1-own"]

    @staticmethod
    def hostapd(interface, *words, check=True):
        return run("hostapd_cli", "-p", CONTROL, "-i", interface, *words, check=check)

    def client(self, name):
        known = [one for one in self.clients if one.name == name]
        if known:
            return known[0]
        added = Client(self, name, self.free_radios.pop(0))
        self.clients.append(added)
        return added

    @staticmethod
    def send(address, packets, size):
        """Packets of this many bytes over UDP from the access point, to nobody."""
        run("/usr/bin/python3", "-c", SEND, address, packets, size)

    # --- who is there, by four who must agree ---

    def ask(self, **question):
        done = run(self.build_dir / "bin/ubus", "-S", "call", "sta", "get", json.dumps(question), check=False)
        return json.loads(done) if done.strip() else {}

    def daemon_list(self):
        """The daemon's stations, MAC -> members."""
        return {one["mac"]: one for one in self.ask(get_all_sta_status="online").get("online_list", [])}

    def kernel_list(self):
        """The authorised stations of all interfaces: MAC -> (interface, members as iw prints them)."""
        found = {}
        for interface in self.access_interfaces():
            for part in re.split(r"^Station ", run("iw", "dev", interface, "station", "dump", check=False), flags=re.M)[1:]:
                members = dict(re.findall(r"^\t([^:\n]+):\s*(.*?)\s*$", part, flags=re.M))
                if members.get("authorized") == "yes":
                    found[part[:17]] = (interface, members)
        return found

    @staticmethod
    def access_interfaces():
        return re.findall(r"Interface (\S+)(?=(?:(?!Interface).)*?type AP)", run("iw", "dev"), flags=re.S)

    def hostapd_list(self):
        """hostapd's authorised stations, MAC -> network. It is not told when somebody removes its interface."""
        found = {}
        for network in self.networks():
            if not pathlib.Path(f"/sys/class/net/{network}").exists():
                continue
            for part in re.split(r"^(?=(?:[0-9a-f]{2}:){5}[0-9a-f]{2}$)", self.hostapd(network, "all_sta", check=False), flags=re.M):
                if "[AUTHORIZED]" in part:
                    found[part[:17]] = network
        return found

    def reports(self):
        return [json.loads(line) for line in self.log("collector").splitlines() if line.startswith("{")]

    def report_list(self):
        """Who is there by the reports: MAC -> interface."""
        there = {}
        for report in self.reports():
            if report["log_type"] in (1, 3):
                there[report["mac"]] = report["ifname"]
            elif report["log_type"] == 2:
                there.pop(report["mac"], None)
        return there

    @staticmethod
    def network_of(interface):
        """wlan1-open and wlan1 are networks; wlan1.3 and wlan1.sta1 belong to one."""
        return interface.split(".")[0]

    def agree(self, *expected):
        """Waits until daemon, reports, kernel and hostapd list the same stations at the same networks: those of the clients
        `expected`, who must be where they are connected to."""
        wanted = {client.mac: client.network for client in expected}

        def lists():
            kernel = {mac: self.network_of(interface) for mac, (interface, _) in self.kernel_list().items()}
            return {"daemon": {mac: one["ssid_ifname"] for mac, one in self.daemon_list().items()}, "reports": self.report_list(),
                    "kernel": kernel, "hostapd": self.hostapd_list()}
        seen = {}

        def same():
            seen.update(lists())
            return all(there == wanted for there in seen.values())
        try:
            wait(same, "agreement")
        except Silence as error:
            raise AssertionError(f"wanted {wanted}, but {seen}") from error

    def wait_for_report(self, since, **members):
        """The first report after the first `since` with these members."""
        def found():
            return next((one for one in self.reports()[since:] if all(one.get(name) == value for name, value in members.items())),
                        None)
        return wait(found, f"a report with {members}")


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
        self.networks = 0
        folder = pathlib.Path(f"/run/wpa-{name}")
        folder.mkdir()
        configuration = folder / "conf"
        configuration.write_text(f"ctrl_interface={folder}\ncountry=US\n")
        air.spawn(f"wpa-{name}", "ip", "netns", "exec", name, "wpa_supplicant", "-i", self.interface, "-c", configuration)
        wait(lambda: "PONG" in self.cli("ping", check=False), f"wpa_supplicant of {name}")

    def inside(self, *words, check=True, timeout=PATIENCE):
        return run("ip", "netns", "exec", self.name, *words, check=check, timeout=timeout)

    def cli(self, *words, check=True):
        return run("wpa_cli", "-p", f"/run/wpa-{self.name}", "-i", self.interface, *words, check=check)

    def status(self):
        return dict(line.split("=", 1) for line in self.cli("status", check=False).splitlines() if "=" in line)

    def configure(self, ssid, *, key_mgmt="WPA-PSK", psk=PASSWORD, frequencies=(2437, 5180), **more):
        """A network to join; the ones before are forgotten."""
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
        number = self.configure(ssid, frequencies=(2437,) if at == "wlan0" else (5180,), **how)
        self.cli("select_network", number)
        self.is_at(at)

    def is_at(self, network):
        """Waits until it is connected there."""
        bssid = run("cat", f"/sys/class/net/{network}/address").strip()
        wait(lambda: (now := self.status()).get("wpa_state") == "COMPLETED" and now.get("bssid") == bssid,
             f"{self.name} to be at {network}")
        self.network = network

    def leave(self, how="disconnect"):
        self.cli(how)
        self.network = None

    def get_address(self):
        """A lease, as every client asks for one."""
        self.inside("udhcpc", "-i", self.interface, "-n", "-q", "-t", "10", "-s", "/bin/true", "-x", f"hostname:{self.name}")
        self.address = wait(lambda: next((line.split()[2] for line in pathlib.Path("/tmp/dhcp.leases").read_text().splitlines()
                                  if self.mac in line), None), f"a lease of {self.name}")
        self.inside("ip", "addr", "replace", f"{self.address}/24", "dev", self.interface)
        return self.address

    def send(self, address, packets, size):
        """Packets of this many bytes over UDP, to nobody."""
        self.inside("/usr/bin/python3", "-c", SEND, address, packets, size)

    def group(self, mask):
        """Whom the radio reaches: others of the same group."""
        pathlib.Path(f"/sys/kernel/debug/ieee80211/{self.phy}/hwsim/group").write_text(str(mask))
