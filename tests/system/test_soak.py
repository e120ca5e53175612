"""Hours of a crowd's coming and going with faults in between, played in about a minute; and that its bookkeeping finds errors.

The long form is bench/soak."""

from wsmlab.ledger import OFFLINE, ONLINE, PERIOD, ROAMED, Ledger
from wsmlab.soak import Soak

A, B = "02:00:00:00:00:0a", "02:00:00:00:00:0b"


def test_hours_with_every_fault_lose_nothing_and_leave_nothing_behind(open_lab, sanitized):
    # With sanitizers, which keep freed memory, the daemon's size says nothing.
    soak = Soak(open_lab(), stations=300, events=6000, minutes=240, seed=1, memory=not sanitized)
    soak.run()
    assert soak.complaints == [], soak.table()
    assert soak.ledger.counts["events"] >= 6000
    assert soak.ledger.counts["due"] > 5000
    assert all(soak.faults.values())


# --- the bookkeeping ---

def coming(mac, radio=0):
    return {"assoc": 1, "mac": mac, "ifname": f"ath{radio}", "radio": radio, "is_reassoc": 0}


def leaving(mac, radio=0, is_reassoc=0):
    return {**coming(mac, radio), "assoc": 0, "is_reassoc": is_reassoc}


def settled(ledger):
    """Whether it complains, and its counts of errors."""
    ledger.settle()
    counts = {name: count for name, count in ledger.counts.items()
              if count and name in ("missing", "not due", "out of order")}
    return bool(ledger.complaints), counts


def test_coming_roaming_and_leaving_are_due_in_this_order():
    ledger = Ledger()
    for event in (coming(A), coming(A, 1), leaving(A, 0), leaving(A, 1)):
        ledger.told(event)
    assert ledger.table == {}
    for log_type, radio in ((ONLINE, 0), (ROAMED, 0), (ONLINE, 1), (OFFLINE, 1)):
        ledger.arrived(log_type, A, f"ath{radio}")
    assert settled(ledger) == (False, {})
    assert (ledger.counts["due"], ledger.counts["received"]) == (4, 4)


def test_a_station_stays_when_it_roams_away_or_leaves_another_interface():
    ledger = Ledger()
    for event in (coming(A), leaving(A, 1), leaving(A, 0, is_reassoc=2), leaving(B)):
        ledger.told(event)
    ledger.arrived(ONLINE, A, "ath0")
    assert settled(ledger) == (False, {})
    assert ledger.table == {A: ("ath0", 0)}


def test_a_report_that_does_not_arrive_is_missing():
    ledger = Ledger()
    ledger.told(coming(A))
    assert settled(ledger) == (True, {"missing": 1})


def test_a_report_that_arrives_twice_is_not_due():
    ledger = Ledger()
    ledger.told(coming(A))
    ledger.arrived(ONLINE, A, "ath0")
    ledger.arrived(ONLINE, A, "ath0")
    assert settled(ledger) == (True, {"not due": 1})


def test_a_report_with_another_interface_is_one_missing_and_one_not_due():
    ledger = Ledger()
    ledger.told(coming(A))
    ledger.arrived(ONLINE, A, "ath1")
    assert settled(ledger) == (True, {"missing": 1, "not due": 1})


def test_a_leave_before_its_coming_is_out_of_order():
    ledger = Ledger()
    ledger.told(coming(A))
    ledger.told(leaving(A))
    ledger.arrived(OFFLINE, A, "ath0")
    ledger.arrived(ONLINE, A, "ath0")
    assert settled(ledger) == (True, {"out of order": 1})


def test_an_event_without_a_listener_counts_as_no_loss():
    ledger = Ledger()
    ledger.hearing = False
    ledger.told(coming(A))
    assert settled(ledger) == (False, {})
    assert ledger.table == {A: ("ath0", 0)}


def test_only_stations_unconfirmed_since_a_restart_are_swept():
    ledger = Ledger()
    for mac in (A, B):
        ledger.told(coming(mac))
        ledger.arrived(ONLINE, mac, "ath0")
    ledger.restarted()
    ledger.told(coming(B))
    ledger.arrived(ONLINE, B, "ath0")
    ledger.sweep()
    ledger.arrived(OFFLINE, A, "ath0")
    assert settled(ledger) == (False, {})
    assert (set(ledger.table), ledger.dropped) == ({B}, {A})


def test_in_a_whole_period_each_station_without_an_event_must_be_reported():
    ledger = Ledger()
    for mac in (A, B):
        ledger.told(coming(mac))
        ledger.arrived(ONLINE, mac, "ath0")
    ledger.settle()
    ledger.settle(period=True)  # a new station may have come too late for the first
    assert ledger.complaints == []
    ledger.arrived(PERIOD, A, "ath0")
    ledger.settle(period=True)
    assert ledger.complaints == [f"not reported in the period: {[B]}"]
    assert (ledger.counts["period due"], ledger.counts["period missing"]) == (2, 1)
