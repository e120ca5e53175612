"""A soak: days of arrivals and departures of many stations, as fast as the machine can, with faults in between.

    with Lab(build) as lab:
        soak = Soak(lab, stations=300, events=200_000, minutes=7 * 24 * 60, seed=1)
        soak.run()
        print(soak.table(), soak.complaints)

The daemon's clock skips idle time (clock.py), so that every pass, log-up and sweep of those days takes place. The
simulated people act in steps of that time. Each minute ends with a settlement: all events have been handled, and the
reports that arrived are compared with those that were due (ledger.py). Differences go to `complaints`.
"""

import json
import os
import random
import re
import select
import socket
import struct
import time

from .clock import Clock
from .ledger import Ledger
from .soak_faults import FAULTS
from .space import LabError, Timeout

MINUTE = 60_000          # milliseconds; also the log-up period
SWEEP = 300              # seconds after a restart
UNLISTED = 300           # seconds after which a station that the driver does not list is retired
PATIENCE = 120           # seconds without any sign of life
# Memory that a daemon may keep: free space between blocks that is left after many stations with all their addresses. Up to 170
# were seen, with nothing left in use.
KEPT_KIB = 512
KEPT_LATE_KIB = 64       # the same in the second half of a long life
_LONG = 20               # measurements
WARM_UP = 10             # minutes, with answers and reports of all kinds, before the first measurement of memory
_ANSWER_KEPT = 12        # seconds after which the daemon has freed the memory of an answer
_BEATS = 4
_CHECKPOINT = 60         # minutes
_NETWORK = "Lobby"
_IMAGE = 696
_FIELDS = (("ifname", 136, 20), ("mac", 156, 20))
_LOG_TYPE = 296


class Collector:
    """The soak as the collector. `manner`: "takes", "dawdles" over each report, or "hangs up" without reading."""

    def __init__(self, lab):
        self._path = lab.files / "sta_server_domain"
        self._listener = None
        self.manner = "takes"
        self.open()

    def open(self):
        self._path.unlink(missing_ok=True)
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(str(self._path))
        self._listener.listen(1024)
        self._listener.setblocking(False)

    def close(self):
        self._listener.close()
        self._listener = None
        self._path.unlink()

    def take(self, timeout):
        """The images that are waiting, or the first that arrive within `timeout` milliseconds."""
        if not self._listener:
            time.sleep(timeout / 1000)
            return []
        poll = select.poll()
        poll.register(self._listener, select.POLLIN)
        if not poll.poll(timeout):
            return []
        images = []
        while len(images) < 256:
            try:
                connection, _ = self._listener.accept()
            except BlockingIOError:
                break
            with connection:
                if self.manner == "hangs up":
                    continue
                if self.manner == "dawdles":
                    time.sleep(0.002)
                connection.settimeout(PATIENCE)
                image = bytearray()
                while piece := connection.recv(4096):
                    image += piece
            images.append(bytes(image))
        return images


class Life:
    """One process of the daemon, and its measurements with all stations present."""

    def __init__(self, pid, minute):
        self.pid, self.born, self.samples, self.warm = pid, minute, [], False


