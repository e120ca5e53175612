"""The faults of a soak (soak.py). Each begins and ends at a settlement, with everything running as before."""

import collections
import signal

from . import network
from .overflow import overflow, overflow_neighbours

FAULTS = {}


def fault(function):
    function.restarts = False
    FAULTS[function.__name__] = function
    return function


def fault_with_restart(function):
    fault(function).restarts = True
    return function


def _unheard(soak, minutes):
    soak.ledger.hearing = False
    soak.live(minutes)
    soak.ledger.hearing = True


# --- the collector ---

@fault
def collector_absent(soak):
    soak.collector.close()
    _unheard(soak, 2)
    soak.collector.open()


@fault
def collector_slow(soak):
    soak.collector.manner = "dawdles"
    soak.live()
    soak.collector.manner = "takes"


@fault
def collector_hangs_up(soak):
    soak.collector.manner = "hangs up"
    _unheard(soak, 1)
    soak.collector.manner = "takes"


# --- the bus ---

@fault_with_restart
def broker_replaced(soak):
    """The daemon runs without the bus until its supervisor replaces it."""
    def end():
        soak.process("ubusd").kill()
        soak.lab.start_ubusd()
        soak.on_bus = False
        soak.live()
        soak.quiet(6)
        soak.on_bus = True
        if soak.lab.daemon.stop(30 * soak.lab.patience) != 1:
            soak.ledger.complain(f"stopped, the daemon ended with status {soak.lab.daemon.status}")
    soak.end_life(end)


@fault_with_restart
def broker_dies_in_a_call(soak):
    """The daemon exits cleanly, or continues without the bus, depending on the call that it waited in."""
    lab, number = soak.lab, soak.faults["broker_dies_in_a_call"]
    mac, address = f"02:99:00:00:00:{number:02x}", f"10.99.0.{number}"

    def asks():
        """Whether it waits for the broker, and not in its event loop."""
        place = lab.run(["cat", f"/proc/{lab.daemon.pid}/wchan"]).stdout
        return "poll" in place and "ep" not in place

    def end():
        broker = soak.process("ubusd")
        lab.apsim(f"lease mac={mac} ip={address} name=caller")
        while True:
            lab.apsim(f"assoc mac={mac} ifname=ath0")
            soak.settle()
            broker.signal(signal.SIGSTOP)
            soak.clock.skip(6000)  # until the pass, in which the event of the new address waits for the broker
            soak.wait(lambda: asks() or soak.clock.idle, "the daemon to ask the broker")
            if not soak.clock.idle:
                break
            broker.signal(signal.SIGCONT)  # the pass was just before
            lab.apsim(f"disassoc mac={mac} ifname=ath0")
        broker.kill()
        lab.start_ubusd()
        soak.wait(lambda: not lab.daemon.running or soak.clock.idle, "the daemon's answer", ends=True)
        soak.ledger.counts["ended without a bus"] += not lab.daemon.running
        if lab.daemon.stop(30 * lab.patience) != 1:
            soak.ledger.complain(f"without a bus, the daemon ended with status {lab.daemon.status}")
    soak.end_life(end)
    lab.apsim(f"disassoc mac={mac} ifname=ath0")
    lab.apsim(f"lease mac={mac} off")
    soak.settle()


@fault
def dhcpmon_absent(soak):
    soak.process("dhcpmon").kill()
    soak.live(2)
    soak.lab.start_dhcpmon()


@fault
def dhcpmon_silent(soak):
    monitor = soak.process("dhcpmon")
    monitor.signal(signal.SIGSTOP)
    soak.live(2)
    monitor.signal(signal.SIGCONT)


# --- the driver ---

def _refuses(soak, request):
    soak.lab.apsim(f"fail cmd={request}")
    soak.live(2)
    soak.lab.apsim("fail off")


@fault
def driver_refuses_tables(soak):
    _refuses(soak, 1)


@fault
def driver_refuses_roam_removals(soak):
    _refuses(soak, 4)


@fault
def driver_refuses_counts(soak):
    _refuses(soak, 5)


