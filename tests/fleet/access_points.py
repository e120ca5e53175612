"""Whole access points beside the simulated ones: daemon, driver simulator, bus and the collector that publishes, each in a lab of its
own that is joined to the fleet's network. What their stations do is in a ledger, and so what the store must have of it."""

import collections

from programs import wait
from wsmlab import Lab

ONLINE, OFFLINE, PERIOD, ROAMED = 1, 2, 3, 4


class AccessPoint:
    def __init__(self, build_dir, cables, number, url):
        self.mac = f"02:54:4b:00:01:{number:02x}"
        self.lab = Lab(build_dir, sys_mac=self.mac + "\n")
        self.lab.__enter__()
        cables.join(self.lab.space.init_pid)
        self.lab.start_ubusd()
        self.lab.start_apsim()
        self.lab.start_collector("--publish", url)
        self.lab.start_daemon()
        self.lab.wait_for_family()

    def close(self, failed):
        try:
            if not failed:
                self.lab.end()
        finally:
            self.lab.space.close()

    def said(self):
        return "\n".join(f"-- {name}\n{text}" for name, text in self.lab.tails().items())


class AccessPoints:
    """Three of them. `due` is what they must have reported of each station, without what comes every minute."""

    def __init__(self, whole, size=3):
        self.whole, self.all = whole, []
        self.due = collections.defaultdict(list)  # (access point, station): kinds in their order
        self.stays = {}                           # station: (access point, roams, is it over)
        for number in range(size):
            node = whole.cluster.nodes[number % len(whole.cluster.nodes)]
            self.all.append(AccessPoint(whole.bin.parent, whole.cluster.cables, number + 1, whole.prefix(node)))

    def _report(self, place, mac, *kinds):
        for kind in kinds:
            self.due[place.mac, mac].append(kind)
            place.lab.wait_for_report(60, mac=mac, log_type=kind)

    def come(self, number, place):
        mac = f"02:00:00:00:0{place}:{number:02x}"
        self.all[place].lab.apsim(f"assoc mac={mac} ifname=ath0 radio=0")
        self._report(self.all[place], mac, ONLINE)
        self.stays[mac] = (self.all[place].mac, 0, False)
        return mac

    def roam(self, mac, place):
        """To the other radio."""
        ap, roams, _ = self.stays[mac]
        self.all[place].lab.apsim(f"roam mac={mac} ifname=ath1 radio=1")
        self._report(self.all[place], mac, ROAMED, ONLINE)
        self.stays[mac] = (ap, roams + 1, False)

    def move(self, mac, place, to):
        """To another access point, from whose neighbour it takes its leave."""
        _, roams, _ = self.stays[mac]
        self.leave(mac, place)
        self.all[to].lab.apsim(f"assoc mac={mac} ifname=ath0 radio=0")
        self._report(self.all[to], mac, ONLINE)
        self.stays[mac] = (self.all[to].mac, roams + 1, False)

    def leave(self, mac, place):
        ap, roams, _ = self.stays[mac]
        self.all[place].lab.apsim(f"disassoc mac={mac}")
        self._report(self.all[place], mac, OFFLINE)
        self.stays[mac] = (ap, roams, True)

    def live(self, first):
        """A few people at each access point, who come, roam, walk over to the next one, and leave."""
        size = len(self.all)
        for place in range(size):
            people = [self.come(number, place) for number in range(first, first + 5)]
            self.roam(people[0], place)
            self.roam(people[1], place)
            self.leave(people[1], place)
            self.move(people[2], place, (place + 1) % size)
            self.leave(people[3], place)

    def compare(self):
        """The store has, of these access points, what the ledger has; everything that their collectors have taken is there."""
        ours = ", ".join(f"'{one.mac}'" for one in self.all)

        def stored():
            return collections.Counter({ap: int(count) for ap, count in
                                        self.whole.psql(f"SELECT ap, count(*) FROM report WHERE ap IN ({ours}) GROUP BY ap")})
        wait(lambda: stored() == collections.Counter({one.mac: len(one.lab.reports()) for one in self.all}), "the whole access points' reports")
        kinds = collections.defaultdict(list)
        for ap, mac, kind in self.whole.psql(f"SELECT ap, mac, kind FROM report WHERE ap IN ({ours}) AND kind <> {PERIOD} ORDER BY ap, boot, seq"):
            kinds[ap, mac].append(int(kind))
        assert kinds == self.due

        def stays():
            macs = ", ".join(f"'{mac}'" for mac in self.stays)
            rows = self.whole.psql(f"SELECT mac, ap, roams, state FROM stay WHERE mac IN ({macs})")
            assert len(rows) == len({row[0] for row in rows}), rows
            return {mac: (ap, int(roams), state == "3") for mac, ap, roams, state in rows}
        wait(lambda: stays() == self.stays or None, f"the stays {self.stays}")
        print(f"\n{len(self.all)} whole access points: {sum(stored().values())} reports taken, all stored; {len(self.stays)} stays: 0 wrong")
        return {one.mac for one in self.all}

    def close(self, failed):
        for one in self.all:
            one.close(failed)
