"""A real MQTT broker on loopback, with programs that publish to it and a subscriber."""

import json
import os
import random
import re
import shutil
import signal
import socket
import subprocess

import pytest

from programs import connect, wait

needs_mosquitto = pytest.mark.skipif(
    not (shutil.which("mosquitto", path="/usr/sbin:/usr/bin") and shutil.which("mosquitto_sub")),
    reason="mosquitto and mosquitto-clients are not installed")

GIVEN = set()


def free_port():
    """A port that no other process gets, also while its broker is stopped: below those that the kernel hands out, from the
    range of this test process, and each only once."""
    worker = int(re.sub(r"\D", "", os.environ.get("PYTEST_XDIST_WORKER", "")) or 0) % 20
    ports = set(range(20000 + 500 * worker, 20500 + 500 * worker)) - GIVEN
    for port in random.sample(sorted(ports), len(ports)):
        GIVEN.add(port)
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                pass
    raise AssertionError("no port is free")


def whole_lines(program):
    """What it has printed, without a last line that is incomplete."""
    return program.out.read_text(encoding="utf-8").split("\n")[:-1]


class Broker:
    """A mosquitto that keeps sessions, and a subscriber to everything."""

    def __init__(self, folder, start, more=""):
        self.folder, self.start_one, self.port = folder, start, free_port()
        self.count = 0
        (folder / "mosquitto.conf").write_text(
            f"listener {self.port} 127.0.0.1\nallow_anonymous true\npersistence true\npersistence_location {folder}/\n"
            f"max_queued_messages 0\n{'' if os.geteuid() else 'user root'}\n{more}")
        self.run()

    def run(self):
        self.count += 1
        self.program = self.start_one(["/usr/sbin/mosquitto", "-c", self.folder / "mosquitto.conf"], name=f"mosquitto{self.count}")
        wait(self.answers, "the broker")

    def answers(self):
        assert self.program.process.poll() is None, self.program.err.read_text()
        try:
            socket.create_connection(("127.0.0.1", self.port), 1).close()
            return True
        except OSError:
            return False

    def stop(self):
        self.program.stop(signal.SIGTERM)

    def subscribe(self, topic="#"):
        """A program that prints what comes, and goes on after the broker's restart."""
        one = self.start_one(["mosquitto_sub", "-p", str(self.port), "-t", topic, "-q", "1", "-c", "-i", "tester",
                              "-F", "%r %t %p"], name="mosquitto_sub")
        self.wait_for_probe(one)
        return one

    def wait_for_probe(self, subscriber):
        """Until a message of ours comes back: the subscription is there, and what the broker had kept has come before."""
        def probe():
            # Who connects just when the broker starts may lose the connection again: once more, as long as the broker runs.
            assert self.program.process.poll() is None, self.program.err.read_text()
            sent = subprocess.run(["mosquitto_pub", "-p", str(self.port), "-t", "probe", "-m", "x", "-q", "1"], check=False, timeout=30,
                                  capture_output=True)
            return sent.returncode == 0 and "0 probe x" in subscriber.lines()
        wait(probe, "the subscription")

    def retained(self):
        """{topic: payload} of what the broker keeps."""
        self.count += 1
        one = self.start_one(["mosquitto_sub", "-p", str(self.port), "-t", "#", "-F", "%r %t %p"], name=f"retained{self.count}")
        self.wait_for_probe(one)
        one.stop()
        return dict(line[2:].split(" ", 1) for line in whole_lines(one) if line.startswith("1 "))


class Publisher:
    def __init__(self, start, build_dir, folder, url, *options):
        self.path = folder / "socket"
        self.program = start([build_dir / "bin/wsm-collector", "--quiet", "--grace", "0", "--socket", self.path, "--publish", url,
                              *options])
        self.program.wait_for_socket(self.path)

    def send(self, *messages):
        for message in messages:
            with connect(self.path) as peer:
                peer.sendall(message)


def messages(subscriber):
    """(topic, payload) of what came, without the probes."""
    return [tuple(line.split(" ", 2)[1:]) for line in whole_lines(subscriber) if " probe " not in line]


def reports(subscriber):
    return [json.loads(payload) for topic, payload in messages(subscriber) if "/report/" in topic]


def first_time(subscriber, stations=1):
    """{boot: sequence numbers}, both in the order in which they first came. Checks that those of each station, which send in
    turn, ascend."""
    came = {}
    for report in reports(subscriber):
        came.setdefault(report["boot"], {})[report["seq"]] = None
    for seqs in came.values():
        for station in range(stations):
            own = [seq for seq in seqs if (seq - 1) % stations == station]
            assert own == sorted(own)
    return {boot: list(seqs) for boot, seqs in came.items()}


def subscribed(one, times=1):
    """Waits until a collector has subscribed this number of times."""
    def so_often():
        assert one.process.poll() is None, one.err.read_text()
        return one.err.read_text().count("subscribe: subscribed") >= times
    wait(so_often, "the subscription")
