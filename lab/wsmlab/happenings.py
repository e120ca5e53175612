"""What happens on the access point, live: reports at the collector, events and notifications on the bus."""

import time

KINDS = {1: "log on", 2: "log off", 3: "log-up", 4: "roamed"}


class Happening:
    """`source`: report, notify or event; `line`: for a person to read; `values`: all that came."""

    def __init__(self, at, source, line, values):
        self.at, self.source, self.line, self.values = at, source, line, values

    def __str__(self):
        return f"{self.at:7.1f} s  {self.source:<7} {self.line}"


class Happenings:
    """Follows a lab on which everything runs. take() returns the new ones."""

    def __init__(self, lab):
        self._lab = lab
        self._start = time.monotonic()
        self._watch = lab.watch_bus().subscribe()
        self._taken = {"report": 0, "notify": 0, "event": 0}

    def restarted(self, program):
        """To be called when one of the programs has been started again."""
        if program == "collector":
            self._taken["report"] = 0
        elif program == "daemon":
            self._watch.stop()
            self._watch = self._lab.watch_bus().subscribe()
            self._taken.update(notify=0, event=0)

    def stop(self):
        self._watch.stop()

    @property
    def now(self):
        return time.monotonic() - self._start

    def take(self):
        found = []
        for source, values, describe in (("report", self._lab.reports(), _report),
                                         ("notify", self._watch.notifications, _notification),
                                         ("event", self._watch.events, _event)):
            for one in values[self._taken[source]:]:
                found.append(Happening(self.now, source, describe(one), one))
            self._taken[source] = len(values)
        return found


def amount(number):
    """A count of bytes, short."""
    for unit in ("B", "kB", "MB", "GB"):
        if number < 1000 or unit == "GB":
            return f"{number:.0f} {unit}" if unit == "B" else f"{number:.1f} {unit}"
        number /= 1000
    return ""


def _report(report):
    kind = KINDS.get(report["log_type"], f"kind {report['log_type']}")
    line = f"{kind:<8} {report['mac']}  {report['ifname']:<6} {report['ssid']!r}  {report['rssi']} dBm"
    if report["ip"]:
        line += f"  {report['ip']}"
    if report["log_type"] == 2:
        line += f"  {report['reason']}"
    if report["wifi_up"] or report["wifi_down"]:
        line += f"  up {amount(report['wifi_up'])} down {amount(report['wifi_down'])}"
    return line


def _notification(members):
    if "notify_sta_status" in members:
        kind = KINDS.get(members["log_type"], f"kind {members['log_type']}")
        return f"{kind:<8} {members['mac']}  {members.get('name', '')}"
    return " ".join(f"{name}={value}" for name, value in members.items())


def _event(event):
    name, members = event
    return f"{name:<8} " + " ".join(f"{key}={value}" for key, value in members.items())


def ended_with(status):
    """The last line about the daemon. 1 is its status after an ordinary stop."""
    return "the daemon ended cleanly (status 1, as it should)" if status == 1 else f"the daemon FAILED with status {status}"
