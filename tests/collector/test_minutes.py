"""Tests that take a minute and more: an output that blocks, a broker that is away, a day of a network's people. ./test --minutes"""

import collections
import json
import os
import pathlib
import re
import signal
import sqlite3
import struct
import sys
import time

import formats
import pytest

from brokers import first_time, messages, reports
from images import told
from programs import connect, wait
from served import Served

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "lab"))

from wsmlab import Lab, soak  # noqa: E402  pylint: disable=wrong-import-position

NOON = int(time.time()) - 1000
MIDNIGHT = NOON - 7 * 86400 - int(time.monotonic())
STATIONS = 50
RATE = 2000  # reports a second
MINUTE = 60


def report(number):
    return told(1 + number % STATIONS, 3, NOON, number)


class Load:
    """Reports at a rate, each on a connection of its own, as the daemon sends them."""

    def __init__(self, path):
        self.path, self.sent, self.slowest = path, 0, 0.0

    def run(self, seconds, rate=RATE):
        begin, first = time.monotonic(), self.sent
        while (elapsed := time.monotonic() - begin) < seconds or self.sent - first < rate * seconds:
            due = min(int(elapsed * rate), rate * seconds) - (self.sent - first)
            for _ in range(due):
                before = time.monotonic()
                with connect(self.path) as peer:
                    peer.sendall(report(self.sent))
                self.slowest = max(self.slowest, time.monotonic() - before)
                self.sent += 1
            time.sleep(0.001)
        return f"{self.sent - first} reports in {time.monotonic() - begin:.1f} s, the slowest in {1000 * self.slowest:.1f} ms"


def test_an_output_that_blocks_for_a_minute_costs_nobody_else_a_report(start, build_dir, serve, tmp_path):  # noqa: F811
    serve().program.stop()  # or it is skipped
    os.mkfifo(tmp_path / "blocked.out")
    reader = os.open(tmp_path / "blocked.out", os.O_RDONLY | os.O_NONBLOCK)
    one = Served.__new__(Served)
    one.path = tmp_path / "socket"
    one.program = start([build_dir / "bin/wsm-collector", "--json", "--socket", one.path, "--http", "127.0.0.1:0",
                         "--store", f"sqlite:{tmp_path}/store", "--sample", "0"], name="blocked")
    one.program.wait_for_socket(one.path)
    one.port = re.search(r"http: port (\d+)", one.program.err.read_text())[1]
    load = Load(one.path)
    print("\nblocked:", load.run(MINUTE))
    wait(lambda: one.get("/api/v1/status")["reports"] == load.sent, "the reports")

    def outputs():
        return {out["name"]: out for out in one.get("/api/v1/status")["outputs"]}
    wait(lambda: outputs()["store"]["waiting"] == outputs()["live"]["waiting"] == 0, "the others")
    for out in outputs().values():
        print(out)
    for name in ("live", "store"):
        assert (outputs()[name]["taken"], outputs()[name]["dropped"]) == (load.sent, 0)
    blocked = outputs()["print"]
    assert blocked["waiting"] == 10000 and blocked["dropped"] == load.sent - 10000 - blocked["taken"] > 0
    one.program.process.send_signal(signal.SIGTERM)
    os.set_blocking(reader, True)
    with open(reader, "rb") as printed:
        numbers = [json.loads(line)["oltime"] for line in printed]
    assert one.program.wait_for_end() == 0
    assert numbers == sorted(numbers) and numbers[-10000:] == list(range(load.sent - 10000, load.sent))
    with sqlite3.connect(tmp_path / "store") as db:
        assert db.execute("SELECT count(*) FROM sample").fetchone() == (load.sent,)


@pytest.mark.parametrize("killed", [False, True])
def test_a_broker_that_is_away_for_a_minute_gets_everything_in_order(broker, publish, tmp_path, killed):  # noqa: F811
    subscriber = broker.subscribe()
    options = ("--spool-dir", tmp_path / "spool", "--spool-size", "2000", "--queue", "1000000")
    one = publish(*options)
    load = Load(one.path)
    rate = RATE // 4  # each is two messages, and the subscriber must be able to catch up
    print("\nbefore:", load.run(5, rate))
    broker.stop()
    print("away:", load.run(MINUTE, rate))
    if killed:
        wait(lambda: f'"seq":{load.sent},'.encode() in max((tmp_path / "spool").iterdir()).read_bytes(), "the last one in the spool")
        one.program.stop(signal.SIGKILL)
        one = publish(*options)
        print("spool:", one.program.err.read_text().strip())
    at_its_end = load.sent
    broker.run()
    print("back:", load.run(5, rate))
    expected = [at_its_end, load.sent - at_its_end] if killed else [load.sent]
    came = collections.Counter()

    def all_came():
        with open(subscriber.out, "rb") as out:
            lines = sum(b" home/report/" in line for line in out)
        if lines == came["lines"] and lines < load.sent:
            return False
        came["lines"] = lines
        return lines >= load.sent
    end = time.monotonic() + 5 * MINUTE
    while not all_came():
        assert time.monotonic() < end, came
        time.sleep(0.5)
    wait(lambda: [len(seqs) for seqs in first_time(subscriber, STATIONS).values()] == expected, "all reports")
    print("reports that came:", expected, "lines:", came["lines"])
    assert all(seqs == list(range(1, len(seqs) + 1)) for seqs in first_time(subscriber).values())
    assert one.program.stop() == 0
    assert "dropped" not in one.program.err.read_text()


