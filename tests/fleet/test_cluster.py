"""A fleet behind a cluster of brokers and a database, two collectors in between, while one part after the other fails. What the
fleet meant to say is in its ledger; after each failure the store has exactly that."""

import collections
import pathlib
import re
import signal
import subprocess
import time

import pika
import pytest

from postgres import a_postgres
from programs import wait
from rabbit import Cluster
from test_mqtt import free_port

Meant = collections.namedtuple("Meant", "reports stays")
SECONDS = 40  # that the fleet lives around a failure
PATIENCE = 300  # seconds until everything is stored


@pytest.fixture(scope="module", name="cluster")
def a_cluster():
    one = Cluster()
    yield one
    one.close()


@pytest.fixture(scope="module", name="postgres")
def a_database():
    with a_postgres() as one:
        yield one


def meant_by(ledgers):
    """What these files say: the reports (access point, boot, number), and {MAC: (access point, begin, end, reports)}."""
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
    """Two halves of a fleet, each at a node of its own; two collectors; a database of its own."""

    def __init__(self, cluster, postgres, start, build_dir, folder, name):
        self.cluster, self.postgres, self.start, self.bin, self.folder = cluster, postgres, start, build_dir / "bin", folder
        self.name = re.sub(r"\W+", "_", name)[:50].lower()
        self.queue = f"{self.name}"
        self.fleets, self.ledgers, self.collectors = [], [], []
        postgres.psql(f"CREATE DATABASE {self.name}")

    def psql(self, sql):
        return self.postgres.psql(sql, self.name)

    def collector(self, *options):
        number = len(self.collectors) + 1
        url = self.cluster.amqp(queue=self.queue) + f"&prefix={self.name}"
        one = self.start([self.bin / "wsm-collector", "--quiet", "--subscribe", url, "--store", self.postgres.url(self.name), *options],
                         name=f"collector{number}")
        self.collectors.append(one)

        def subscribed():
            assert one.process.poll() is None, one.err.read_text()
            return "subscribe: subscribed" in one.err.read_text()
        wait(subscribed, "the subscription")
        return one

    def fleet(self, node, *, seconds=SECONDS, access_points=25, stations=10, period=5, speed=1, connections=1):
        number = len(self.fleets)
        ledger = self.folder / f"ledger{number}"
        url = self.cluster.mqtt(node).rsplit("/", 1)[0] + f"/{self.name}"
        self.fleets.append(self.start(
            [self.bin / "wsm-fleet-sim", "--to", url, "--access-points", access_points, "--first", 1 + 1000 * number, "--stations", stations,
             "--seconds", seconds, "--speed", speed, "--period", period, "--connections", connections, "--ledger", ledger], name=f"fleet{number}"))
        self.ledgers.append(ledger)
        return self.fleets[-1]

    def stored(self):
        return int(self.psql("SELECT count(*) FROM report")[0][0])

    def sent(self):
        return sum(ledger.read_bytes().count(b"report ") for ledger in self.ledgers if ledger.exists())

    def wait_until_stored(self, more):
        """Until so many more reports are in the store."""
        goal = self.stored() + more
        wait(lambda: self.stored() >= goal, f"{goal} reports in the store")

    def recovery(self, since):
        """Seconds from `since` until the store has all but the newest second of what was sent."""
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
        """Waits until the fleet has ended and everything is stored; the store is then what the ledger says."""
        for fleet in self.fleets:
            assert fleet.process.wait(PATIENCE) == 0, fleet.err.read_text()
        meant = meant_by(self.ledgers)
        end = time.monotonic() + PATIENCE
        while self.stored() < len(meant.reports) and time.monotonic() < end:
            time.sleep(0.1)
        kept = {tuple(row) for row in self.psql("SELECT ap, boot, seq FROM report")}
        rows = int(self.psql("SELECT count(*) FROM report")[0][0])
        lost, double, foreign = len(meant.reports - kept), rows - len(kept), len(kept - meant.reports)

        def stays():
            return {mac: (ap, began, ended, reports) for mac, ap, began, ended, reports in self.psql(
                "SELECT mac, ap, began / 1000000, coalesce(ended, 0) / 1000000, reports FROM stay")}
        while stays() != meant.stays and time.monotonic() < end:
            time.sleep(0.2)
        wrong = sum(stays().get(mac) != stay for mac, stay in meant.stays.items()) + len(stays().keys() - meant.stays.keys())
        after = "" if recovery is None else f"; all but the newest second stored {recovery:.1f} s after it"
        print(f"\n{what}: {len(meant.reports)} reports meant: {lost} lost, {double} double, {foreign} foreign; "
              f"{len(meant.stays)} stays: {wrong} wrong{after}")
        assert (lost, double, foreign, wrong) == (0, 0, 0, 0), self.said()


@pytest.fixture(name="whole")
def everything(request, cluster, postgres, start, build_dir, tmp_path):
    return Whole(cluster, postgres, start, build_dir, tmp_path, "t_" + request.node.name.removeprefix("test_"))


