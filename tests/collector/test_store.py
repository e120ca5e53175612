"""The store: what it holds after anything that can happen to a file."""

import concurrent.futures
import csv
import io
import json
import os
import signal
import sqlite3
import subprocess

import pytest

from images import NOON, mac, told, visit
from programs import connect, wait


@pytest.fixture
def sqlite(build_dir):
    done = subprocess.run([build_dir / "bin/wsm-collector", "query", "--store", "sqlite:/", "top"], capture_output=True, check=False)
    if b"built without" in done.stderr:
        pytest.skip("built without SQLite")


pytestmark = pytest.mark.usefixtures("sqlite")


def collect(build_dir, images, store, *options, **more):
    """Runs images through a collector with a store."""
    return subprocess.run([build_dir / "bin/wsm-collector", "--quiet", "--store", f"sqlite:{store}", *options, "-"],
                          input=images, capture_output=True, timeout=60, check=False, **more)


def query(build_dir, store, *words):
    done = subprocess.run([build_dir / "bin/wsm-collector", "query", "--store", f"sqlite:{store}", *words],
                          capture_output=True, text=True, timeout=60, check=False, env={**os.environ, "TZ": "UTC"})
    assert done.returncode == 0, done.stderr
    return done.stdout


def rows(build_dir, store, *words):
    return json.loads(query(build_dir, store, *words, "--json"))


def count(store, what="stay"):
    with sqlite3.connect(store) as db:
        return db.execute(f"SELECT count(*) FROM {what}").fetchone()[0]


@pytest.fixture
def a_day(build_dir, tmp_path):
    """A store with the visits of three stations."""
    images = (visit(1, NOON, 100) + visit(2, NOON + 200, 60, reason="OW_STA_TIMEOUT", reason_code=300) +
              visit(1, NOON + 3600, 50) + told(3, 1, NOON + 7000))
    assert collect(build_dir, images, tmp_path / "store").returncode == 0
    return tmp_path / "store"


def test_sessions_are_the_stays_with_all_that_is_known_of_them(build_dir, a_day):
    stays = rows(build_dir, a_day, "sessions")
    assert [(stay["mac"], stay["began"], stay["state"]) for stay in stays] == [
        (mac(3), NOON + 7000, "here"), (mac(1), NOON + 3600, "gone"), (mac(2), NOON + 200, "gone"), (mac(1), NOON, "gone")]
    first = stays[-1]
    first.pop("id")
    assert first == {
        "mac": mac(1), "name": "", "state": "gone", "ap": "02:54:4b:00:00:01", "radio": 0, "ssid": "Lobby", "ip": "10.0.0.7",
        "began": NOON, "ended": NOON + 100, "seconds": 100, "roams": 0, "returns": 0, "signal_least": -50,
        "signal_mean": -50, "signal_most": -50, "up": 1000, "down": 10000, "reason": "OW_STA_DEAUTH_RECV",
        "reason_code": 307, "ended_by": "station"}


def test_a_station_has_its_own_stays_and_a_range_those_that_overlap_it(build_dir, a_day):
    assert [stay["began"] for stay in rows(build_dir, a_day, "station", mac(1).upper())] == [NOON + 3600, NOON]
    between = ["--since", str(NOON + 90), "--until", str(NOON + 210)]
    assert [stay["mac"] for stay in rows(build_dir, a_day, "sessions", *between)] == [mac(2), mac(1)]


def test_departures_are_counted_by_reason(build_dir, a_day):
    assert [(row["reason"], row["ended_by"], row["departures"], row["stations"])
            for row in rows(build_dir, a_day, "departures")] == [("OW_STA_DEAUTH_RECV", "station", 2, 1),
                                                                 ("OW_STA_TIMEOUT", "silence", 1, 1)]


def test_top_are_the_stations_with_the_most_bytes(build_dir, a_day):
    assert [(row["mac"], row["sessions"], row["up"], row["down"], row["seconds"])
            for row in rows(build_dir, a_day, "top", "--limit", "2")] == [(mac(1), 2, 2000, 20000, 150),
                                                                          (mac(2), 1, 1000, 10000, 60)]


def test_names_are_shown_beside_macs_in_a_table_and_in_csv(build_dir, a_day, tmp_path):
    (tmp_path / "names").write_text(f'# people\n{mac(1)} Anna\'s "phone", blue\nno mac\n{mac(2).upper()}\tBen\n')
    names = ["--names", tmp_path / "names"]
    table = query(build_dir, a_day, "top", *names).splitlines()
    assert table[0].split() == ["mac", "name", "sessions", "up", "down", "seconds", "roams", "returns"]
    assert table[1].startswith(f"{mac(1)}  Anna's \"phone\", blue  2")
    read = list(csv.DictReader(io.StringIO(query(build_dir, a_day, "sessions", "--csv", *names))))
    assert [row["name"] for row in read] == ["", 'Anna\'s "phone", blue', "Ben", 'Anna\'s "phone", blue']
    assert read[-1]["began"] == f"{NOON}.000000"


