"""The store in a real PostgreSQL: each report once, and stays right, whoever stores them and whatever breaks."""

import collections
import itertools
import json
import os
import random
import signal
import struct
import subprocess

import pytest

import postgres
from images import NOON, mac, told, visit
from programs import connect, wait

SECOND = 1_000_000
NAMES = itertools.count()


@pytest.fixture(scope="module")
def server(build_dir):
    if not postgres.BIN:
        pytest.skip("PostgreSQL is not installed")
    done = subprocess.run([build_dir / "bin/wsm-collector", "query", "--store", "postgresql://127.0.0.1:1/", "top"], capture_output=True, check=False)
    if b"built without" in done.stderr:
        pytest.skip("built without libpq")
    with postgres.a_postgres() as one:
        yield one


class Database:
    """A database of the server, and the ways into it."""

    def __init__(self, server, build_dir):
        self.server, self.build_dir = server, build_dir
        self.name = f"d{next(NAMES)}"
        server.psql(f"CREATE DATABASE {self.name}")
        self.url = server.url(self.name)

    def sql(self, text):
        return self.server.psql(text, self.name)

    def number(self, text):
        return int(self.sql(text)[0][0])

    def collect(self, images, *options, **more):
        """Runs images of a file through a collector."""
        return subprocess.run([self.build_dir / "bin/wsm-collector", "--quiet", "--store", self.url, *options, "-"], input=images,
                              capture_output=True, timeout=120, check=False, **more)

    def query(self, *words):
        done = subprocess.run([self.build_dir / "bin/wsm-collector", "query", "--store", self.url, *words], capture_output=True,
                              text=True, timeout=60, check=False, env={**os.environ, "TZ": "UTC"})
        assert done.returncode == 0, done.stderr
        return done.stdout

    def rows(self, *words):
        return json.loads(self.query(*words, "--json"))

    def feeder(self, start, *options, name="feeder"):
        """A collector whose input is a stream of messages as a broker hands them over."""
        return start([self.build_dir / "tests/feed_store", self.url, "--keep", "0", *options], stdin=subprocess.PIPE, name=name)

    def feed(self, start, records, *options, name="feeder"):
        one = self.feeder(start, *options, name=name)
        one.process.stdin.write(b"".join(records))
        one.process.stdin.close()
        assert one.wait_for_end() == 0, one.err.read_text()
        return [int(line) for line in one.lines()]

    def stays(self):
        """All that is known of all stays, without their numbers."""
        columns = ("mac, state, ap, radio, channel, ssid, ifname, association, began, seen, ended, reason_code, reason, ended_by, roams,"
                   " returns, reports, signal, signal_least, signal_most, signal_sum, signal_count, up, down, raw_up, raw_down, rate_up,"
                   " rate_down, max_rate, version, repeater, noise, utilization, opened, opened_ap, opened_boot, opened_seq, heard,"
                   " earliest, sampled, folded, watch")
        addresses = "(SELECT string_agg(ip || ' ' || first || ' ' || last, ',' ORDER BY place) FROM address WHERE stay = s.id)"
        events = ("(SELECT string_agg(at || kind || ap || radio || coalesce(from_ap, '') || coalesce(from_radio, -1), ',' ORDER BY at, kind)"
                  " FROM event WHERE stay = s.id)")
        samples = ("(SELECT string_agg(at || ' ' || coalesce(signal, 0) || ' ' || up || ' ' || down || ap || radio, ',' ORDER BY at, up, down)"
                   " FROM sample WHERE stay = s.id)")
        return self.sql(f"SELECT {columns}, {addresses}, {events}, {samples} FROM stay s ORDER BY mac, opened, opened_seq")


@pytest.fixture
def database(server, build_dir):
    return Database(server, build_dir)


def record(image, at, seq, ticket=0, ap="02:54:4b:00:00:01", boot="b"):
    return struct.pack("<qQQ20s20s", at, ticket, seq, ap.encode(), boot.encode()) + image


