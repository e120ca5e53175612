"""behaviour.py on the simulator."""

import pytest

from behaviour import BEHAVIOURS, LEFT


class SimulatedPoint:
    def __init__(self, lab):
        self.lab = lab
        self.reports, self.daemon, self.call = lab.reports, lab.online, lambda *words: lab.bus("call", *words)

    @staticmethod
    def mac(client):
        return f"02:00:00:00:00:{sum(client.encode()) % 256:02x}"

    @staticmethod
    def network(number):
        return f"ath{number}"

    def come(self, client, number):
        self.lab.apsim(f"assoc mac={self.mac(client)} ifname=ath{number} radio={number} ssid=Lobby")

    def roam(self, client, number):
        self.lab.apsim(f"roam mac={self.mac(client)} ifname=ath{number} radio={number}")

    def leave(self, client):
        self.lab.apsim(f"disassoc mac={self.mac(client)} reason={LEFT}")

    def traffic(self, client):
        self.lab.apsim(f"set mac={self.mac(client)} rx_bytes=5123456789 tx_bytes=234567")

    def truth(self):
        return {one["mac"]: (one["ifname"], one["rx_bytes"], one["tx_bytes"]) for one in self.lab.stations()}

    def restart_daemon(self):
        self.lab.daemon.stop()
        self.lab.start_daemon()
        self.lab.wait_for_family()

    def wait(self, predicate, what):
        return self.lab.wait(predicate, 30, what)


@pytest.mark.parametrize("behaviour", BEHAVIOURS, ids=lambda behaviour: behaviour.__name__)
def test_behaviour(running_lab, behaviour):
    behaviour(SimulatedPoint(running_lab))
