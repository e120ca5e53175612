"""The store in PostgreSQL during failures: nothing that was acknowledged is lost, nothing is stored twice."""

import re
import signal
import time

import pytest

from images import NOON, mac, told
from postgres import SECOND, Database, a_day, record
from programs import connect, starter, wait
from served import Served


@pytest.fixture(scope="module")
def right(server, build_dir, tmp_path_factory):
    """A day's records with tickets, and the stays of one collector that got them once and in order."""
    records = [one[:8] + number.to_bytes(8, "little") + one[16:] for number, one in enumerate(a_day(seed=5, people=8), 1)]
    database = Database(server, build_dir)
    with starter(tmp_path_factory.mktemp("right")) as start:
        database.feed(start, records)
    return records, database.stays()


def give(one, records):
    one.process.stdin.write(b"".join(records))
    one.process.stdin.flush()


def last_ticket(one):
    lines = one.lines()
    return int(lines[-1]) if lines else 0


def test_postgresql_is_killed_in_the_middle(database, server, start, right):
    records, stays = right
    half = len(records) // 2
    one = database.feeder(start)
    give(one, records[:half])
    wait(lambda: last_ticket(one) > 0, "the first ticket")
    server.stop(signal.SIGKILL)
    give(one, records[half:half + 50])
    wait(lambda: re.search("kept until it can be written|tried again", one.err.read_text()), "the loss to be noticed")
    server.start()
    give(one, records[half + 50:])
    one.process.stdin.close()
    assert one.wait_for_end() == 0
    assert last_ticket(one) == len(records)
    assert "goes on" in one.err.read_text()
    assert database.number("SELECT count(*) FROM report") == len(records)
    assert database.stays() == stays


@pytest.mark.parametrize("after", [1, 500])
def test_a_collector_is_killed_in_the_middle(database, start, right, after):
    records, stays = right
    one = database.feeder(start, name="killed")
    give(one, records)
    wait(lambda: last_ticket(one) >= after, "tickets")
    one.stop(signal.SIGKILL)
    acknowledged = last_ticket(one)
    assert database.number("SELECT count(*) FROM report") >= acknowledged
    # A broker sends again what was not acknowledged.
    assert database.feed(start, records[acknowledged:], name="next")[-1:] in ([], [len(records)])
    assert database.number("SELECT count(*) FROM report") == len(records)
    assert database.stays() == stays


def test_nothing_is_acknowledged_while_the_tables_are_locked(database, start, right):
    records, stays = right
    one = database.feeder(start, name="slow")
    give(one, records[:1])
    wait(lambda: last_ticket(one) == 1, "the first ticket")
    other = database.server.session(database.name)
    other.stdin.write("BEGIN; LOCK TABLE report IN ACCESS EXCLUSIVE MODE; SELECT 'locked';\n")
    other.stdin.flush()
    assert other.stdout.readline() == "locked\n"
    give(one, records[1:200])  # no more than it takes without getting rid of some
    waiting = "SELECT count(*) FROM pg_stat_activity WHERE wait_event_type = 'Lock'"
    wait(lambda: database.number(waiting) > 0, "the collector to wait")
    assert last_ticket(one) == 1
    other.communicate("COMMIT;\n", timeout=60)
    give(one, records[200:])
    one.process.stdin.close()
    assert one.wait_for_end() == 0
    assert last_ticket(one) == len(records)
    assert database.stays() == stays


def test_two_collectors_with_the_same_reports_at_once(database, start, right):
    records, stays = right
    running = [database.feeder(start, name=f"twin{n}") for n in range(2)]
    for number in range(0, len(records), 50):
        for one in running:
            give(one, records[number:number + 50][::1 if one is running[0] else -1])
    for one in running:
        one.process.stdin.close()
    assert [one.wait_for_end() for one in running] == [0, 0]
    assert database.number("SELECT count(*) FROM report") == len(records)
    assert database.stays() == stays


def test_a_collector_starts_without_the_database_and_loses_nothing(server, database, start, build_dir, tmp_path):
    path = tmp_path / "socket"
    server.stop()
    one = start([build_dir / "bin/wsm-collector", "--quiet", "--socket", path, "--store", database.url, "--commit", "0"])
    one.wait_for_socket(path)
    wait(lambda: "tried again" in one.err.read_text(), "the message")
    for number in range(20):
        with connect(path) as peer:
            peer.sendall(told(number, 1, int(time.time())))
    server.start()
    wait(lambda: "goes on" in one.err.read_text(), "the database")
    wait(lambda: len(database.rows("sessions")) == 20, "the stays")
    assert one.stop() == 0
    assert database.number("SELECT count(*) FROM report") == 20
    assert database.sql("SELECT DISTINCT length(boot), min(seq), max(seq) FROM report GROUP BY 1") == [["16", "1", "20"]]


