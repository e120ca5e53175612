"""The access point's network: bridge, clients in their own namespaces, and the system's firewall."""

import os
import shutil

from .space import LabError

BRIDGE = "br-lan"
ADDRESS = "192.168.10.1"
_SBIN = "/usr/local/sbin:/usr/sbin:/sbin:/usr/local/bin:/usr/bin:/bin"
_TOOLS_DIR = "/run/lab/bin"

# The rules of a device's system firewall: a chain for packets from the clients, and masquerading, without which the
# kernel tracks no connections and never uses the nat table.
_FIREWALL = f"""*nat
:prerouting_lan - [0:0]
-A PREROUTING -i {BRIDGE} -j prerouting_lan
-A POSTROUTING -o wan -j MASQUERADE
COMMIT
*mangle
COMMIT
"""


# The script that the DHCP client runs when it has an address; the client's namespace has the name of its bridge port.
_DHCP_SCRIPT = "/run/lab/dhcp-client"
_DHCP_SCRIPT_TEXT = """#!/bin/sh
[ "$1" = bound ] || exit 0
ip address replace "$ip/$mask" dev "$interface"
echo "$ip" > "/run/lab/$(ip netns identify $$).address"
"""


class FirewallUnusable(LabError):
    """This back end of iptables does not work on this kernel."""


def bring_up(space):
    """Loopback and the bridge, with its address."""
    space.run(["ip", "-batch", "-"], stdin=f"""\
link set lo up
link add {BRIDGE} type bridge forward_delay 0
address add {ADDRESS}/24 dev {BRIDGE}
link set {BRIDGE} up
""".encode())


def bring_up_firewall(space, backend):
    """`backend`: nft, legacy, or auto for the first of them that works here. Returns its name."""
    failures = []
    for name in ("nft", "legacy") if backend == "auto" else (backend,):
        program = shutil.which(f"iptables-{name}", path=_SBIN)
        if program is None:
            failures.append(f"iptables-{name} is not installed")
            continue
        tools = space.root / _TOOLS_DIR[1:]
        tools.mkdir(parents=True, exist_ok=True)
        for suffix in ("", "-save", "-restore"):
            link = tools / f"iptables{suffix}"
            link.unlink(missing_ok=True)
            link.symlink_to(program + suffix)
        done = space.run(["iptables-restore", "-w"], stdin=_FIREWALL.encode(), check=False)
        if done.status == 0:
            return name
        failures.append(f"iptables-{name}: {done.stderr.strip()}")
    raise FirewallUnusable("; ".join(failures))


class Client:
    """A wireless client with a network namespace of its own, attached to the bridge; its interface is eth0."""

    def __init__(self, lab, name, mac):
        self.lab, self.name, self.mac = lab, name, mac
        lab.run(["ip", "netns", "add", name])
        lab.run(["ip", "-batch", "-"], stdin=f"""\
link add {name} type veth peer name eth0 address {mac} netns {name}
link set {name} master {BRIDGE} up
""".encode())
        self.run(["ip", "-batch", "-"], stdin=b"link set lo up\nlink set eth0 up\n")

    def _enter(self, argv):
        return ["nsenter", f"--net=/run/netns/{self.name}", "--", *argv]

    def run(self, argv, **options):
        return self.lab.run(self._enter(argv), **options)

    def start(self, name, argv, **options):
        return self.lab.start(name, self._enter(argv), **options)

    def set_address(self, address):
        self.run(["ip", "address", "replace", f"{address}/24", "dev", "eth0"])

    def ask_for_address(self, host_name):
        """Gets an address from the access point's DHCP server, as a client of this name; returns it."""
        self.run(["udhcpc", "-f", "-n", "-q", "-t", "10", "-T", "1", "-A", "1", "-i", "eth0",
                  "-x", f"hostname:{host_name}", "-s", _DHCP_SCRIPT], timeout=30)
        return self.run(["cat", f"/run/lab/{self.name}.address"]).stdout.strip()


def start_dhcp_server(lab):
    """A real DHCP server on the bridge; it keeps /tmp/dhcp.leases."""
    script = lab.root / _DHCP_SCRIPT[1:]
    script.parent.mkdir(parents=True, exist_ok=True)
    script.write_text(_DHCP_SCRIPT_TEXT)
    script.chmod(0o755)
    server = lab.start("dnsmasq", [
        "dnsmasq", "--keep-in-foreground", "--conf-file=/dev/null", "--pid-file=", "--log-facility=-", "--log-dhcp",
        "--user=", "--group=", "--port=0", "--no-ping", f"--interface={BRIDGE}", "--bind-interfaces",
        "--dhcp-authoritative", "--dhcp-range=192.168.10.100,192.168.10.199,1h", "--dhcp-leasefile=/tmp/dhcp.leases"])
    lab.wait(lambda: "sockets bound exclusively" in server.text() or not server.running, 10, "the DHCP server")
    if not server.running:
        raise LabError(f"no DHCP server: {server.text()}")
    return server


def environment(build_dir):
    """The environment of every program of the lab: the chosen iptables first, then the build's programs, then the system's."""
    options = "log_path=/run/sanitizer/report:print_stacktrace=1:exitcode=99"  # 1 is the daemon's own
    return {
        "PATH": f"{_TOOLS_DIR}:{build_dir}/bin:{_SBIN}",
        "HOME": "/tmp",
        "LANG": "C.UTF-8",
        "ASAN_OPTIONS": options,
        "UBSAN_OPTIONS": options,
        **{name: value for name, value in os.environ.items() if name in ("TZ", "LSAN_OPTIONS")},
    }
