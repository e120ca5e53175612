"""A whole fleet: access points, brokers, collectors, a database, and a ledger of all reports that the access points made."""

import collections
import re
import time

from programs import wait

Meant = collections.namedtuple("Meant", "reports stays")
SECONDS = 30  # the fleet's running time around a failure
SIMULATED = "ap LIKE '06:%'"
PATIENCE = 300  # seconds until everything is stored


def meant_by(ledgers):
    """The content of these ledgers: the reports (access point, boot, number), and {MAC: (access point, begin, end, reports)}."""
    reports, stays = set(), {}
    for ledger in ledgers:
        text = ledger.read_text()
        for line in text[:text.rfind("\n") + 1].splitlines():
            kind, *words = line.split(" ")
            if kind == "report":
                assert tuple(words) not in reports
                reports.add(tuple(words))
            else:
                stays[words[0]] = (words[1], *words[2:])
    return Meant(reports, stays)


class Whole:
    """Two halves of a fleet, each at a node of its own; two collectors; tables of its own."""

    def __init__(self, cluster, postgres, start, build_dir, folder, name):
        self.cluster, self.postgres, self.start, self.bin, self.folder = cluster, postgres, start, build_dir / "bin", folder
        self.name = re.sub(r"\W+", "_", name)[:50].lower()
        self.queue = f"{self.name}"
        self.fleets, self.ledgers, self.collectors = [], [], []
        self.access_points = None  # whole ones
        postgres.psql(f"CREATE SCHEMA {self.name}")

    def psql(self, sql):
        return self.postgres.psql(sql, self.name)

    def collector(self, *options, url=None):
        number = len(self.collectors) + 1
        url = (url or self.cluster.amqp(queue=self.queue)) + f"&prefix={self.name}"
        one = self.start([self.bin / "wsm-collector", "--quiet", "--subscribe", url, "--store", self.postgres.url(schema=self.name), *options],
                         name=f"collector{number}")
        self.collectors.append(one)

        def subscribed():
            assert one.process.poll() is None, one.err.read_text()
            return "subscribe: subscribed" in one.err.read_text()
        wait(subscribed, "the subscription")
        return one

    def prefix(self, node):
        """Where access points publish at this node."""
        return self.cluster.mqtt(node).rsplit("/", 1)[0] + f"/{self.name}"

    def fleet(self, node, *, seconds=SECONDS, access_points=25, stations=10, period=5, speed=1, connections=1, to=None, more=()):
        number = len(self.fleets)
        ledger = self.folder / f"ledger{number}"
        self.fleets.append(self.start(
            [self.bin / "wsm-fleet-sim", "--to", to or self.prefix(node), "--access-points", access_points, "--first", 1 + 1000 * number, "--stations", stations,
             "--seconds", seconds, "--speed", speed, "--period", period, "--connections", connections, "--ledger", ledger, *more], name=f"fleet{number}"))
        self.ledgers.append(ledger)
        return self.fleets[-1]

    def stored(self):
        """Of the simulated access points."""
        return int(self.psql(f"SELECT count(*) FROM report WHERE {SIMULATED}")[0][0])

    def sent(self):
        return sum(ledger.read_bytes().count(b"report ") for ledger in self.ledgers if ledger.exists())

    def wait_until_stored(self, more):
        """Waits until this number of further reports is in the store."""
        goal = self.stored() + more
        wait(lambda: self.stored() >= goal, f"{goal} reports in the store")

    def wait_until_all_is_stored(self):
        """Polls seldom enough to leave the machine to the programs that are measured."""
        end = time.monotonic() + PATIENCE
        while self.stored() < self.sent():
            assert time.monotonic() < end, f"{self.sent()} sent, {self.stored()} stored\n" + self.said()
            time.sleep(0.25)

    def recovery(self, since):
        """Seconds from `since` until the store has all that was sent, except in the newest second."""
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end:
            sent = self.sent()
            if sent - self.stored() <= 150:
                return time.monotonic() - since
            time.sleep(0.1)
        raise AssertionError(f"{self.sent()} sent, {self.stored()} stored\n" + self.said())

    def said(self):
        return "".join(one.err.read_text() for one in [*self.collectors, *self.fleets])

    def end_and_compare(self, what, since=None, recovery=None):
        """Waits until the fleet has ended and everything is stored; then checks that the store agrees with the ledger."""
        for fleet in self.fleets:
            assert fleet.process.wait(PATIENCE) == 0, fleet.err.read_text()
        meant = meant_by(self.ledgers)
        self.wait_until_all_is_stored()
        end = time.monotonic() + PATIENCE
        others = self.access_points.compare() if self.access_points else set()
        kept = {tuple(row) for row in self.psql("SELECT ap, boot, seq FROM report") if row[0] not in others}
        rows = self.stored()
        lost, double, foreign = len(meant.reports - kept), rows - len(kept), len(kept - meant.reports)

        def stays():
            return {mac: (ap, began, ended, reports) for mac, ap, began, ended, reports in self.psql(
                "SELECT mac, ap, began / 1000000, coalesce(ended, 0) / 1000000, reports FROM stay") if ap not in others}
        while (found := stays()) != meant.stays and time.monotonic() < end:
            time.sleep(0.2)
        wrong = sum(found.get(mac) != stay for mac, stay in meant.stays.items()) + len(found.keys() - meant.stays.keys())
        after = "" if recovery is None else f"; all but the newest second stored {recovery:.1f} s after it"
        print(f"\n{what}: {len(meant.reports)} reports meant: {lost} lost, {double} double, {foreign} foreign; "
              f"{len(meant.stays)} stays: {wrong} wrong{after}")
        assert (lost, double, foreign, wrong) == (0, 0, 0, 0), self.said()
