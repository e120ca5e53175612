"""A collector that serves HTTP, and a client of it."""

import http.client
import json
import re

from programs import PATIENCE, connect, wait

class Served:
    """A collector that serves, and a client of it."""

    def __init__(self, start, build_dir, folder, options):
        self.path = folder / "socket"
        self.program = start([build_dir / "bin/wsm-collector", "--quiet", "--socket", self.path, *options])
        self.program.wait_for_socket(self.path)
        ports = dict(re.findall(r"(\w+): port (\d+)", self.program.err.read_text()))
        self.port, self.metrics_port = ports.get("http"), ports.get("metrics")

    def send(self, *messages):
        for message in messages:
            with connect(self.path) as peer:
                peer.sendall(message)

    def ask(self, path, method="GET", port=None, **headers):
        """Status, headers and body."""
        one = http.client.HTTPConnection("127.0.0.1", int(port or self.port or self.metrics_port), timeout=PATIENCE)
        one.request(method, path, headers={name.replace("_", "-"): value for name, value in headers.items()})
        answer = one.getresponse()
        body = answer.read()
        one.close()
        return answer.status, answer.headers, body

    def get(self, path, status=200, **headers):
        got, _, body = self.ask(path, **headers)
        assert got == status, body
        return json.loads(body)

    def stations(self, count):
        """The stations, once there are so many."""
        return wait(lambda: len(all_of := self.get("/api/v1/stations")) == count and (all_of,), f"{count} stations")[0]
