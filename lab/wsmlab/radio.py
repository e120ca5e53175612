"""./demo --radio: an access point with real software on simulated radios, in a virtual machine, with clients that arrive and leave.

play() is the part outside, main() the part in the machine.
"""

import argparse
import collections
import json
import math
import os
import pathlib
import random
import signal
import subprocess
import sys
import threading
import time

from .air import Air
from .air_clients import PATIENCE, Silence
from .happenings import KINDS, ended_with
from .lab import BusError, BusWatch
from .space import Done, Follower, Printed, Timeout

VM = pathlib.Path(__file__).resolve().parents[1] / "vm"
NAMES = ("anna", "ben", "chiara", "dario", "elif", "farid", "greta", "hugo", "ines", "jan", "kiran", "lena")
A_DAY = 86400
PLACES = ("wlan0", "wlan1", "wlan1-open", "wlan1-own")
PAUSE_S = (1, 5)  # between what one client does and what the next does


def play(options, has_view):
    """Replaces this process by the machine."""
    words = ["python3", "-m", "wsmlab.radio", "--build-dir", str(pathlib.Path(options.build_dir).resolve()),
             "--stations", str(options.stations), "--seed", str(options.seed)]
    if options.seconds is not None:
        words += ["--seconds", str(options.seconds)]
    if has_view:
        words += ["--view"]
    print("starting a virtual machine, and all that an access point needs in it: a minute", flush=True)
    os.execv(VM, [str(VM), "--time", str(A_DAY), "--empty", "/tmp", "--empty", "/etc/config", *(["--terminal"] if has_view else []),
                  "env", f"PYTHONPATH={VM.parent}", *(["NO_COLOR=1"] if os.environ.get("NO_COLOR") else []), *words])


class Started:
    """A program of this machine and its output."""

    def __init__(self, name, argv):
        self.out = Printed(name)
        self._process = subprocess.Popen([str(word) for word in argv], stdin=subprocess.DEVNULL, stdout=self.out.fd, stderr=self.out.fd)

    def text(self):
        return self.out.text()

    def follow(self):
        return Follower(self.out)

    def stop(self):
        self._process.terminate()
        self._process.wait(20)


class AirProcess:
    """A program of an Air, for those who know a Lab's."""

    def __init__(self, air, name):
        self._air, self._name = air, name
        self.status = None

    @property
    def running(self):
        return self.status is None and self._air.running[self._name].poll() is None

    def stop(self):
        self.status = self._air.stop(self._name)

    def kill(self):
        self.status = self._air.stop(self._name, signal.SIGKILL)


class AirLab:
    """An Air with a Lab's interface: reports, stations, bus, and the daemon with its log."""

    root = pathlib.Path("/")

    def __init__(self, air):
        self._air = air
        self.reports, self.online = air.reports, air.daemon_list
        self._daemon = AirProcess(air, "wsmd")

    def process(self, name):
        return self._daemon if name == "wsmd" else None

    def start_daemon(self, environment=None):
        self._air.start_daemon()
        self._daemon = AirProcess(self._air, "wsmd")

    def stations(self):
        """The kernel's stations, in the words of the driver simulator."""
        return [{"mac": mac, "ifname": self._air.network_of(interface), "rx_bytes": int(members["rx bytes"]),
                 "tx_bytes": int(members["tx bytes"])} for mac, (interface, members) in self._air.kernel_list().items()]

    @staticmethod
    def start(name, argv):
        return Started(name, argv)

    @staticmethod
    def run(argv, check=True, timeout=60):
        ended = subprocess.run(argv, capture_output=True, text=True, errors="replace", timeout=timeout, check=check)
        return Done(argv, ended.returncode, ended.stdout, ended.stderr)

    def bus(self, command, *arguments, timeout=20):
        words = [json.dumps(word) if isinstance(word, dict) else str(word) for word in arguments]
        try:
            done = self.run(["ubus", "-S", command, *words], check=False, timeout=timeout)
        except subprocess.TimeoutExpired as error:
            raise Timeout(str(error)) from error
        if done.status != 0:
            raise BusError(done)
        return json.loads(done.stdout) if command == "call" and done.stdout.strip() else None

    @staticmethod
    def wait(predicate, timeout, what):
        end = time.monotonic() + max(6 * timeout, PATIENCE)  # this machine is slower than a real one
        while not (value := predicate()):
            if time.monotonic() > end:
                raise Timeout(f"waited for {what}")
            time.sleep(0.05)
        return value

    def watch_bus(self):
        return BusWatch(self)

    @staticmethod
    def log_lines():
        path = pathlib.Path("/tmp/sta.log")
        return path.read_text(errors="replace").splitlines() if path.exists() else []

    def logged(self, text):
        return sum(text in line for line in self.log_lines())


class People(threading.Thread):
    """The clients, which arrive, stay, change the network, and leave, one after the other."""

    def __init__(self, clients, seed):
        super().__init__(name="people", daemon=True)
        self._clients, self._random, self._over = clients, random.Random(seed), threading.Event()

    def run(self):
        for client in self._clients:
            self._try(client, self._random.choice(PLACES))
        while not self._over.wait(self._random.uniform(*PAUSE_S)):
            client = self._random.choice(self._clients)
            self._try(client, self._random.choice([place for place in (*PLACES, None) if place != client.network]))

    def _try(self, client, place):
        if self._over.is_set():
            return
        try:
            client.be_at(place)
            if place in PLACES[:3]:
                client.get_address()
        except (Silence, AssertionError, subprocess.TimeoutExpired):
            client.leave()  # a slow machine sometimes loses one; it joins again later

    def stop(self):
        self._over.set()
        self.join(60)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build-dir", required=True)
    parser.add_argument("--stations", type=int)
    parser.add_argument("--seed", type=int)
    parser.add_argument("--seconds", type=float)
    parser.add_argument("--view", action="store_true")
    options = parser.parse_args()
    from .demo import run_live, run_plain  # pylint: disable=import-outside-toplevel # which imports this
    os.environ["PATH"] = f"{options.build_dir}/bin:{os.environ['PATH']}"
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    counts = collections.Counter()

    def count(item):
        if getattr(item, "source", None) == "report":
            counts[KINDS.get(item.values["log_type"], "other")] += 1

    folder = pathlib.Path("/tmp/radio-demo")
    folder.mkdir()
    with Air(options.build_dir, folder) as air:
        air.start(clients=options.stations)
        lab = AirLab(air)
        people = People([air.client(name) for name in NAMES[:options.stations]], options.seed)
        print(f"access point up: {', '.join(air.networks())}; {options.stations} clients, seed {options.seed}", flush=True)
        end = time.monotonic() + options.seconds if options.seconds is not None else math.inf
        try:
            (run_live if options.view else run_plain)(lab, people.start, end, count)
        except KeyboardInterrupt:
            pass
        people.stop()
        air.agree(*(client for client in air.clients if client.network))
        online = len(air.daemon_list())
        status = air.stop("wsmd", signal.SIGINT)
    shown = ", ".join(f"{counts[kind]} {kind}" for kind in KINDS.values())
    print(f"{sum(counts.values())} reports ({shown})")
    print(f"{online} stations at the end, as kernel and hostapd have them; {ended_with(status)}")


if __name__ == "__main__":
    sys.exit(main())
