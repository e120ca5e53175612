"""An access point with real software on simulated radios (mac80211_hwsim), and its clients: hostapd, wpa_supplicant, dnsmasq
and udhcpc, and this build's broker, daemon, bridge and collector. It uses the whole machine, so it should run in
lab/vm.

    with Air(build_dir, folder) as air:
        air.start()
        anna = air.client("anna")
        anna.join("Lobby", "wlan1")
        air.agree(anna)

The machine is ten times slower than a real one, so everything waits for observable results, up to PATIENCE.
"""

import contextlib
import ctypes
import json
import os
import pathlib
import re
import signal
import socket
import subprocess

from .air_clients import PASSWORD, PATIENCE, SEND, Client, Silence, run, wait

SO_RCVBUFFORCE = 33
PIDFD_GETFD = 438  # of the system calls of x86-64
CONTROL = "/run/hostapd"
GLOBAL = "/run/hostapd-global"
AP_RADIOS = 2
USER = 4712
# As its services start it: with one capability only, and access to hostapd's sockets by their group.
AS_ITS_USER = ["setpriv", f"--reuid={USER}", "--regid=0", "--clear-groups", "--bounding-set=-all,+net_admin",
               "--inh-caps=-all,+net_admin", "--ambient-caps=-all,+net_admin", "--no-new-privs"]

WIRELESS = "\n".join(f"""config wifi-iface '{name}'
	option device 'radio{radio}'
	option ifname '{name}'
	option network 'lan'
	option ssid '{ssid}'
	option vlanid '{vlan}'
	option transmode 'router'
""" for name, radio, ssid, vlan in (("wlan0", 0, "Lobby", 10), ("wlan1", 1, "Lobby", 11), ("wlan1-open", 1, "Open", 12),
                                        ("wlan1-own", 1, "Own", 13), ("ap0", 0, "Lobby", 14)))

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
RADIO_0 = f"""interface=NAME
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
wds_sta=1
bss=wlan1-own
ctrl_interface={CONTROL}
ssid=Own
ap_max_inactivity=5
wmm_enabled=1
per_sta_vif=1
{SECURITY}"""


def copy_of_descriptor(pid, number):
    """Another process's open file, as one of this process."""
    libc = ctypes.CDLL(None, use_errno=True)
    holder = os.pidfd_open(pid)
    try:
        copy = libc.syscall(PIDFD_GETFD, holder, number, 0)
    finally:
        os.close(holder)
    if copy < 0:
        raise OSError(ctypes.get_errno(), f"descriptor {number} of process {pid}")
    return copy


