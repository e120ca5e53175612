"""tests/system/behaviour.py on real radios."""

import json
import pathlib
import signal
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "system"))

from behaviour import BEHAVIOURS  # noqa: E402
from story import go_over, story  # noqa: E402
from wsmlab.air import run, wait  # noqa: E402


class RadioPoint:
    def __init__(self, air):
        self.air = air
        self.reports, self.daemon, self.wait = air.reports, air.daemon_list, wait

    def mac(self, client):
        return self.air.client(client).mac

    def network(self, number):
        return self.air.names[number]

    def come(self, client, number):
        self.air.client(client).join("Lobby", self.network(number))

    def roam(self, client, number):
        go_over(self.air.client(client), self.network(number))

    def leave(self, client):
        self.air.client(client).leave()

    def traffic(self, client):
        self.air.client(client).get_address()

    def truth(self):
        return {mac: (interface, int(members["rx bytes"]), int(members["tx bytes"]))
                for mac, (interface, members) in self.air.kernel_list().items()}

    def call(self, name, method, members):
        run(self.air.build_dir / "bin/ubus", "call", name, method, json.dumps(members))

    def restart_daemon(self):
        self.air.stop("wsmd", signal.SIGINT)
        self.air.start_daemon()


def on_radios(behaviour):
    def play(air, anna, ben):
        behaviour(RadioPoint(air))
        # One that was sent away comes back by itself.
        for client in (anna, ben):
            if client.network:
                client.is_at(client.network)
        air.agree(*(client for client in (anna, ben) if client.network))
    play.__name__ = behaviour.__name__
    return play


for one in BEHAVIOURS:
    story()(on_radios(one))