def people_of_a_day(build_dir, monkeypatch):
    """What the daemon reports of the demo's people in a day of its time, as it came."""
    images = []

    class Kept(soak.Collector):
        def take(self, timeout):
            some = super().take(timeout)
            images.extend(some)
            return some
    monkeypatch.setattr(soak, "Collector", Kept)
    with Lab(build_dir) as lab:
        day = soak.Soak(lab, stations=30, events=3000, minutes=24 * 60, seed=1, rounds=0, memory=False)
        day.run()
    assert not day.complaints
    print("\n" + day.table())
    return [at_its_time(image) for image in images]


def at_its_time(image):
    """The daemon's clock was moved ahead while the driver's stood still: times of the day come from its monotonic clock."""
    data = bytearray(image)

    def field(name):
        return struct.unpack_from("<i", data, formats.REPORT[name][0])[0]
    (clock,) = struct.unpack_from("<i", data, 212)  # seconds since the access point was booted, at the association
    struct.pack_into("<i", data, formats.REPORT["online_ts"][0], MIDNIGHT + clock)
    if field("offline_ts"):
        struct.pack_into("<i", data, formats.REPORT["offline_ts"][0], MIDNIGHT + clock + field("oltime"))
    return bytes(data)


def test_a_day_of_the_demos_people_is_the_same_in_every_output(start, build_dir, tmp_path, broker, with_mqtt, monkeypatch, database):  # noqa: F811
    # pylint: disable=unused-argument,too-many-locals
    images = people_of_a_day(build_dir, monkeypatch)
    (tmp_path / "reports").write_bytes(b"".join(images))
    kinds = collections.Counter(struct.unpack_from("<H", image, formats.REPORT["log_type"][0])[0] for image in images)
    hook, ran = tmp_path / "hook", tmp_path / "ran"
    hook.write_text(f'#!/bin/sh\necho "$1" >> {ran}\n')
    hook.chmod(0o755)
    subscriber = broker.subscribe()
    program = start([build_dir / "bin/wsm-collector", "--json", "--follow", "--store", f"sqlite:{tmp_path}/store",
                     "--commit", "0", "--sample", "0", "--http", "127.0.0.1:0", "--exec", hook, "--spool-dir", tmp_path / "spool",
                     "--publish", f"mqtt://127.0.0.1:{broker.port}/home", tmp_path / "reports"])
    wait(lambda: "http: port " in program.err.read_text() or program.process.poll() is not None, "the collector")
    one = Served.__new__(Served)
    one.port = re.search(r"http: port (\d+)", program.err.read_text())[1]

    def until(predicate, what):
        end = time.monotonic() + 5 * MINUTE
        while not predicate():
            assert time.monotonic() < end, what
            time.sleep(0.2)
    until(lambda: one.get("/api/v1/status")["reports"] == len(images), "the day")
    until(lambda: all(out["waiting"] == 0 for out in one.get("/api/v1/status")["outputs"]), "the outputs")
    until(lambda: len(reports(subscriber)) == len(images), "the broker")
    text = one.ask("/metrics")[2].decode()
    status, access_points = one.get("/api/v1/status"), one.get("/api/v1/access-points")
    broker.wait_for_probe(subscriber)
    asked = ("joined", "roamed", "left")
    counted = {"metrics": collections.Counter(), "mqtt": collections.Counter(), "http": collections.Counter()}
    for kind, value in re.findall(r'^wsm_changes_total.*kind="(\w+)"} (\d+)', text, re.M):
        counted["metrics"][kind] += int(value)
    for ap in access_points:
        counted["http"].update({kind: ap[kind] for kind in asked})
    counted["mqtt"].update(json.loads(payload)["kind"] for topic, payload in messages(subscriber) if "/station/" in topic and payload)
    until(lambda: len(ran.read_text().split()) >= sum(counted["metrics"][kind] for kind in asked), "the programs")
    assert program.stop() == 0
    counted["exec"] = collections.Counter(ran.read_text().split())
    done = database.collect(b"".join(images), "--sample", "0", "--keep", "0")
    assert (done.returncode, done.stderr) == (0, b"")
    counted["postgres"] = collections.Counter({kind: int(count) for kind, count in database.sql("SELECT kind, count(*) FROM event GROUP BY kind")})
    what = "mac, ap, radio, state, roams, returns, reports, up, down"
    with sqlite3.connect(tmp_path / "store") as db:
        assert database.sql(f"SELECT {what} FROM stay ORDER BY mac, began, id") == [
            [str(value) for value in row] for row in db.execute(f"SELECT {what} FROM stay ORDER BY mac, began, id")]
        counted["store"] = collections.Counter(dict(db.execute("SELECT kind, count(*) FROM event GROUP BY kind")))
        stays, ended, leaving = db.execute("SELECT count(*), sum(state = 3), sum(state = 1) FROM stay").fetchone()
    lines = len(program.lines())
    print(f"sent {len(images)} reports: {dict(kinds)}; printed {lines}, published {len(reports(subscriber))}, "
          f"stays {stays} of which ended {ended} and {leaving} within the grace time; late {status['late']}")
    for name, of in counted.items():
        print(f"{name:8} {dict(of)}")
    assert lines == len(reports(subscriber)) == len(images)
    assert f"\nwsm_collector_reports_total {len(images)}\n" in text
    assert len({tuple(of[kind] for kind in asked) for of in counted.values()}) == 1
    assert status["impossible"] == status["wrong_size"] == 0
    assert stays == counted["store"]["joined"] and ended == counted["store"]["left"]
    assert counted["store"]["leaving"] == counted["mqtt"]["leaving"] > 0
    assert counted["store"]["returned"] == counted["mqtt"]["returned"] == counted["metrics"]["returned"]
