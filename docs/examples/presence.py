#!/usr/bin/env python3
"""Prints arrivals, roams and departures:    wsm-collector --json | docs/examples/presence.py"""
import json
import sys
import time

CAME, LEFT, REFRESHED, ROAMED = 1, 2, 3, 4
names = {}  # MAC -> what to call it

for line in sys.stdin:
    report = json.loads(line)
    mac = report["mac"]
    name = names.setdefault(mac, mac)
    received = report["received"]  # a report of a raw file has no time
    at = "?" if received is None else time.strftime("%H:%M:%S", time.localtime(received))
    if report["log_type"] == CAME:
        print(f"{at} {name} came to {report['ssid']!r} on {report['ifname']}, {report['rssi']} dBm", flush=True)
    elif report["log_type"] == ROAMED:
        print(f"{at} {name} leaves {report['ifname']} for another radio", flush=True)
    elif report["log_type"] == LEFT:
        print(f"{at} {name} left: {report['reason']}, after {report['oltime']} s", flush=True)
    elif report["ip"] not in ("", "0.0.0.0"):
        names[mac] = f"{mac} ({report['ip']})"
