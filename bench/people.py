"""Processor time, wake-ups and private memory of the daemon, with and without arrivals and departures."""

import re
import sys
import time

from builds import BUILD, ROOT

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


def settle(lab, count, start=lambda lab: lab.start_daemon(wait=False)):
    """Adds `count` people, and waits until all of them are online. Their time passes only with pass_second."""
    lab.start_ubusd()
    lab.start_apsim("--tick", "0")
    lab.start_collector()
    start(lab)
    lab.run(["ubus", "-t", "20", "wait_for", "sta"])
    time.sleep(2)
    lab.apsim(f"population n={count} seed=7")
    for _ in range(12):
        pass_second(lab)
        time.sleep(1)
    # Each pass writes how many are online.
    lab.wait(lambda: int(lab.run(["cat", "/tmp/sta_devc.info"]).stdout.split()[-1]) >= 0.95 * count, 60, "the people")
    time.sleep(12)


def pass_second(lab):
    """Events until now."""
    return int(lab.apsim("pass seconds=1").rpartition("events=")[2])


def floor_instead(build):
    """Starts the floor in the daemon's place: bench/daemon/people_floor.cpp."""
    def start(lab):
        lab.daemon = lab.start("people_floor", [str(build / "bench/people_floor")])
    return start


def coming_and_going(build, sizes=SIZES, floor=None):
    """Figures for each number of people: first with changes, then with their time stopped. `floor`: the build whose floor has the
    same people in the daemon's place; its figures have "_floor" in their names."""
    figures = {}
    for count in sizes:
        figures.update(of_people(build, count))
        if floor:
            of_floor = of_people(build, count, floor_instead(floor))
            figures.update({name.replace("/", "_floor/"): value for name, value in of_floor.items() if "_private_" not in name})
    if len(sizes) > 1:
        few, many = min(sizes), max(sizes)
        more = figures[f"moving_private_kib/{many}"] - figures[f"moving_private_kib/{few}"]
        figures["moving_private_bytes_per_station"] = more * 1024 / (many - few)
    return figures


def of_people(build, count, *start):
    from wsmlab import Lab  # pylint: disable=import-outside-toplevel
    figures = {}
    with Lab(build, config=QUIET, room_for=2 * count) as lab:
        settle(lab, count, *start)
        before = last = pass_second(lab)

        def live():
            nonlocal last
            last = pass_second(lab)
        for kind, each_second in (("moving", live), ("resting", lambda: None)):
            reports = len(lab.reports())
            wakeups, cpu = spent_by_daemon(lab, PERIOD, each_second)
            figures[f"{kind}_cpu_percent/{count}"] = cpu / 10
            figures[f"{kind}_reports_per_second/{count}"] = (len(lab.reports()) - reports) / PERIOD
            figures[f"{kind}_cpu_seconds_per_station_hour/{count}"] = cpu * 3.6 / count
            figures[f"{kind}_wakeups_per_second/{count}"] = wakeups
            figures[f"{kind}_private_kib/{count}"] = float(private_kib(lab))
            time.sleep(10)  # until the work of the last second is done
        figures[f"moving_events_per_second/{count}"] = (last - before) / PERIOD
    return figures


if __name__ == "__main__":
    # For another build than that of bench/run, for example one from before a change; the floor is that of bench/run.
    for name, value in coming_and_going(sys.argv[1], tuple(int(size) for size in sys.argv[2:]) or SIZES, BUILD).items():
        print(f"{name:44} {value:.4g}", flush=True)