class Soak:
    def __init__(self, lab, *, stations, events, minutes, seed, rounds=1, restart_until=0.5, memory=True, say=None):
        self.lab, self.stations, self.wanted, self.minutes, self.seed = lab, stations, events, minutes, seed
        self.random = random.Random(seed)
        self.memory = memory
        self.ledger = Ledger()
        self.minute = 0
        self.lives = []
        self.faults = {name: 0 for name in FAULTS}
        self.empty = []             # measurements without stations, at the beginning and at the end
        self.started = time.monotonic()
        self.seconds = 0
        self._sent = 0
        self._sweep_at = None
        self._rounds, self._restart_until = rounds, restart_until
        self._say = say or (lambda text: None)
        self.clock = Clock(lab)
        self.collector = None
        self._killed = False
        self.on_bus = True          # false while the daemon has lost the bus

    @property
    def complaints(self):
        return self.ledger.complaints

    def table(self):
        """All counts, for people."""
        counts, warm = self.ledger.counts, [life for life in self.lives if life.samples]
        longest = max(warm, key=lambda life: len(life.samples), default=None)
        rows = [("stations, seed", f"{self.stations}, {self.seed}"),
                ("time of the daemon, minutes", f"{self.minute:,}"),
                ("events heard", f"{counts['events']:,}"),
                ("reports of coming, leaving and roaming due", f"{counts['due']:,}"),
                ("   arrived", f"{counts['received']:,}"),
                ("   missing / not due / out of order",
                 f"{counts['missing']} / {counts['not due']} / {counts['out of order']}"),
                ("   due while no collector listened", f"{counts['unheard']:,}"),
                ("reports of the period due / missing", f"{counts['period due']:,} / {counts['period missing']}"),
                ("   arrived, with early and first ones", f"{counts['period reports']:,}"),
                ("tables compared", f"{counts['tables compared']:,}"),
                ("netlink messages dropped by the kernel", f"{counts['messages dropped']:,}"),
                ("overruns of the neighbours' socket, healed", f"{counts['neighbours lost']:,}"),
                ("lives of the daemon", f"{len(self.lives)}")]
        if longest:
            samples = longest.samples
            rows += [(f"its longest life, {what}", _holdings(sample)) for what, sample in
                     (("begin", samples[0]), ("middle", samples[len(samples) // 2]), ("end", samples[-1]))]
        rows += [(f"without stations, {what}", _holdings(sample)) for what, sample in zip(("begin", "end"), self.empty)]
        rows += [(f"fault: {name.replace('_', ' ')}", f"{times}") for name, times in self.faults.items()]
        rows += [("seconds", f"{self.seconds:.0f}"), ("violations", f"{len(self.complaints)}")]
        width = max(len(name) for name, _ in rows)
        return "\n".join(f"{name:{width}}  {value}" for name, value in rows)

    # --- the run ---

    def run(self):
        self.open()
        for name, minute in self._schedule():
            while self.minute < minute:
                self.live()
            while self._sweep_at or self.ledger.vanished:
                self.live()
            self._say(f"minute {self.minute}: {name.replace('_', ' ')}")
            self.faults[name] += 1
            FAULTS[name](self)
            self.check()
        while self.minute < self.minutes or self._sent < self.wanted:
            self.live()
        self.close()
        self.seconds = time.monotonic() - self.started

    def _schedule(self):
        """(fault, minute), in the order of time: each fault `rounds` times. Restarts come early, so that the last life
        is a long one."""
        plan = []
        for name, fault in FAULTS.items():
            last = self.minutes * (self._restart_until if fault.restarts else 0.95)
            plan += [(name, self.random.uniform(2 * WARM_UP, max(last, 2 * WARM_UP))) for _ in range(self._rounds)]
        return sorted(plan, key=lambda one: one[1])

    def open(self):
        lab = self.lab
        lab.start_ubusd()
        lab.start_apsim("--tick", "0")
        self.collector = Collector(lab)
        lab.start_dhcpmon()
        lab.start_daemon(environment=self.clock.environment)
        lab.wait_for_family()
        self.lives.append(Life(lab.daemon.pid, 0))
        self._fill()
        self.live(WARM_UP)
        self._all_leave()
        self._fill()

    def _fill(self):
        self.lab.apsim(f"population n={self.stations} seed={self.seed}")
        while len(self.lab.stations()) < self.stations:
            self.lab.apsim("pass seconds=1")
        self.check()

    def _all_leave(self):
        self.lab.apsim("population n=0")
        self.check()
        self.quiet(120)
        # The DHCP monitor notices the last list of leases after a while.
        end = time.monotonic() + 30 * self.lab.patience
        while (empty := self.measure())["blocks"] and time.monotonic() < end:
            self.serve(100)
        if empty["blocks"]:
            self.ledger.complain(f"{empty['blocks']} blocks without a station or a lease")
        self.empty.append(empty)

    def _warm_up(self, life):
        """The memory for answers settles after some of them."""
        for _ in range(3):
            self.check()
        life.warm = True

    def close(self):
        """All stations associate again, so that even those lost by a restart are back; then all leave."""
        while self._sweep_at or self.ledger.vanished:
            self.live()
        self.lab.apsim("again")
        self.check()
        if self.ledger.dropped:
            self.ledger.complain(f"not back: {sorted(self.ledger.dropped)}")
        self._check_addresses()
        self._all_leave()
        if self.ledger.table:
            self.ledger.complain(f"left behind: {sorted(self.ledger.table)}")
        self._compare_lives()

    # --- time ---

    def now(self):
        """Seconds of the daemon's time."""
        return time.monotonic() + self.clock.skipped / 1000

    def serve(self, timeout=0):
        """Receives the waiting reports; true if there were any."""
        images = self.collector.take(timeout)
        for image in images:
            if len(image) == _IMAGE:
                (log_type,) = struct.unpack_from("<H", image, _LOG_TYPE)
                ifname, mac = (image[at:at + size].split(b"\0")[0].decode() for _, at, size in _FIELDS)
                self.ledger.arrived(log_type, mac, ifname)
            elif not self._killed:
                self.ledger.complain(f"a report of {len(image)} bytes")
        return bool(images)

    def wait(self, predicate, what, ends=False):
        """Serves until the predicate holds. The limit is on the time without progress, not on the whole time."""
        silent, skipped = time.monotonic(), self.clock.skipped
        while not predicate():
            if self.serve(1) or skipped != self.clock.skipped:
                silent, skipped = time.monotonic(), self.clock.skipped
            if not ends and not self.lab.daemon.running:
                raise LabError(f"the daemon ended with status {self.lab.daemon.status} while waiting for {what}")
            if time.monotonic() - silent > PATIENCE * self.lab.patience:
                raise Timeout(f"no sign of life while waiting for {what}")

    def flow(self, milliseconds):
        """Lets time pass, and waits until the daemon has handled it."""
        self.clock.skip(milliseconds)
        self.wait(lambda: self.clock.idle, f"{milliseconds} ms to pass")

    def settle(self, period=False):
        """Waits until all events of the driver are handled, then compares and counts."""
        def queued():
            return '"queued":0,' not in self.lab.apsim("status")
        while True:
            self.wait(lambda: not queued(), "the driver to get rid of its events")
            self.flow(1)
            if not queued():
                break
        while self.serve():
            pass
        for event in json.loads(self.lab.apsim("events clear")):
            self.ledger.told(event)
        self.ledger.settle(period)

    def quiet(self, seconds):
        """Lets time pass without arrivals and departures."""
        self.flow(int(seconds * 1000))
        self.settle()

    def live(self, minutes=1):
        """Minutes of the people's lives."""
        for _ in range(minutes):
            self._let_it_drop_stations()
            left = max(1, self.minutes - self.minute)
            target = self._sent + max(_BEATS, (self.wanted - self._sent) / left)
            for beat in range(1, _BEATS + 1):
                first = self._sent
                while self._sent < first + (target - first) / (_BEATS + 1 - beat):
                    self._sent = int(self.lab.apsim("pass seconds=1").partition("=")[2])
                self.flow(MINUTE // _BEATS)
            self.settle(period=True)
            self.minute += 1
            life = self.lives[-1]
            if not life.warm and self.on_bus and self.minute >= life.born + WARM_UP:
                self._warm_up(life)
            elif self.minute % _CHECKPOINT == 0:
                self.check()

    def _let_it_drop_stations(self):
        """While the daemon is about to drop stations by itself there are no other events, so that it is clear what is due."""
        soon = self.now() + MINUTE / 1000 + 30
        if self._sweep_at and not self.ledger.restored:
            self._sweep_at = None
        if self._sweep_at and soon > self._sweep_at:
            self.ledger.sweep()
            self.quiet(max(0, self._sweep_at - self.now()) + 5)
            self._sweep_at = None
        for mac, since in list(self.ledger.vanished.items()):
            if mac in self.ledger.vanished and soon > since + UNLISTED - MINUTE / 1000:
                self.ledger.retire(mac)
                self.quiet(max(0, since + UNLISTED + MINUTE / 1000 - self.now()) + 5)

    # --- what faults need ---

    def vanish(self):
        """The driver drops a station without an event."""
        mac = self.random.choice(sorted(set(self.ledger.table) - self.ledger.restored - set(self.ledger.vanished)))
        self.lab.apsim(f"forget mac={mac}")
        self.ledger.vanished[mac] = self.now()

    def end_life(self, end):
        """Ends the daemon with `end`, after its table was written, and starts another; half of the times the radios are
        restarted as well, and all clients associate again; otherwise the daemon sweeps those that are not confirmed."""
        self.check()
        end()
        self.clock.hold()
        while self.serve():
            pass
        self._killed = False
        self.lab.start_daemon(environment=self.clock.environment)
        self.lab.wait_for_family()
        self.lab.run(["ubus", "-t", "20", "wait_for", "sta", "dhcpmon", "dhcpmon.client.notify"],
                     timeout=30 * self.lab.patience)
        self.lives.append(Life(self.lab.daemon.pid, self.minute))
        self.ledger.restarted()
        self._sweep_at = self.now() + SWEEP
        if self.random.random() < 0.5:
            self.lab.apsim("again")
        self.quiet(6)  # in which it finds the DHCP monitor

    def kill(self):
        """As a crash would, in the middle of its work."""
        self._killed = True
        moment = self.clock.skipped + self.random.randrange(MINUTE, 3 * MINUTE)
        self.clock.skip(4 * MINUTE)
        self.wait(lambda: self.clock.skipped >= moment, "some minutes")
        self.lab.daemon.kill()

    def process(self, name):
        return next(one for one in reversed(self.lab.space.processes) if one.name == name and one.running)

    # --- checks ---

    def check(self):
        """The daemon's table against what it must be, and that against the driver's."""
        self.quiet(6)
        if not self.on_bus:
            return
        has = {mac: (one["ssid_ifname"], int(one["radio_id"])) for mac, one in self.lab.online().items()}
        must = self.ledger.table
        if has != must:
            wrong = sorted(mac for mac in has.keys() | must.keys() if has.get(mac) != must.get(mac))
            self.ledger.complain(f"minute {self.minute}: the table is not what it must be: "
                                 + ", ".join(f"{mac} {has.get(mac)} for {must.get(mac)}" for mac in wrong[:8]))
        driver = {one["mac"]: (one["ifname"], one["radio"]) for one in self.lab.stations()}
        if ({mac: place for mac, place in driver.items() if mac not in self.ledger.dropped}
                != {mac: place for mac, place in must.items() if mac not in self.ledger.vanished}):
            self.ledger.complain(f"minute {self.minute}: the table is not the driver's")
        self.ledger.counts["tables compared"] += 1
        self._measure_life()

    def _check_addresses(self):
        """Address and name of every station against the DHCP server's."""
        leases = self.lab.files / "dhcp.leases"
        os.utime(leases, (time.time() + 3600,) * 2)  # differs from all times that the daemon has seen
        self.quiet(30)
        given = {mac: (address, name) for _, mac, address, name, *_ in map(str.split, leases.read_text().splitlines())}
        for mac, one in self.lab.online().items():
            address, name = given.get(mac, ("0.0.0.0", "-"))
            if one["ip"] != address or (one["name"] != name and not one["name"].startswith("wireless_repeater_")):
                self.ledger.complain(f"{mac} is {one['ip']} {one['name']} for {address} {name}")

    def measure(self):
        """What the daemon holds: private and resident memory in KiB, descriptors, blocks of its allocator, stations."""
        pid, blocks = self.lab.daemon.pid, []
        for _ in range(3):  # the log may be rotated right after the line
            self.lab.bus("call", "sta", "set", {"set_update_log_period": 60})
            self.settle()
            blocks += re.findall(rf"\[{pid}\].*sta mem_total_cnt (\d+)", "\n".join(self.lab.log_lines()))
            if blocks:
                break
        kib = dict(re.findall(r"^(\w+): +(\d+) kB$", self.lab.run(["cat", f"/proc/{pid}/smaps_rollup"]).stdout, re.M))
        return {"private": int(kib["Private_Clean"]) + int(kib["Private_Dirty"]), "rss": int(kib["Rss"]),
                "descriptors": len(self.lab.run(["ls", f"/proc/{pid}/fd"]).stdout.split()),
                "blocks": int(blocks[-1]), "stations": len(self.ledger.table)}

    def _measure_life(self):
        """Measures with all stations present, after the warm-up."""
        life = self.lives[-1]
        if not life.warm or len(self.ledger.table) < 0.98 * self.stations:
            return
        self.quiet(_ANSWER_KEPT)
        life.samples.append(self.measure())

    def _compare_lives(self):
        for life in self.lives:
            if life.samples:
                first, last = life.samples[0], life.samples[-1]
                self._compare(f"the life of {life.pid}", first, last, KEPT_KIB)
                if len(life.samples) >= _LONG:
                    middle = life.samples[len(life.samples) // 2]
                    self._compare(f"the second half of the life of {life.pid}", middle, last, KEPT_LATE_KIB)
        self._compare("without stations", *self.empty, KEPT_KIB)

    def _compare(self, what, first, last, kept):
        if first["descriptors"] != last["descriptors"]:
            self.ledger.complain(f"{what}: {first['descriptors']} descriptors, then {last['descriptors']}")
        if self.memory and last["private"] > first["private"] + kept:
            self.ledger.complain(f"{what}: {first['private']} KiB, then {last['private']} KiB")


def _holdings(sample):
    return (f"{sample['private']:,} KiB private, {sample['rss']:,} KiB resident, {sample['descriptors']} descriptors, "
            f"{sample['blocks']:,} blocks, {sample['stations']} stations")
