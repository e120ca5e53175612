"""What the stories of the radio tests share."""

from wsmlab.air import wait

NETWORK_ENDED, DEAUTH_RECEIVED, DISASSOC_RECEIVED, DEAUTH_SENT, DISASSOC_SENT = 303, 307, 308, 309, 310
STORIES = []


def story(anna=None, ben=None):
    """Marks a story. It gets the access point and two clients, which are at these networks at its beginning; None: away."""
    def keep(function):
        function.places = (anna, ben)
        STORIES.append(function)
        return function
    return keep


def play(one, air):
    clients = [air.client("anna"), air.client("ben")]
    for client, place in zip(clients, one.places):
        client.be_at(place)
    air.agree(*(client for client in clients if client.network))
    one(air, *clients)


def off(air, since, client, reason):
    """Waits for the report that the client has left."""
    report = air.wait_for_report(since, mac=client.mac, log_type=2)
    assert report["reason_code"] == reason, report
    return report


def roam(air, client, to):
    since = len(client.air.reports())
    client.go_over(to)
    arrival = air.wait_for_report(since, mac=client.mac, log_type=1, ifname=to)
    assert arrival["is_reassoc"] == 1, arrival
    departure = air.wait_for_report(since, mac=client.mac, log_type=4)
    assert departure["ifname"] != to, departure
    air.agree(*(one for one in air.clients if one.network))
    # The old network's entry ends two seconds later: that is no departure.
    wait(lambda: air.hostapd(departure["ifname"], "sta", client.mac, check=False).startswith("FAIL"), "the old entry's end")
    assert not [one for one in air.reports()[since:] if one["mac"] == client.mac and one["log_type"] == 2]
