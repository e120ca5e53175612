"""A network of a test's own, with cables that can be pulled: a bridge of this machine, and for each node a network namespace that is
joined to it. For root only."""

import os
import pathlib
import subprocess

from programs import wait


def usable():
    return os.geteuid() == 0


def run(*words):
    done = subprocess.run(words, check=False, capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, f"{words}: {done.stdout}{done.stderr}"


class Port:
    """One end of a cable; who is started with `enter` in front is there, at `address`."""

    def __init__(self, pid, address, cable):
        self.pid, self.address, self.cable = pid, address, cable
        self.enter = ["nsenter", f"--net=/proc/{pid}/ns/net", "--"]

    def pull(self):
        run("ip", "link", "set", self.cable, "down")

    def plug(self):
        run("ip", "link", "set", self.cable, "up")

    def hear_nothing_of(self, others):
        """What those send is dropped on arrival; connections stay open and silent."""
        for other in others:
            run(*self.enter, "iptables", "-w", "-A", "INPUT", "-s", other.address, "-j", "DROP")

    def hear_all(self):
        run(*self.enter, "iptables", "-w", "-F", "INPUT")


class Cables:
    def __init__(self):
        # Benchmarks' addresses, which no network of this machine has.
        self.bridge, self.network = f"wsmbr{os.getpid()}", f"198.18.{os.getpid() % 256}"
        self.address = f"{self.network}.1"
        self.holders, self.count = [], 0
        run("ip", "link", "add", self.bridge, "type", "bridge", "forward_delay", "0")
        run("ip", "address", "add", f"{self.address}/24", "dev", self.bridge)
        run("ip", "link", "set", self.bridge, "up")

    def namespace(self):
        """A port in a namespace of its own, which lasts as long as this does."""
        holder = subprocess.Popen(["unshare", "--net", "sleep", "infinity"])
        self.holders.append(holder)
        wait(lambda: os.readlink(f"/proc/{holder.pid}/ns/net") != os.readlink("/proc/self/ns/net"), "the namespace")
        return self.join(holder.pid)

    def join(self, pid):
        """A port in the namespace of this process."""
        self.count += 1
        port = Port(pid, f"{self.network}.{10 + self.count}", f"wsm{os.getpid()}.{self.count}"[:15])
        run("ip", "link", "add", port.cable, "type", "veth", "peer", "name", "fleet0", "netns", str(pid))
        run("ip", "link", "set", port.cable, "master", self.bridge, "up")
        run(*port.enter, "ip", "link", "set", "lo", "up")
        run(*port.enter, "ip", "address", "add", f"{port.address}/24", "dev", "fleet0")
        run(*port.enter, "ip", "link", "set", "fleet0", "up")
        return port

    def close(self):
        for holder in self.holders:
            holder.kill()
            holder.wait(60)
        if pathlib.Path(f"/sys/class/net/{self.bridge}").exists():
            run("ip", "link", "delete", self.bridge)
