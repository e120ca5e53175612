"""A PostgreSQL of a test's own: below a temporary folder, on a socket there, as a user without rights."""

import collections
import contextlib
import glob
import itertools
import json
import os
import pathlib
import pwd
import random
import shutil
import signal
import struct
import subprocess
import tempfile

import pytest

from images import NOON, told
from programs import wait

BIN = next(iter(sorted(glob.glob("/usr/lib/postgresql/*/bin"), key=lambda path: int(path.split("/")[-2]), reverse=True)), None)
USER = "nobody"
SECOND = 1_000_000
NAMES = itertools.count()


def as_user():
    """It refuses to be run by root."""
    if os.geteuid() != 0:
        return {}
    entry = pwd.getpwnam(USER)
    return {"user": entry.pw_uid, "group": entry.pw_gid, "extra_groups": []}


class Postgres:
    def __init__(self, *settings):
        self.settings, self.port = settings, 5432  # settings: NAME=VALUE, which override those below
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="wsm-pg-"))  # a socket's path is short
        who = as_user()
        if who:
            os.chown(self.folder, who["user"], who["group"])
        self.environment = {"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "HOME": str(self.folder), "TZ": "UTC"}
        self.run([f"{BIN}/initdb", "-D", self.folder / "data", "-U", "wsm", "-A", "trust", "-E", "UTF8", "--no-sync"])
        self.process = None
        self.start()

    def run(self, argv):
        done = subprocess.run([str(word) for word in argv], cwd=self.folder, env=self.environment, capture_output=True, text=True,
                              check=False, timeout=120, **as_user())
        assert done.returncode == 0, done.stdout + done.stderr

    def start(self):
        # After a kill it waits for those of its children that still run.
        wait(self.has_started, "the database")

    def has_started(self):
        with open(self.folder / "log", "ab") as log:
            self.process = subprocess.Popen(
                [f"{BIN}/postgres", "-D", self.folder / "data", "-k", self.folder, "-p", str(self.port), "-c", "listen_addresses=",
                 "-c", "max_connections=40", "-c", "recovery_init_sync_method=syncfs", *(f"-c{setting}" for setting in self.settings)],
                cwd=self.folder, env=self.environment, stdout=log, stderr=log, **as_user())
        wait(lambda: self.answers() or self.process.poll() is not None, "the database")
        return self.process.poll() is None

    def answers(self):
        return subprocess.run([f"{BIN}/pg_isready", "-q", "-h", self.folder, "-p", str(self.port)], check=False).returncode == 0

    def stop(self, number=signal.SIGQUIT):
        if self.process.poll() is None:
            self.process.send_signal(number)
        return self.process.wait(60)

    def close(self):
        self.stop()
        shutil.rmtree(self.folder, ignore_errors=True)

    def url(self, database="postgres", schema="public"):
        return f"postgresql://wsm@/{database}?host={self.folder}&port={self.port}&options=-csearch_path%3D{schema}"

    def psql(self, sql, schema="public"):
        """Rows of a statement, as lists of texts."""
        done = subprocess.run([f"{BIN}/psql", "-X", "-q", "-A", "-t", "-F", "\x1f", "-v", "ON_ERROR_STOP=1", "-d", self.url(schema=schema), "-c", sql],
                              capture_output=True, text=True, check=False, timeout=120, env=self.environment)
        assert done.returncode == 0, done.stderr
        return [line.split("\x1f") for line in done.stdout.splitlines()]

    def session(self, schema):
        """psql that reads statements from its input, for a transaction that is held open."""
        return subprocess.Popen([f"{BIN}/psql", "-X", "-q", "-A", "-t", "-d", self.url(schema=schema)], stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE, text=True, env=self.environment)


@contextlib.contextmanager
def a_postgres():
    one = Postgres()
    try:
        yield one
    finally:
        one.close()


def serve(build_dir):
    """For a fixture: a server, where there can be one."""
    if not BIN:
        pytest.skip("PostgreSQL is not installed")
    done = subprocess.run([build_dir / "bin/wsm-collector", "query", "--store", "postgresql://127.0.0.1:1/", "top"], capture_output=True,
                          check=False)
    if b"built without" in done.stderr:
        pytest.skip("built without libpq")
    with a_postgres() as one:
        yield one


class Database:
    """A schema of its own in the server's database, and the ways to use it."""

    def __init__(self, server, build_dir):
        self.server, self.build_dir = server, build_dir
        self.name = f"d{next(NAMES)}"
        server.psql(f"CREATE SCHEMA {self.name}")
        self.url = server.url(schema=self.name)

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


def record(image, at, seq, ticket=0, ap="02:54:4b:00:00:01", boot="b"):
    return struct.pack("<qQQ20s20s", at, ticket, seq, ap.encode(), boot.encode()) + image


def a_day(seed, people=12, access_points=3, seconds=86400):
    """A day's reports of people who come, roam, get lost and leave; (time of receipt, record) of each, in order."""
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
                elif step < 0.3:  # to another access point; the departure from the old one is reported late
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
