"""Processor time, wake-ups and private memory of the daemon, with and without arrivals and departures."""

import re
import sys
import time

from builds import ROOT

sys.path.insert(0, str(ROOT / "lab"))

QUIET = {"debug": "config module 'main'\n\toption level '3'\n"}
SIZES = (128, 512, 2048)
PERIOD = 60  # seconds: every timer of the daemon is due a whole number of times


def of_daemon(lab, name):
    return lab.run(["cat", f"/proc/{lab.daemon.pid}/{name}"]).stdout


def private_kib(lab):
    text = of_daemon(lab, "smaps_rollup")
    return sum(int(line.split()[1]) for line in text.splitlines() if line.startswith("Private_"))


def spent_by_daemon(lab, seconds, each_second=lambda: None):
    """Wake-ups and processor milliseconds of the daemon per second."""
    def read():
        switches = re.search(r"^voluntary_ctxt_switches:\s+(\d+)", of_daemon(lab, "status"), re.MULTILINE)
        return int(switches.group(1)), int(of_daemon(lab, "schedstat").split()[0])
    before, start = read(), time.monotonic()
    for second in range(1, seconds + 1):
        each_second()
        time.sleep(max(0.0, start + second - time.monotonic()))
    after, spent = read(), time.monotonic() - start
    return (after[0] - before[0]) / spent, (after[1] - before[1]) / 1e6 / spent


def settle(lab, count):
    """Adds `count` people, and waits until all of them are online. Their time passes only with pass_second."""
    lab.start_ubusd()
    lab.start_apsim("--tick", "0")
    lab.start_collector()
    lab.start_daemon(wait=False)
    lab.run(["ubus", "-t", "20", "wait_for", "sta"])
    time.sleep(2)
    lab.apsim(f"population n={count} seed=7")
    for _ in range(12):
        pass_second(lab)
        time.sleep(1)
    asked = {"get_all_sta_status": "", "get_sta_count": "all"}
    lab.wait(lambda: lab.bus("call", "sta", "get", asked)["count"] >= 0.95 * count, 60, "the people")
    time.sleep(12)


def pass_second(lab):
    """Events until now."""
    return int(lab.apsim("pass seconds=1").rpartition("events=")[2])


def coming_and_going(build, sizes=SIZES):
    """Figures for each number of people: first with changes, then with their time stopped."""
    from wsmlab import Lab  # pylint: disable=import-outside-toplevel
    figures = {}
    for count in sizes:
        with Lab(build, config=QUIET, room_for=2 * count) as lab:
            settle(lab, count)
            before = last = pass_second(lab)

            def live():
                nonlocal last
                last = pass_second(lab)  # pylint: disable=cell-var-from-loop
            for kind, each_second in (("moving", live), ("resting", lambda: None)):
                wakeups, cpu = spent_by_daemon(lab, PERIOD, each_second)
                figures[f"{kind}_cpu_percent/{count}"] = cpu / 10
                figures[f"{kind}_cpu_seconds_per_station_hour/{count}"] = cpu * 3.6 / count
                figures[f"{kind}_wakeups_per_second/{count}"] = wakeups
                figures[f"{kind}_private_kib/{count}"] = float(private_kib(lab))
                time.sleep(10)  # until the work of the last second is done
            figures[f"moving_events_per_second/{count}"] = (last - before) / PERIOD
    if len(sizes) > 1:
        few, many = min(sizes), max(sizes)
        more = figures[f"moving_private_kib/{many}"] - figures[f"moving_private_kib/{few}"]
        figures["moving_private_bytes_per_station"] = more * 1024 / (many - few)
    return figures


def floors_of_people(figures, works):
    """What the least program would need for the same, put together of the floors of single works: the system calls of each event,
    each pass, each report of the period, and each reading of the lease file; the file's writing for who leaves is left out."""
    floors = {}
    for name in figures:
        if not name.startswith("moving_events_per_second/"):
            continue
        stations = name.partition("/")[2]
        resting = (works[f"five_second_pass_floor/{stations}"] / 5 + works[f"log_up_floor/{stations}"] / 60) / 1e9
        moving = resting + (figures[name] * works["association_event_floor"] +
                            works[f"lease_refresh_floor/{stations}"] / 10) / 1e9
        for kind, seconds in (("moving", moving), ("resting", resting)):
            floors[f"{kind}_cpu_percent_floor/{stations}"] = 100 * seconds
            floors[f"{kind}_cpu_seconds_per_station_hour_floor/{stations}"] = 3600 * seconds / int(stations)
    return floors


if __name__ == "__main__":
    # For another build than that of bench/run, for example one from before a change.
    for name, value in coming_and_going(sys.argv[1], tuple(int(size) for size in sys.argv[2:]) or SIZES).items():
        print(f"{name:44} {value:.4g}", flush=True)
