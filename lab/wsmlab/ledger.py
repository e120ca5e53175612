"""Compares the reports that are due, by the driver's events, with those that arrived."""

import collections

ONLINE, OFFLINE, PERIOD, ROAMED = 1, 2, 3, 4
_LEAVES_FOR_ANOTHER_AP = 2  # is_reassoc of a disassociation


class Ledger:
    """What a daemon that receives every event must know and report.

    Each settle() compares every station's reports of arrival (log_type 1), departure (2) and roam (4), in order and with
    their interfaces, and checks that stations without events were reported in the log-up (3). Reports that are due while
    the collector is not `hearing` are not expected."""

    def __init__(self):
        self.table = {}             # mac -> (interface, radio): what the daemon's table must be
        self.restored = set()       # of these, read from the backup file and not confirmed since
        self.dropped = set()        # swept out of the table while the driver has them
        self.vanished = {}          # dropped by the driver without an event: mac -> when
        self.hearing = True
        self.counts = collections.Counter()
        self.complaints = []
        self._due = collections.defaultdict(list)
        self._came = collections.defaultdict(list)
        self._reported = set()
        self._touched, self._touched_before = set(), set()
        self._steady = set()        # in the table at the last settlement

    # --- the driver's events, and what the daemon does by itself ---

    def told(self, event):
        """An event of the driver that the daemon has received."""
        mac, place = event["mac"], (event["ifname"], event["radio"])
        self.counts["events"] += 1
        self._touched.add(mac)
        known = self.table.get(mac)
        if event["assoc"] == 1:
            if known and known[1] != place[1]:
                self._is_due(mac, ROAMED, known[0])
            self._is_due(mac, ONLINE, place[0])
            self.table[mac] = place
            self.restored.discard(mac)
            self.dropped.discard(mac)
            self.vanished.pop(mac, None)
        elif event["assoc"] == 0:
            self.dropped.discard(mac)
            if known and known[0] == place[0] and event["is_reassoc"] != _LEAVES_FOR_ANOTHER_AP:
                self._leaves(mac)

    def restarted(self):
        """A new daemon has restored the whole table from the backup file."""
        self.restored = set(self.table)
        self._touched |= self.restored

    def sweep(self):
        """The sweep is due: the daemon drops restored stations that were not confirmed."""
        for mac in self.restored & set(self.table):
            self._leaves(mac)
            self.dropped.add(mac)
        self.restored.clear()

    def retire(self, mac):
        """The daemon is about to retire a station that the driver has not listed for five minutes."""
        del self.vanished[mac]
        self._touched.add(mac)
        self._leaves(mac)

    def _leaves(self, mac):
        ifname, _ = self.table.pop(mac)
        self._touched.add(mac)
        self.restored.discard(mac)
        self.vanished.pop(mac, None)
        self._is_due(mac, OFFLINE, ifname)

    def _is_due(self, mac, log_type, ifname):
        if self.hearing:
            self.counts["due"] += 1
            self._due[mac].append((log_type, ifname))
        else:
            self.counts["unheard"] += 1

    # --- what arrives ---

    def arrived(self, log_type, mac, ifname):
        if log_type == PERIOD:
            self.counts["period reports"] += 1
            self._reported.add(mac)
        else:
            self.counts["received"] += 1
            self._came[mac].append((log_type, ifname))

    def settle(self, period=False):
        """To be called when all events have been handled. `period`: a whole log-up period has passed
        since the last call."""
        for mac in sorted(self._due.keys() | self._came.keys()):
            due, came = self._due[mac], self._came[mac]
            if due == came:
                continue
            missing, surplus = (collections.Counter(due) - collections.Counter(came),
                                collections.Counter(came) - collections.Counter(due))
            self.counts["missing"] += sum(missing.values())
            self.counts["not due"] += sum(surplus.values())
            self.counts["out of order"] += not missing and not surplus
            self.complain(f"{mac}: due {due}, arrived {came}")
        if period and self.hearing:
            steady = self._steady & set(self.table) - self._touched - self._touched_before
            self.counts["period due"] += len(steady)
            if unreported := steady - self._reported:
                self.counts["period missing"] += len(unreported)
                self.complain(f"not reported in the period: {sorted(unreported)}")
        self._due.clear()
        self._came.clear()
        self._reported.clear()
        self._touched, self._touched_before = set(), self._touched
        self._steady = set(self.table)

    def complain(self, text):
        self.complaints.append(text)