def a_day(seed, people=12, access_points=3, seconds=86400):
    """A day's reports of people who come, roam, lose their way and leave; (time of receipt, record) of each, in order."""
    dice = random.Random(seed)
    happened = []

    def report(number, kind, since, at, ap, radio, up, **fields):
        when = at * SECOND + dice.randrange(200_000)
        happened.append((when, ap, told(number, kind, since, at - since, radio_id=radio, ap_mac=f"02:54:4b:00:00:0{ap}\n", wifi_up=up,
                                        wifi_down=3 * up, rssi=-40 - dice.randrange(40), **fields)))

    for number in range(1, people + 1):
        now = NOON + dice.randrange(3600)
        while now < NOON + seconds:
            ap, radio, since, up = dice.randrange(1, access_points + 1), dice.randrange(2), now, 0
            report(number, 1, since, now, ap, radio, up)
            for _ in range(dice.randrange(1, 8)):
                now += dice.choice([5, 60, 60, 60, 700])
                up += dice.randrange(5000)
                step = dice.random()
                if step < 0.15:  # to the other radio
                    report(number, 4, since, now, ap, radio, up)
                    now, radio, since, up = now + 1, 1 - radio, now + 1, 0
                    report(number, 1, since, now, ap, radio, up)
                elif step < 0.3:  # to another access point, whose departure is told late
                    old, was, before = ap, since, up
                    ap, since, up = ap % access_points + 1, now, 0
                    report(number, 1, since, now, ap, radio, up)
                    report(number, 2, was, now + dice.randrange(1, 20), old, radio, before, reason="OW_STA_TIMEOUT", reason_code=300)
                else:
                    report(number, 3, since, now, ap, radio, up, ip=f"10.0.{dice.randrange(2)}.{number}")
            now += dice.choice([0, 10, 20])
            if dice.random() < 0.8:
                report(number, 2, since, now, ap, radio, up, reason="OW_STA_DEAUTH_RECV", reason_code=307)
            now += dice.choice([5, 25, 31, 900, 7200])
    happened.sort(key=lambda one: one[0])
    seqs = collections.Counter()
    records = []
    for at, ap, image in happened:
        seqs[ap] += 1
        records.append(record(image, at, seqs[ap], ap=f"02:54:4b:00:00:0{ap}"))
    return records


def test_a_day_is_the_same_as_in_a_file(database, build_dir, tmp_path):
    images = (visit(1, NOON, 100) + visit(2, NOON + 200, 60, reason="OW_STA_TIMEOUT", reason_code=300) + visit(1, NOON + 3600, 50) +
              told(3, 1, NOON + 7000, ssid=b"'); DROP TABLE stay; --\x1b[2J\n\xff"))
    done = database.collect(images)
    assert (done.returncode, done.stderr) == (0, b"")
    file = f"sqlite:{tmp_path}/store"
    assert subprocess.run([build_dir / "bin/wsm-collector", "--quiet", "--store", file, "-"], input=images, check=False).returncode == 0
    for question in (["sessions"], ["station", mac(1)], ["departures"], ["top"], ["sessions", "--since", str(NOON + 90), "--until", str(NOON + 210)]):
        done = subprocess.run([build_dir / "bin/wsm-collector", "query", "--store", file, *question, "--json"], capture_output=True, check=True)
        assert database.rows(*question) == json.loads(done.stdout)
    assert database.rows("sessions")[0]["ssid"] == "'); DROP TABLE stay; --\\x1b[2J\\n\\xff"


@pytest.fixture(scope="module")
def right(server, build_dir, tmp_path_factory):
    """A day's records, and the stays of one collector that got them once and in order."""
    from programs import starter  # pylint: disable=import-outside-toplevel
    records = a_day(seed=17)
    database = Database(server, build_dir)
    with starter(tmp_path_factory.mktemp("right")) as start:
        database.feed(start, records)
    return records, database.stays()


@pytest.mark.parametrize("collectors", [1, 2, 3])
def test_stays_depend_on_the_reports_alone(database, start, right, collectors):
    """Shuffled, every third twice, split over collectors that run at once: the same stays, events and time series."""
    records, stays = right
    dice = random.Random(collectors)
    sent = records + dice.sample(records, len(records) // 3)
    # Some are minutes late, some come in any order.
    order = sorted(range(len(sent)), key=lambda n: (n + dice.choice([0, 0, 5, 50, 5000])))
    shares = [[] for _ in range(collectors)]
    for number in order:
        shares[dice.randrange(collectors)].append(sent[number])
    running = [database.feeder(start, name=f"feeder{n}") for n in range(collectors)]
    while any(shares):
        for one, share in zip(running, shares):
            one.process.stdin.write(b"".join(share[:100]))
            one.process.stdin.flush()
            del share[:100]
    for one in running:
        one.process.stdin.close()
    for one in running:
        assert one.wait_for_end() == 0, one.err.read_text()
    assert database.number("SELECT count(*) FROM report") == len(records)
    assert database.number("SELECT count(*) FROM pending") == 0
    assert database.stays() == stays
    assert len(stays) > 50
