#!/usr/bin/python3
"""Processor time of associations and of the daemon's requests on simulated radios, in the virtual machine, compared with floors:

    lab/vm --time 900 --out FOLDER --empty /tmp --empty /etc/config env PYTHONPATH=lab python3 bench/drivers/on_radios.py build

hostapd's own time is the cost of an association itself; `iw event` receives the same netlink messages and prints
them; `iw station dump` sends the request that the bridge sends for the daemon. The processor is emulated, so only the ratios
mean something.
"""

import json
import os
import pathlib
import resource
import sys

from wsmlab.air import Air, run

ASSOCIATIONS, REQUESTS = 15, 20


def spent_ms(process):
    """On the processor, with all of its threads."""
    folder = pathlib.Path(f"/proc/{process.pid}/task")
    return sum(int((task / "schedstat").read_text().split()[0]) for task in folder.iterdir()) / 1e6


def main():
    out = pathlib.Path(os.environ["OUT"])
    with Air(pathlib.Path(sys.argv[1]).resolve(), out) as air:
        air.start(clients=2)
        anna, ben = air.client("anna"), air.client("ben")
        anna.be_at("wlan1")
        ben.be_at("wlan0")
        air.agree(anna, ben)
        air.spawn("iw", "iw", "event")
        watched = {name: air.running[name] for name in ("wsm-bridge", "wsmd", "hostapd", "iw")}

        def measure(times, deed):
            """Milliseconds of each program for one time."""
            before = {name: spent_ms(process) for name, process in watched.items()}
            for _ in range(times):
                deed()
            return {name: round((spent_ms(process) - before[name]) / times, 2) for name, process in watched.items()}

        def come_and_go():
            since = len(air.reports())
            ben.leave()
            air.wait_for_report(since, mac=ben.mac, log_type=2)
            ben.be_at("wlan0")
            air.wait_for_report(since, mac=ben.mac, log_type=1)
        figures = {"association and departure": measure(ASSOCIATIONS, come_and_go), "request": measure(REQUESTS, air.log_up)}
        air.agree(anna, ben)
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        for _ in range(REQUESTS):
            for network in air.networks():
                run("iw", "dev", network, "station", "dump")
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        figures["iw station dump of each network"] = round(
            1000 * (after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime) / REQUESTS, 2)
        (out / "figures.json").write_text(json.dumps(figures, indent=1) + "\n")
        print(json.dumps(figures, indent=1))


if __name__ == "__main__":
    main()
