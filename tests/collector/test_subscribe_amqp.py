"""A subscription to brokers that are not there, or are none. With real ones: tests/fleet."""

import re
import socket
import subprocess
import threading

import pytest

from brokers import free_port
from programs import wait


@pytest.fixture
def subscribe(start, build_dir):
    asked = subprocess.run([build_dir / "bin/wsm-collector", "--subscribe", "amqp://127.0.0.1:1", "--store", "sqlite:/dev/null/x"], capture_output=True, text=True,
                           timeout=30, check=False)
    if "built without librabbitmq" in asked.stderr:
        pytest.skip("built without librabbitmq")
    return lambda *hosts, scheme="amqp": start([build_dir / "bin/wsm-collector", "--quiet", "--subscribe", f"{scheme}://{','.join(hosts)}/"])


class Impostor:
    """Answers each connection with the same bytes, and hangs up."""

    def __init__(self, answer):
        self.answer, self.asked = answer, []
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = f"127.0.0.1:{self.listener.getsockname()[1]}"
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def run(self):
        while True:
            try:
                peer, _ = self.listener.accept()
            except OSError:
                return
            with peer:
                peer.settimeout(30)
                try:
                    self.asked.append(peer.recv(8))
                    peer.sendall(self.answer)
                except OSError:
                    pass

    def close(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.thread.join()


@pytest.fixture
def impostor():
    made = []

    def make(answer):
        made.append(Impostor(answer))
        return made[-1]
    yield make
    for one in made:
        one.close()


def test_each_host_is_tried_and_told_of_once(subscribe):
    hosts = [f"127.0.0.1:{free_port()}" for _ in range(2)]
    names = ["127.0.0.1", "localhost"]
    one = subscribe(hosts[0], hosts[1].replace("127.0.0.1", "localhost"))
    wait(lambda: all(f"subscribe: {name}: connection: " in one.err.read_text() for name in names), "both refusals")
    assert one.stop() == 0
    assert [one.err.read_text().count(f"subscribe: {name}: ") for name in names] == [1, 1]


@pytest.mark.parametrize("answer", [
    pytest.param(b"", id="nothing"),
    pytest.param(b"HTTP/1.1 400 Bad Request\r\n\r\n", id="another protocol"),
    pytest.param(b"AMQP\x00\x00\x09\x00", id="another version"),
    pytest.param(b"AMQP\x00\x00\x09\x01", id="our own words"),
    pytest.param(bytes.fromhex("01 0000 ffffffff 000a000a") + b"x" * 64, id="a frame without an end"),
    pytest.param(bytes.fromhex("01 0000 00000005 000a000a00 00"), id="a frame with a wrong end"),
    pytest.param(bytes.fromhex("01 0000 00000004 000a000b ce"), id="an answer to what nobody asked"),
    pytest.param(bytes.fromhex("01 0000 00000006 000a000a0009 ce"), id="a method that is cut off")])
def test_who_is_no_broker_is_tried_again_and_does_no_harm(subscribe, impostor, answer):
    other = impostor(answer)
    one = subscribe(other.address)
    wait(lambda: len(other.asked) >= 2, "another attempt")
    assert other.asked[0] == b"AMQP\x00\x00\x09\x01"
    assert one.stop() == 0
    said = one.err.read_text()
    assert re.search(r"^wsm-collector: subscribe: 127\.0\.0\.1: login: ", said, re.M), said
    assert "subscribed" not in said


def test_tls_is_spoken_to_one_who_asks_for_it_and_to_nobody_else(subscribe, impostor):
    other = impostor(b"AMQP\x00\x00\x09\x00")
    one = subscribe(other.address, scheme="amqps")
    wait(lambda: len(other.asked) >= 1 and "subscribe: " in one.err.read_text(), "the attempt")
    assert other.asked[0][:1] == b"\x16", "a TLS handshake, and no word of the protocol"
    assert one.stop() == 0
    assert "subscribed" not in one.err.read_text()