@fault
def netlink_overflow(soak):
    """The socket overflows, and an event is among what was lost: the comparison with the driver finds it."""
    lab = soak.lab
    # A station that roamed while no daemon ran is still listed at its old place as well, and the daemon cannot know which is
    # right. A real driver drops the old one after a while.
    listed = collections.Counter(one["mac"] for one in lab.stations())
    for mac in [mac for mac in soak.ledger.dropped if listed[mac] > 1]:
        lab.apsim(f"forget mac={mac}")
        soak.ledger.dropped.discard(mac)
    lab.daemon.signal(signal.SIGSTOP)
    dropped = overflow(lab)
    if not dropped:
        soak.ledger.complain("the netlink socket took everything: no overflow")
    soak.ledger.counts["messages dropped"] += dropped
    soak.vanish()
    for mac in list(soak.ledger.vanished):
        soak.ledger.retire(mac)
    for one in lab.stations():
        if one["mac"] in soak.ledger.dropped:  # the driver lists it, so it is back
            soak.ledger.told({"assoc": 1, "mac": one["mac"], "ifname": one["ifname"], "radio": one["radio"], "is_reassoc": 0})
    lab.daemon.signal(signal.SIGCONT)
    soak.quiet(6)  # no events before the comparison
    soak.live()


@fault
def neighbours_overflow(soak):
    """The socket of neighbours overflows, and a station's address is among what was lost: asking the kernel for all of them finds it."""
    lab, stranger, address = soak.lab, "02:99:99:00:00:01", "2001:db8::99"
    mac, (interface, _) = soak.random.choice(sorted(soak.ledger.table.items()))

    def overruns():
        return lab.bus("call", "wsmd", "health")["neighbours"]["overruns"]

    lab.run(["ip", "link", "add", interface, "type", "veth", "peer", "name", "client"])
    lab.run(["ip", "link", "set", interface, "master", network.BRIDGE])
    soak.quiet(5)
    before = overruns()
    lab.daemon.signal(signal.SIGSTOP)
    overflow_neighbours(lab, stranger)
    lab.run(["ip", "neigh", "replace", address, "lladdr", mac, "dev", network.BRIDGE, "nud", "permanent"])
    lab.daemon.signal(signal.SIGCONT)
    soak.quiet(5)
    soak.ledger.counts["neighbours lost"] += (seen := overruns() - before)
    if not seen:
        soak.ledger.complain("the socket of neighbours took everything: no overrun")
    known = lab.bus("call", "wsmd", "station", {"mac": mac}).get("addresses", [])
    if (address, "neighbour") not in {(one["address"], one["origin"]) for one in known}:
        soak.ledger.complain(f"after an overrun of the neighbours' socket {mac} has {known}")
    lab.run(["ip", "neigh", "flush", "dev", network.BRIDGE, "nud", "permanent"])
    lab.run(["ip", "link", "delete", interface])
    soak.live()


@fault
def burst(soak):
    """200 clients associate while the daemon is stopped, so that it handles them at once, and leave again."""
    for command in ("burst n=200", "burst n=200 leave"):
        soak.lab.daemon.signal(signal.SIGSTOP)
        soak.lab.apsim(command)
        soak.lab.daemon.signal(signal.SIGCONT)
        soak.settle()
        soak.live()


# --- the machine ---

@fault
def no_descriptors(soak):
    lab, pid = soak.lab, soak.lab.daemon.pid
    limit = lab.run(["prlimit", f"--pid={pid}", "--nofile", "--output=SOFT", "--noheadings"]).stdout.strip()
    lab.run(["prlimit", f"--pid={pid}", "--nofile=3:"])
    _unheard(soak, 1)
    lab.run(["prlimit", f"--pid={pid}", f"--nofile={limit}:"])


@fault
def wall_clock_jumps(soak):
    hours = soak.random.choice([-30, -7, 7, 30])
    soak.clock.move(wall=hours * 3600)
    soak.live(2)
    soak.clock.move(wall=-hours * 3600)


@fault_with_restart
def crash(soak):
    soak.end_life(soak.kill)


@fault_with_restart
def restart(soak):
    soak.end_life(soak.lab.daemon.stop)