def test_an_end_without_the_database_tells_what_is_not_stored(server, database, start, build_dir, tmp_path):
    path = tmp_path / "socket"
    one = start([build_dir / "bin/wsm-collector", "--quiet", "--socket", path, "--store", database.url, "--commit", "0"])
    one.wait_for_socket(path)
    server.stop()
    for number in range(3):
        with connect(path) as peer:
            peer.sendall(told(number, 1, int(time.time())))
    wait(lambda: "kept until it can be written" in one.err.read_text() or "tried again" in one.err.read_text(), "the message")
    assert one.stop() == 1
    server.start()
    assert "3 reports could not be stored" in one.err.read_text()


def test_silence_ends_a_stay_that_another_collector_stored(database, start, build_dir, tmp_path):
    began = int(time.time())
    database.feed(start, [record(told(1, 1, began), began * SECOND, 1), record(told(2, 1, began), began * SECOND, 2),
                          record(told(2, 2, began, 0, reason_code=307), began * SECOND + 1, 3)], "--grace", "3600")
    assert {(row["mac"], row["state"]) for row in database.rows("sessions")} == {(mac(1), "here"), (mac(2), "leaving")}
    path = tmp_path / "socket"
    one = start([build_dir / "bin/wsm-collector", "--quiet", "--socket", path, "--store", database.url, "--commit", "0", "--grace", "1",
                 "--silence", "2"])
    wait(lambda: {row["state"] for row in database.rows("sessions")} == {"gone"}, "the end")
    assert {(row["mac"], row["reason_code"], row["reason"]) for row in database.rows("sessions")} == {
        (mac(1), 0, "no more reports"), (mac(2), 307, "")}
    assert one.stop() == 0


def test_the_interface_answers_from_it(database, start, build_dir, tmp_path):
    since = NOON + 100  # a multiple of five minutes
    database.collect(b"".join(told(n, 1, since) + told(n, 3, since, 60, ip="10.0.0.7", wifi_up=1000, floornoise=-95, utilization=30) +
                              told(n, 2, since, 100, wifi_up=1500, reason="OW_STA_DEAUTH_RECV", reason_code=307) for n in range(1, 4)), "--sample", "0", "--keep", "0")
    one = Served.__new__(Served)
    one.path = tmp_path / "socket"
    one.program = start([build_dir / "bin/wsm-collector", "--quiet", "--socket", one.path, "--http", "127.0.0.1:0", "--store", database.url,
                         "--keep", "0"])
    one.program.wait_for_socket(one.path)
    if "built without" in one.program.err.read_text():
        pytest.skip(one.program.err.read_text())
    one.port = re.search(r"http: port (\d+)", one.program.err.read_text())[1]
    assert one.get("/api/v1/status")["history"] is True
    assert len(one.get(f"/api/v1/sessions?since={since}")) == 3
    # Their grace time is measured by the clock of the collector that runs.
    wait(lambda: [row["departures"] for row in one.get(f"/api/v1/departures?since={since}")] == [3], "the departures")
    assert [(row["mac"], row["up"]) for row in one.get(f"/api/v1/top?since={since}&limit=1")] == [(mac(1), 1500)]
    assert one.get(f"/api/v1/flapping?since={since}") == []
    assert {row["kind"] for row in one.get(f"/api/v1/stations/{mac(2)}/changes?since={since}")} == {"joined", "leaving", "left"}
    assert [(row["ip"], row["first"]) for row in one.get(f"/api/v1/stations/{mac(1)}/addresses?since={since}")] == [("10.0.0.7", since + 60)]
    assert one.get(f"/api/v1/stations/{mac(1)}/series?since={since}") == [
        {"at": since, "signal": -50, "rate_up": 0, "rate_down": 0, "up": 1500, "down": 0}]
    assert [(row["ap"], row["stations"], row["noise"], row["utilization"]) for row in one.get(f"/api/v1/radios?since={since}")] == [
        ("02:54:4b:00:00:01", 3, -95, 10)]
    assert one.ask("/api/v1/sessions?mac=%27%3B--")[0] == 400
    database.server.stop()
    status, _, body = one.ask("/api/v1/sessions")
    database.server.start()
    assert status == 503 and b"the store does not answer" in body
    assert one.program.stop() == 0