@pytest.fixture(name="running")
def everything_running(whole):
    """Reports are flowing when this returns."""
    whole.collector()
    whole.collector()
    whole.fleet(whole.cluster.nodes[0])
    whole.fleet(whole.cluster.nodes[1])
    whole.wait_until_stored(300)
    return whole


def test_nothing_fails(running):
    running.end_and_compare("nothing fails")


def test_a_collector_is_killed(running):
    since = time.monotonic()
    running.collectors[0].stop(signal.SIGKILL)
    running.wait_until_stored(200)
    recovery = running.recovery(since)
    running.collector()
    running.end_and_compare("kill -9 of a collector", recovery=recovery)


def restart(node):
    node.start()
    node.wait_until_up()


def test_a_node_of_the_broker_is_killed(running):
    leader = running.cluster.queue(running.queue)["leader"]
    node = next(node for node in running.cluster.nodes[:2] if node.name != leader)  # half of the fleet is there
    since = time.monotonic()
    node.kill()
    running.wait_until_stored(200)  # of the other half
    restart(node)
    running.end_and_compare("kill -9 of a broker node", recovery=running.recovery(since))


def test_the_leader_of_the_queue_is_killed(running):
    node = running.cluster.node_of(running.cluster.queue(running.queue)["leader"])
    since = time.monotonic()
    node.kill()
    wait(lambda: (running.cluster.queue(running.queue) or {}).get("leader") not in ("", None, node.name), "another leader")
    print(f"\nanother leader after {time.monotonic() - since:.1f} s")
    restart(node)
    running.end_and_compare("kill -9 of the queue's leader", recovery=running.recovery(since))


def test_the_database_is_killed(running):
    since = time.monotonic()
    running.postgres.stop(signal.SIGKILL)
    before = running.sent()
    wait(lambda: running.sent() > before + 300, "reports that cannot be stored")
    start_again(running.postgres)
    running.end_and_compare("kill -9 of the database", recovery=running.recovery(since))


def start_again(postgres):
    """Its old processes may need a moment to notice that their parent is gone."""
    def started():
        try:
            postgres.start()
            return True
        except AssertionError:
            return False
    wait(started, "the database")


def test_a_node_answers_nobody_for_a_minute(running):
    """It is stopped, so that its connections stay open and silent, as those of a node behind a dead link do."""
    node = running.cluster.node_of(running.cluster.queue(running.queue)["leader"])
    since = time.monotonic()
    node.signal(signal.SIGSTOP)
    try:
        time.sleep(60)
    finally:
        node.signal(signal.SIGCONT)
    running.end_and_compare("a broker node, the queue's leader, silent for a minute", recovery=running.recovery(since))


def test_the_database_is_slow(running):
    """A lock holds every write back."""
    since = time.monotonic()
    session = running.postgres.session(running.name)
    session.stdin.write("BEGIN; LOCK TABLE report IN ACCESS EXCLUSIVE MODE; SELECT 'locked';\n")
    session.stdin.flush()
    assert session.stdout.readline() == "locked\n"
    before = running.sent()
    wait(lambda: running.sent() > before + 1000, "reports that cannot be stored")
    waiting = running.cluster.queue(running.queue)["messages"]
    assert waiting >= 500, "the broker keeps what is not stored"
    session.stdin.write("COMMIT;\n\\q\n")
    session.stdin.flush()
    assert session.wait(60) == 0
    running.end_and_compare(f"a database that takes nothing, while {waiting} reports wait in the queue", recovery=running.recovery(since))


def test_what_is_no_report_is_set_aside_with_its_reason(running):
    node = running.cluster.nodes[0]
    for payload in ("no report", "{}"):
        subprocess.run(["mosquitto_pub", "-p", str(node.mqtt), "-u", "fleet", "-P", "secret", "-q", "1", "-m", payload,
                        "-t", f"{running.name}/report/02:54:4b:00:00:01"], check=True, timeout=60)
    wait(lambda: (running.cluster.queue(running.queue + ".refused") or {}).get("messages") == 2, "what was set aside")
    link = pika.BlockingConnection(pika.ConnectionParameters("127.0.0.1", node.amqp, credentials=pika.PlainCredentials("fleet", "secret")))
    channel = link.channel()
    found = {}
    for _ in range(2):
        _, properties, body = channel.basic_get(running.queue + ".refused", auto_ack=True)
        found[body] = {name: value for name, value in properties.headers.items() if not name.startswith("x-")}
    link.close()
    key = f"{running.name}.report.02:54:4b:00:00:01"
    assert found == {b"no report": {"reason": "no JSON object", "routing-key": key}, b"{}": {"reason": "ssid is missing", "routing-key": key}}
    running.end_and_compare("two messages that are no reports")
    assert sum(one.err.read_text().count("a message is set aside") for one in running.collectors) == 2
