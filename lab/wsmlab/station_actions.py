"""What stations do in a scenario, as the driver simulator plays it. Those on radios are in air_actions.py."""

LEFT, OUT_OF_REACH = 307, 300  # the driver's reasons

# Whether the network is named to which the station goes.
VERBS = {"come": True, "roam": True, "leave": False, "vanish": False, "talk": False}


class SimulatedStations:
    def __init__(self, lab, names):
        self._lab = lab
        self._macs = {name: f"02:00:00:00:c1:{number:02x}" for number, name in enumerate(names, 1)}

    def mac(self, name):
        return self._macs[name]

    @staticmethod
    def network(number):
        return f"ath{number}"

    def come(self, name, number):
        self._lab.apsim(f"assoc mac={self.mac(name)} ifname=ath{number} radio={number} ssid=Lobby")

    def roam(self, name, number):
        self._lab.apsim(f"roam mac={self.mac(name)} ifname=ath{number} radio={number}")

    def leave(self, name):
        self._lab.apsim(f"disassoc mac={self.mac(name)} reason={LEFT}")

    def vanish(self, name):
        self._lab.apsim(f"disassoc mac={self.mac(name)} reason={OUT_OF_REACH}")

    def talk(self, name):
        self._lab.apsim(f"set mac={self.mac(name)} rx_bytes=5123456789 tx_bytes=234567")
