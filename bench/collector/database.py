#!/usr/bin/python3
"""database.py BUILD [MINUTES] - reports a second into a PostgreSQL of its own, of one collector and of two at once, beside a COPY of the
same rows alone, and what a million of them take there. A minute is 2,048 reports."""

import os
import pathlib
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
for folder in ("collector", "lab", "system"):
    sys.path.insert(0, str(ROOT / "tests" / folder))

import postgres  # noqa: E402  pylint: disable=wrong-import-position

STATIONS = 2048


def main():
    build, minutes = pathlib.Path(sys.argv[1]), sys.argv[2] if len(sys.argv) > 2 else "50"
    program = build / "bench/collector_postgres"
    with postgres.a_postgres() as server:
        def run(schema, *words):
            return subprocess.Popen([program, *words], env={**os.environ, "WSM_BENCH_POSTGRES": server.url(schema=schema)})

        for schema, collectors in (("floor_only", 0), ("one", 1), ("two", 2)):
            server.psql(f"CREATE SCHEMA {schema}")
            server.psql("CHECKPOINT")
            begin = time.monotonic()
            running = [run(schema, "store", minutes, str(n), str(collectors)) for n in range(collectors)] or [run(schema, "floor", minutes)]
            assert [one.wait() for one in running] == [0] * len(running)
            if collectors > 1:
                print(f"two at once: {STATIONS * int(minutes) / (time.monotonic() - begin):.0f} reports a second, their starts included")
        count = int(server.psql("SELECT count(*) FROM report", "one")[0][0])
        assert count == STATIONS * int(minutes) == int(server.psql("SELECT count(*) FROM report", "two")[0][0])
        sizes = {row[0]: int(row[1]) for row in server.psql(
            "SELECT coalesce(substring(relname from '^(report|sample)_'), relname), sum(pg_total_relation_size(oid)) FROM pg_class"
            " WHERE relkind = 'r' AND relnamespace = 'one'::regnamespace GROUP BY 1 ORDER BY 2 DESC", "one")}
        print("MiB of a million reports:", ", ".join(f"{name} {size / count * 1e6 / 2**20:.0f}" for name, size in sizes.items() if size > 10**5))


if __name__ == "__main__":
    main()