def test_times_are_shown_in_the_local_zone(build_dir, a_day):
    assert "2023-11-14 22:13:20  2023-11-14 22:15:00  100" in query(build_dir, a_day, "sessions")
    assert len(rows(build_dir, a_day, "sessions", "--until", "2023-11-14 22:14")) == 1


@pytest.mark.parametrize("words", [[], ["nothing"], ["station"], ["station", "x"], ["sessions", "top"], ["top", "--limit", "0"],
                                   ["top", "--since", "soon"], ["top", "--json", "--csv"], ["top", "--bogus", "1"]])
def test_a_wrong_question_is_status_2(build_dir, a_day, words):
    done = subprocess.run([build_dir / "bin/wsm-collector", "query", "--store", f"sqlite:{a_day}", *words],
                          capture_output=True, timeout=30, check=False)
    assert done.returncode == 2 and b"usage: wsm-collector query" in done.stderr


def test_a_store_that_is_not_there_is_status_1(build_dir, tmp_path):
    done = subprocess.run([build_dir / "bin/wsm-collector", "query", "--store", f"sqlite:{tmp_path}/none", "top"],
                          capture_output=True, timeout=30, check=False)
    assert (done.returncode, done.stderr) == (1, b"wsm-collector query: unable to open database file\n")


def test_a_restart_breaks_no_stay(build_dir, tmp_path):
    store = tmp_path / "store"
    collect(build_dir, told(1, 1, NOON) + told(1, 3, NOON, 60, wifi_up=100), store)
    collect(build_dir, told(1, 3, NOON, 120, wifi_up=150) + told(1, 2, NOON, 180, wifi_up=200) + told(2, 1, NOON + 300), store)
    first, second = sorted(rows(build_dir, store, "sessions"), key=lambda stay: stay["id"])
    assert (first["mac"], first["began"], first["seconds"], first["up"]) == (mac(1), NOON, 180, 200)
    assert (second["mac"], second["id"]) == (mac(2), first["id"] + 1)


def test_hostile_texts_are_stored_escaped_and_never_part_of_a_statement(build_dir, tmp_path):
    hostile = b"'); DROP TABLE stay; --\x1b[2J\n\xff"
    collect(build_dir, told(1, 1, NOON, ssid=hostile), tmp_path / "store")
    assert rows(build_dir, tmp_path / "store", "sessions")[0]["ssid"] == "'); DROP TABLE stay; --\\x1b[2J\\n\\xff"
    assert len(query(build_dir, tmp_path / "store", "sessions").splitlines()) == 2


def test_impossible_reports_are_not_stored(build_dir, tmp_path):
    collect(build_dir, told(1, 9, NOON) + told(1, 1, NOON, mac="x") + told(2, 1, NOON), tmp_path / "store")
    assert count(tmp_path / "store") == 1


def test_a_file_of_an_earlier_version_is_brought_up_to_date(build_dir, tmp_path):
    store = tmp_path / "store"
    collect(build_dir, visit(1, NOON, 100), store)
    with sqlite3.connect(store) as db:  # what version 1 had
        db.executescript("DROP TABLE radio; DROP INDEX stay_by_begin; PRAGMA user_version = 1;")
    assert collect(build_dir, visit(1, NOON + 500, 100), store).returncode == 0
    assert len(rows(build_dir, store, "sessions")) == 2
    assert count(store, "radio") > 0


def test_a_file_of_a_later_version_is_left_alone(build_dir, tmp_path):
    store = tmp_path / "store"
    collect(build_dir, visit(1, NOON, 100), store)
    with sqlite3.connect(store) as db:
        db.execute("PRAGMA user_version = 99")
    done = collect(build_dir, visit(1, NOON + 500, 100), store)
    assert done.returncode == 1 and b"newer version" in done.stderr
    assert count(store) == 1


def test_a_damaged_file_is_set_aside_and_a_new_one_begun(build_dir, tmp_path):
    store = tmp_path / "store"
    collect(build_dir, b"".join(visit(number, NOON + number * 1000, 100) for number in range(200)), store)
    data = bytearray(store.read_bytes())
    data[4096:12288] = b"\xa5" * 8192
    store.write_bytes(data)
    done = collect(build_dir, visit(1, NOON, 100), store)
    assert done.returncode == 0
    assert b"is damaged" in done.stderr and b"set aside" in done.stderr
    (aside,) = tmp_path.glob("store.damaged-*[0-9]")
    assert aside.read_bytes()[4096:] == data[4096:]
    assert count(store) == 1
    store.write_bytes(b"this is no database at all, but long enough to be one" * 100)
    assert collect(build_dir, visit(1, NOON, 100), store).returncode == 0