class Air:
    def __init__(self, build_dir, folder):
        self.build_dir = pathlib.Path(build_dir)
        self.folder = pathlib.Path(folder)
        self.running = {}
        self.names = ["wlan0", "wlan1", "wlan1-open", "wlan1-own"]  # of the networks; the first is at 2.4 GHz
        self.clients = []
        self.free_radios = []
        self._reports, self._read = [], 0  # and the bytes of the log that they are of

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
        """Its status."""
        process = self.running.pop(name)
        process.send_signal(number)
        try:
            process.wait(20)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
        return process.returncode

    def log(self, name):
        path = self.folder / f"{name}.log"
        return path.read_text(errors="replace") if path.exists() else ""

    @staticmethod
    @contextlib.contextmanager
    def setting(name, value):
        """Changes a setting below /proc/sys while entered."""
        path = pathlib.Path("/proc/sys", name)
        before = path.read_text()
        path.write_text(str(value))
        try:
            yield
        finally:
            path.write_text(before)

    def no_search_for_modules(self):
        """While entered, the kernel starts no program that looks for a module when hostapd asks for an interface that is not there.
        On the emulated processor each search takes hostapd a second, and clients give up."""
        return self.setting("kernel/modprobe", "\n")

    @contextlib.contextmanager
    def small_netlink_buffer(self, name):
        """While entered, a program's socket for the kernel's wireless messages holds only a few. Gives a function that
        returns how many messages it has lost."""
        pid = self.running[name].pid

        def sockets():
            """Inode -> (groups that it hears, lost messages), of all netlink sockets."""
            lines = [line.split() for line in pathlib.Path("/proc/net/netlink").read_text().splitlines()[1:]]
            return {words[9]: (int(words[3], 16).bit_count(), int(words[8])) for words in lines}
        owned = {os.readlink(path)[8:-1]: int(path.name) for path in pathlib.Path(f"/proc/{pid}/fd").iterdir()}
        # It hears two groups of the wireless family; the one for the daemon hears but one, of the controller.
        inode = max(set(sockets()) & set(owned), key=lambda one: sockets()[one])
        with socket.socket(fileno=copy_of_descriptor(pid, owned[inode])) as theirs:
            before = theirs.getsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF)
            theirs.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 2304)
            try:
                yield lambda: sockets()[inode][1]
            finally:
                theirs.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, before // 2)  # the kernel doubles it

    # --- the access point ---

    def start(self, clients=4):
        self.make_radios(AP_RADIOS + clients)
        self.lay_out()
        run("ip", "link", "add", "br-lan", "type", "bridge", "forward_delay", "0")
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
        """Radios for the access point and the clients to come."""
        run("modprobe", "mac80211_hwsim", f"radios={count}", timeout=4 * PATIENCE)
        for module in ("ccm", "ctr", "cmac", "gcm"):
            run("modprobe", module)
        run("mount", "-t", "debugfs", "debugfs", "/sys/kernel/debug", check=False)
        run("iw", "reg", "set", "US")
        names = sorted((path.name for path in pathlib.Path("/sys/class/ieee80211").iterdir()), key=lambda name: int(name[3:]))
        self.free_radios = names[AP_RADIOS:]

    def remove_radios(self):
        """Removes the driver of all radios, even if they are in use, and the clients with it."""
        run("modprobe", "-r", "mac80211_hwsim", timeout=4 * PATIENCE)
        self.forget_clients()

    def reload_radios(self, clients):
        """Makes new radios, `clients` of them for clients, and starts hostapd again; no station is connected then."""
        self.stop("hostapd")
        self.remove_radios()
        self.make_radios(AP_RADIOS + clients)
        self.start_hostapd()

    def forget_clients(self):
        for client in self.clients:
            client.end()
        self.clients, self.free_radios = [], []

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
        for name, text in (("radio0", RADIO_0.replace("NAME", self.names[0])), ("radio1", RADIO_1)):
            pathlib.Path(f"/run/{name}.conf").write_text(text)
        self.spawn("hostapd", "hostapd", "-t", "-g", GLOBAL, "/run/radio0.conf", "/run/radio1.conf")
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

    def start_bridge(self, *options, has_hostapd=True):
        heard = self.log("wsm-bridge").count("tells of its stations")
        self.spawn("wsm-bridge", *AS_ITS_USER, self.build_dir / "bin/wsm-bridge", "--socket", "/run/wsm-bridge/was.sock",
                   "--control", CONTROL, *options)
        if "hostapd" in self.running and has_hostapd:
            wait(lambda: self.log("wsm-bridge").count("tells of its stations") - heard >= len(self.networks()), "the bridge")

    def networks(self):
        return list(self.names)

    @staticmethod
    def bssid(network):
        return pathlib.Path(f"/sys/class/net/{network}/address").read_text().strip()

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

    # --- the stations, from four sources that must agree ---

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
        """hostapd's authorised stations: MAC -> (network, members as it prints them). It does not notice when its interface
        is removed."""
        found = {}
        for network in self.networks():
            if not pathlib.Path(f"/sys/class/net/{network}").exists():
                continue
            for part in re.split(r"^(?=(?:[0-9a-f]{2}:){5}[0-9a-f]{2}$)", self.hostapd(network, "all_sta", check=False), flags=re.M):
                if "[AUTHORIZED]" in part:
                    found[part[:17]] = (network, dict(re.findall(r"^(\w+)=(.*)$", part, flags=re.M)))
        return found

    def reports(self):
        """Every report so far, in order."""
        path = self.folder / "collector.log"
        if path.exists():
            with path.open("rb") as log:
                log.seek(self._read)
                whole = log.read().rpartition(b"\n")[0]
            self._read += len(whole) + bool(whole)
            self._reports += [json.loads(line) for line in whole.splitlines() if line.startswith(b"{")]
        return self._reports

    def report_list(self):
        """The stations that are present by the reports: MAC -> interface."""
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

    def agree(self, *expected, timeout=PATIENCE):
        """Waits until daemon, reports, kernel and hostapd list the same stations on the same networks, namely the clients
        `expected` where they are connected; then until they agree on each station's figures."""
        wanted = {client.mac: client.network for client in expected}

        def lists():
            kernel = {mac: self.network_of(interface) for mac, (interface, _) in self.kernel_list().items()}
            return {"daemon": {mac: one["ssid_ifname"] for mac, one in self.daemon_list().items()}, "reports": self.report_list(),
                    "kernel": kernel, "hostapd": {mac: network for mac, (network, _) in self.hostapd_list().items()}}
        seen = {}

        def same():
            seen.update(lists())
            return all(there == wanted for there in seen.values())
        try:
            wait(same, "agreement", timeout)
        except Silence as error:
            raise AssertionError(f"wanted {wanted}, but {seen}") from error
        differences = [("nobody", "has looked")]

        def same_figures():
            differences[:] = self.differing_figures(wanted)
            return not differences
        try:
            wait(same_figures, "agreement on figures", timeout)
        except Silence as error:
            raise AssertionError(f"figures differ: {differences}") from error

    def log_up(self):
        """Makes the daemon ask its driver for all figures and report them, as it does each minute."""
        run(self.build_dir / "bin/ubus", "call", "sta", "set", json.dumps({"set_update_log_period": 60}))

    def differing_figures(self, wanted):
        """The differences between daemon, reports, hostapd and kernel for these stations: each figure must be between two
        readings from the kernel."""
        before = self.kernel_list()
        self.log_up()
        hostapd, daemon = self.hostapd_list(), self.daemon_list()
        after = self.kernel_list()
        reported = {report["mac"]: report for report in self.reports()}
        channels = {network: int(run("iw", "dev", network, "info").split("channel ")[1].split()[0]) for network in set(wanted.values())}
        found = []
        for mac, network in wanted.items():
            if not all(mac in there for there in (before, hostapd, daemon, after, reported)):
                return [(mac, "is not everywhere")]
            (_, first), (_, last), told, report = before[mac], after[mac], daemon[mac], reported[mac]
            for kernel, *others in (("rx bytes", hostapd[mac][1]["rx_bytes"], told["wifi_up_cnt"], report["wifi_up"]),
                                    ("tx bytes", hostapd[mac][1]["tx_bytes"], told["wifi_down_cnt"], report["wifi_down"])):
                if not all(int(first[kernel]) <= int(other) <= int(last[kernel]) for other in others):
                    found.append((mac, kernel, first[kernel], *others, last[kernel]))
            for kernel, other in (("rx bitrate", told["flowup_rate_cnt"]), ("tx bitrate", told["flowdown_rate_cnt"])):
                rates = [int(float(re.sub(r"[^0-9.].*", "", one.get(kernel, "")) or 0)) * 1024 for one in (first, last)]
                if other not in rates:
                    found.append((mac, kernel, rates, other))
            place = (0 if network == self.names[0] else 1, channels[network])
            if any((one["radio_id"], one["channel"]) != place for one in (told, report)):
                found.append((mac, "radio and channel", place, (told["radio_id"], told["channel"])))
            if told["power"] not in [str(95 + int(one["signal"].split()[0])) for one in (first, last)]:
                found.append((mac, "signal", first["signal"], told["power"]))
        return found

    def wait_for_report(self, since, **members):
        """The first report after the first `since` with these members."""
        def found():
            return next((one for one in self.reports()[since:] if all(one.get(name) == value for name, value in members.items())),
                        None)
        return wait(found, f"a report with {members}")
