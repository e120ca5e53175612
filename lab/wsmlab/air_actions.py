"""What stations do in a scenario, as clients with real radios play it: SimulatedStations, on an Air."""

OUT_OF_REACH, IN_REACH = 2, 1  # radios hear those of their own group


class AirStations:
    def __init__(self, air):
        self._air = air

    def mac(self, name):
        return self._air.client(name).mac

    def network(self, number):
        return self._air.names[number]

    def come(self, name, number):
        self._air.client(name).join("Lobby", self.network(number))

    def roam(self, name, number):
        self._air.client(name).go_over(self.network(number))

    def leave(self, name):
        self._air.client(name).leave()

    def vanish(self, name):
        self._air.client(name).group(OUT_OF_REACH)

    def talk(self, name):
        self._air.client(name).get_address()

    def end(self):
        """Everybody is in reach and away again, also who has come back after it was sent away."""
        for client in self._air.clients:
            client.leave()
            client.group(IN_REACH)
