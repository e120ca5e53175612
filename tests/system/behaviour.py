"""What an access point does, whatever its driver: each function is played on a point of its own kind, the simulator in the
usual run (test_behaviour.py) and real radios in the virtual machine (tests/radio).

A point has two networks of one name, 0 at 2.4 GHz and 1 at 5 GHz, and clients, who go by their names:

    mac(client)  network(number)           its address; the interface's name
    come, roam(client, number)             it joins; it changes to this network without leaving first
    leave(client)                          it leaves and says so (reason LEFT)
    traffic(client)                        it has sent and received something
    truth()                                the driver's stations: MAC -> (interface, bytes from it, bytes to it)
    daemon()                               the daemon's: MAC -> members of `get`
    reports()                              all of them so far
    call(object, method, members)          on the bus
    restart_daemon()
    wait(predicate, what)
"""

LEFT, SENT_AWAY = 307, (309, 310)
BEHAVIOURS = []


def behaviour(function):
    BEHAVIOURS.append(function)
    return function


def first(point, since, **members):
    """Waits for a report with these members; the first `since` reports do not count."""
    def found():
        return next((one for one in point.reports()[since:] if all(one[name] == value for name, value in members.items())), None)
    return point.wait(found, f"a report with {members}")


def agree(point, **places):
    """Daemon and driver have these clients, at these networks, and no others."""
    wanted = {point.mac(client): point.network(number) for client, number in places.items()}
    point.wait(lambda: {mac: one["ssid_ifname"] for mac, one in point.daemon().items()} == wanted
               and {mac: interface for mac, (interface, *_) in point.truth().items()} == wanted, f"{wanted} at both")


def settle(point, **places):
    """The same, and the daemon's next pass has completed them: from then on they survive its restart."""
    agree(point, **places)
    point.wait(lambda: all(one["status"] == 1 for one in point.daemon().values()), "the daemon's pass")


def kinds(point, since, client):
    """The kinds of the reports of arrivals, departures and roams, in their order."""
    return [one["log_type"] for one in point.reports()[since:] if one["mac"] == point.mac(client) and one["log_type"] != 3]


@behaviour
def a_client_that_comes_is_reported_and_listed(point):
    since = len(point.reports())
    point.come("anna", 1)
    report = first(point, since, mac=point.mac("anna"), log_type=1)
    assert (report["ssid"], report["ifname"], report["radio_id"], report["is_reassoc"]) == ("Lobby", point.network(1), 1, 0)
    agree(point, anna=1)
    assert point.daemon()[point.mac("anna")]["status"] in (1, 2)
    assert kinds(point, since, "anna") == [1]


@behaviour
def a_client_that_roams_is_at_one_network_at_a_time(point):
    point.come("anna", 1)
    agree(point, anna=1)
    for number, other in ((0, 1), (1, 0)):
        since = len(point.reports())
        point.roam("anna", number)
        arrival = first(point, since, mac=point.mac("anna"), log_type=1)
        departure = first(point, since, mac=point.mac("anna"), log_type=4)
        assert (arrival["ifname"], arrival["radio_id"], arrival["is_reassoc"]) == (point.network(number), number, 1)
        assert departure["ifname"] == point.network(other)
        agree(point, anna=number)
        assert sorted(kinds(point, since, "anna")) == [1, 4]


@behaviour
def a_client_that_leaves_is_gone_with_its_reason(point):
    point.come("anna", 0)
    point.come("ben", 1)
    agree(point, anna=0, ben=1)
    since = len(point.reports())
    point.leave("anna")
    report = first(point, since, mac=point.mac("anna"), log_type=2)
    assert (report["reason_code"], report["ifname"]) == (LEFT, point.network(0))
    agree(point, ben=1)
    assert kinds(point, since, "anna") == [2] and kinds(point, since, "ben") == []


@behaviour
def a_client_that_is_sent_away_is_gone_from_the_driver(point):
    point.come("anna", 1)
    agree(point, anna=1)
    since = len(point.reports())
    point.call("sta", "delete", {"mac": point.mac("anna"), "radio": 0})  # where it is not
    point.call("sta", "delete", {"mac": point.mac("anna"), "radio": 1})
    report = first(point, since, mac=point.mac("anna"), log_type=2)
    assert report["reason_code"] in SENT_AWAY and report["ifname"] == point.network(1)


@behaviour
def a_daemon_that_starts_anew_has_who_is_there(point):
    point.come("anna", 0)
    point.come("ben", 1)
    settle(point, anna=0, ben=1)
    since = len(point.reports())
    point.restart_daemon()
    agree(point, anna=0, ben=1)
    assert 2 not in kinds(point, since, "anna") + kinds(point, since, "ben"), "nobody has left"
    point.leave("ben")
    first(point, since, mac=point.mac("ben"), log_type=2)
    agree(point, anna=0)


@behaviour
def a_daemon_that_starts_anew_has_the_drivers_figures(point):
    point.come("anna", 1)
    settle(point, anna=1)
    point.restart_daemon()
    point.traffic("anna")
    mac = point.mac("anna")

    def same():
        _, *low = point.truth()[mac]
        point.call("sta", "set", {"set_update_log_period": 60})  # which asks the driver
        told = point.daemon()[mac]
        _, *high = point.truth()[mac]
        counted = (told["wifi_up_cnt"], told["wifi_down_cnt"])
        return all(0 < before <= one <= after for before, one, after in zip(low, counted, high))
    point.wait(same, "the driver's figures")
    agree(point, anna=1)
