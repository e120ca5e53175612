"""Filling a netlink socket of the daemon until messages are lost."""

from . import network

MANY = 3000

# Sends a message that means nothing to all listeners of the controller; messages that do not fit are lost.
_FLOOD = """
import socket, struct, sys
noise = struct.pack("=IHHII", 420, 0x7fff, 0, 0, 0) + bytes(404)
with socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 16) as driver:
    driver.setblocking(False)
    for _ in range(int(sys.argv[1])):
        try:
            driver.sendto(noise, (0, 0x8000))
        except OSError:
            pass
"""


def dropped(lab):
    """Messages that the kernel could not put into the daemon's netlink socket so far."""
    rows = [line.split() for line in lab.run(["cat", "/proc/net/netlink"]).stdout.splitlines()[1:]]
    return sum(int(row[8]) for row in rows if row[2] == str(lab.daemon.pid))


def overflow(lab):
    """Fills the socket of a stopped daemon; returns the number of dropped messages."""
    before = dropped(lab)
    lab.run(["/usr/bin/python3", "-c", _FLOOD, str(MANY)])
    return dropped(lab) - before


def overflow_neighbours(lab, mac):
    """Fills the neighbour socket of a stopped daemon, with addresses of `mac`."""
    lab.run(["ip", "-batch", "-"], stdin="".join(
        f"neigh replace 10.1.{number // 250}.{1 + number % 250} lladdr {mac} dev {network.BRIDGE} nud permanent\n"
        for number in range(MANY)).encode())