def test_what_is_older_than_wanted_is_removed_and_the_file_shrinks(build_dir, tmp_path):
    store = tmp_path / "store"
    old = b"".join(visit(number, NOON + number * 1000, 100) for number in range(500))
    collect(build_dir, old, store, "--sample", "0")
    before = store.stat().st_size
    later = NOON + 40 * 86400
    collect(build_dir, told(600, 1, later), store, "--commit", "0", "--keep", "30")
    collect(build_dir, told(601, 1, later + 1000), store, "--commit", "0", "--keep", "30")
    assert {stay["began"] for stay in rows(build_dir, store, "sessions")} == {later, later + 1000}
    assert count(store, "sample") <= 2 and count(store, "address") == 0
    assert store.stat().st_size < before / 3


def test_a_store_that_is_too_large_loses_the_oldest(build_dir, tmp_path):
    store = tmp_path / "store"
    many = b"".join(visit(number % 1000, NOON + number * 1000, 100) for number in range(6000))
    collect(build_dir, many, store, "--sample", "0", "--keep", "0")
    assert store.stat().st_size > 2 << 20
    collect(build_dir, told(2000, 1, NOON + 7_000_000), store, "--commit", "0", "--size", "1", "--keep", "0")
    collect(build_dir, told(2001, 1, NOON + 7_000_000), store, "--commit", "0", "--size", "1", "--keep", "0")
    assert store.stat().st_size <= 1.2 * (1 << 20)
    left = rows(build_dir, store, "sessions", "--limit", "10000")
    assert len(left) > 100 and min(stay["began"] for stay in left) > NOON + 1_000_000


def test_a_full_disk_is_survived(start, build_dir, tmp_path):
    store, path = tmp_path / "store", tmp_path / "socket"
    collect(build_dir, visit(1, NOON, 100), store)
    largest = store.stat().st_size + 4096

    def limit():  # the kernel refuses to let files grow further, as a full disk does
        import resource
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (largest, resource.RLIM_INFINITY))

    program = start([build_dir / "bin/wsm-collector", "--quiet", "--commit", "0", "--sample", "0", "--socket", path,
                     "--store", f"sqlite:{store}"], preexec_fn=limit)
    program.wait_for_socket(path)
    for number in range(200):
        with connect(path) as peer:
            peer.sendall(told(1000 + number, 1, NOON))
    wait(lambda: "kept until it can be written" in program.err.read_text(), "the message")
    subprocess.run(["prlimit", "--pid", str(program.process.pid), "--fsize=unlimited"], check=True)
    wait(lambda: "goes on" in program.err.read_text(), "the recovery")
    assert program.stop() == 0
    assert count(store) == 201


KILLS, PARTS = 200, 4


@pytest.mark.parametrize("part", range(PARTS))
def test_a_power_cut_at_any_moment_costs_no_more_than_the_last_batch(build_dir, tmp_path, part):
    """Killed before a call that changes a file, at 200 different places of the run. Then the file opens, is sound, holds the
    first part of what was sent, and takes the rest."""
    if "WSMD_SANITIZE:BOOL=ON" in (build_dir / "CMakeCache.txt").read_text(encoding="utf-8"):
        pytest.skip("the sanitizers want to be the first library of a program")
    visits = [visit(number, NOON + number * 1000, 100) for number in range(60)]
    images = b"".join(visits)

    def environment(**more):
        return {**os.environ, "LD_PRELOAD": str(build_dir / "tests/libkill_at.so"), **more}

    collect(build_dir, images, tmp_path / "whole", "--queue", "4", "--commit", "0",
            env=environment(KILL_COUNT=str(tmp_path / "calls")))
    calls = int((tmp_path / "calls").read_text())
    assert calls > 50 and count(tmp_path / "whole") == 60

    def cut(number):
        store = tmp_path / f"store{number:03}"
        total = calls
        while True:
            at = 1 + number * (total - 1) // KILLS
            died = collect(build_dir, images, store, "--queue", "4", "--commit", "0",
                           env=environment(KILL_AT=str(at), KILL_COUNT=str(tmp_path / f"calls{number}")))
            if died.returncode == -signal.SIGKILL:
                break
            # Batches were larger than in the run that was counted, so there were fewer calls: once more, by their number.
            assert died.returncode == 0, died.stderr
            total = min(int((tmp_path / f"calls{number}").read_text()), total - 1)
            for file in tmp_path.glob(f"store{number:03}*"):
                file.unlink()
        kept = 0
        if store.exists():
            done = collect(build_dir, b"", store)
            assert (done.returncode, done.stderr) == (0, b""), f"killed at call {at}"
            with sqlite3.connect(store) as db:
                assert db.execute("PRAGMA integrity_check").fetchone() == ("ok",)
                stays = db.execute("SELECT mac, state FROM stay ORDER BY id").fetchall()
            kept = len(stays)
            assert [row[0] for row in stays] == [mac(number) for number in range(kept)]
            assert all(state == 3 for _, state in stays[:-1])
        done = collect(build_dir, b"".join(visits[max(kept - 1, 0):]), store)
        assert done.returncode == 0 and count(store) >= 60
        for file in tmp_path.glob(f"store{number:03}*"):
            file.unlink()

    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        assert len(list(pool.map(cut, range(part, KILLS, PARTS)))) == KILLS / PARTS
