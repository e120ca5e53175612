"""How fast a fleet's reports reach the store, and what they cost: docs/fleet.md has the figures of one run."""

import os
import pathlib
import threading
import time

SECONDS = 75
BACKLOG = {"access_points": 100, "stations": 20, "seconds": 450, "period": 30, "speed": 0, "connections": 2}


def drained(whole, collectors):
    """Reports per second out of a full queue into the store."""
    whole.collector().stop()  # the queue is there
    fleet = whole.fleet(whole.cluster.nodes[0], **BACKLOG)
    assert fleet.process.wait(300) == 0
    sent, published = whole.sent(), fleet.lines()[-1]
    begun = time.monotonic()
    for _ in range(collectors):
        whole.collector("--prefetch", "5000")
    whole.wait_until_all_is_stored()
    took = time.monotonic() - begun
    print(f"\n{collectors} collector(s): {sent} reports out of the queue into the database in {took:.1f} s: {sent / took:.0f} per second")
    print(f"published alone: {published}")
    return sent


def copied_alone(whole, reports):
    """The floor: the same rows by one COPY into a table with the same indexes, without anything else."""
    rows = whole.postgres.folder / "rows"
    whole.psql(f"COPY (SELECT * FROM report) TO '{rows}' (FORMAT binary)")
    whole.psql("CREATE TABLE copied (LIKE report INCLUDING ALL)")
    begun = time.monotonic()
    whole.psql(f"COPY copied FROM '{rows}' (FORMAT binary)")
    took = time.monotonic() - begun
    assert int(whole.psql("SELECT count(*) FROM copied")[0][0]) == reports
    whole.psql("DROP TABLE copied")
    print(f"COPY alone: {reports / took:.0f} per second")


def size_of_what_is_stored(whole, reports):
    def megabytes(like):
        return int(whole.psql("SELECT coalesce(sum(pg_total_relation_size(oid)), 0) FROM pg_class WHERE relkind = 'r' AND "
                              f"relnamespace = current_schema()::regnamespace AND relname LIKE '{like}'")[0][0]) / 1e6
    whole.psql("VACUUM FULL")
    rows = {name: int(whole.psql(f"SELECT count(*) FROM {name}")[0][0]) for name in ("report", "sample", "stay", "event")}
    print(f"{rows}; megabytes with indexes: reports {megabytes('report%'):.1f}, samples {megabytes('sample%'):.1f}, all {megabytes('%'):.1f}: "
          f"{megabytes('%') * 1e6 / reports:.0f} bytes per report")


def test_one_collector(whole):
    reports = drained(whole, 1)
    copied_alone(whole, reports)
    size_of_what_is_stored(whole, reports)
    whole.end_and_compare("one collector")


def test_two_collectors(whole):
    drained(whole, 2)
    whole.end_and_compare("two collectors")


def test_a_steady_load_of_200_access_points_with_50_stations_each(whole):
    """Each station is reported once a minute."""
    both = [whole.collector(), whole.collector()]
    fleet = whole.fleet(whole.cluster.nodes[0], access_points=200, stations=50, period=60, seconds=SECONDS)
    samples, end = [], threading.Event()

    def look():
        while not end.wait(0.2):
            samples.append((time.monotonic(), whole.sent(), whole.stored()))
    watcher = threading.Thread(target=look)
    watcher.start()
    try:
        assert fleet.process.wait(600) == 0
        whole.wait_until_all_is_stored()
    finally:
        end.set()
        watcher.join()
    lags = []
    for at, _, stored in samples:
        sent_at = next((then for then, sent, _ in samples if sent >= stored and sent > 0), at)
        lags.append(at - sent_at if stored else 0)
    # How long the store's newest report had been on its way at each look; a look is a fifth of a second.
    lags = sorted(lags[len(lags) // 4:])
    ticks = os.sysconf("SC_CLK_TCK")
    seconds = [sum(map(int, pathlib.Path(f"/proc/{one.process.pid}/stat").read_text().rsplit(")", 1)[1].split()[11:13])) / ticks
               for one in both]
    print(f"\nsteady: {whole.sent()} reports in {SECONDS} s; lag median {lags[len(lags) // 2]:.2f} s, 95 % {lags[len(lags) * 95 // 100]:.2f} s, "
          f"most {lags[-1]:.2f} s; processor time of the collectors {seconds[0]:.1f} s and {seconds[1]:.1f} s")
    whole.end_and_compare("steady load")
