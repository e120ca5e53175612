"""Publishing to an MQTT broker: a real one, on loopback."""

import json
import re
import resource
import shutil
import signal
import struct
import subprocess
import time

import pytest

from brokers import Broker, Publisher, first_time, free_port, messages, needs_mosquitto, reports
from images import mac, told
from programs import connect, wait

NOON = int(time.time()) - 1000
pytestmark = needs_mosquitto


def test_reports_states_and_presence_are_published(broker, publish):
    subscriber = broker.subscribe()
    one = publish("--home-assistant", "homeassistant")
    with_clock = bytearray(told(2, 1, NOON, 30))
    struct.pack_into("<i", with_clock, 212, 5000)  # seconds since the access point was booted, at the association
    one.send(told(1, 1, NOON, ssid=b'a"\n\xff'), with_clock)
    wait(lambda: len(reports(subscriber)) == 2, "the reports")
    first, second = reports(subscriber)
    assert first["booted"] is None, "its clock is not known"
    assert second["booted"] == int(second["received"]) - 5030
    assert (first["mac"], first["ssid"], first["seq"], second["seq"]) == (mac(1), 'a"\\n\\xff', 1, 2)
    assert first["boot"] == second["boot"] and first["received"] > NOON
    ap = "02:54:4b:00:00:01"
    wait(lambda: broker.retained().get(f"home/ap/{ap}") == json.dumps({"ap": ap, "stations": 2}, separators=(",", ":")), "the count")
    kept = broker.retained()
    assert kept["home/status"] == "online"
    assert json.loads(kept[f"home/station/{mac(1)}"])["station"]["state"] == "here"
    assert kept["home/presence/wsm_020000000001"] == "home"
    config = json.loads(kept["homeassistant/device_tracker/wsm_020000000001/config"])
    assert config == {"name": mac(1), "unique_id": "wsm_020000000001", "state_topic": "home/presence/wsm_020000000001",
                      "payload_home": "home", "payload_not_home": "not_home", "source_type": "router",
                      "availability_topic": "home/status"}
    one.send(told(1, 2, NOON, 60))
    wait(lambda: broker.retained().get("home/presence/wsm_020000000001") == "not_home", "the departure")
    assert f"home/station/{mac(1)}" not in broker.retained()
    assert one.program.stop() == 0
    assert broker.retained()["home/status"] == "offline"


def test_when_it_dies_its_last_will_says_so(broker, publish):
    one = publish()
    wait(lambda: broker.retained().get("home/status") == "online", "the connection")
    one.program.stop(signal.SIGKILL)
    wait(lambda: broker.retained().get("home/status") == "offline", "the last will")


def test_private_macs_with_the_same_name_are_one_tracker(broker, publish, tmp_path):
    (tmp_path / "names").write_text(f"{mac(1)} Anna\n{mac(2)} Anna\n")
    subscriber = broker.subscribe()
    one = publish("--home-assistant", "homeassistant", "--join-private", "--names", tmp_path / "names")
    one.send(told(1, 1, NOON), told(2, 1, NOON), told(1, 2, NOON, 60))
    wait(lambda: (f"home/station/{mac(1)}", "") in messages(subscriber), "the departure")
    assert one.program.stop() == 0
    kept = broker.retained()
    assert [topic for topic in kept if "/presence/" in topic] == ["home/presence/wsm_name_Anna"]
    assert kept["home/presence/wsm_name_Anna"] == "home"


@pytest.mark.parametrize("place", ["memory", "folder"])
def test_while_the_broker_is_away_nothing_is_lost_and_nothing_is_out_of_order(broker, publish, tmp_path, place):
    subscriber = broker.subscribe()
    one = publish(*(["--spool-dir", tmp_path / "spool"] if place == "folder" else []))
    one.send(*(told(number % 7, 3, NOON, number) for number in range(300)))
    wait(lambda: len(reports(subscriber)) > 50, "the first reports")
    broker.stop()
    one.send(*(told(number % 7, 3, NOON, number) for number in range(300, 1500)))
    broker.run()
    one.send(*(told(number % 7, 3, NOON, number) for number in range(1500, 1800)))
    wait(lambda: [len(seqs) for seqs in first_time(subscriber, 7).values()] == [1800], "all reports")
    assert one.program.stop() == 0
    assert "dropped" not in one.program.err.read_text()
    if place == "folder":
        assert sum(file.stat().st_size for file in (tmp_path / "spool").iterdir()) == 16, "only the head of a file is left"


def spooled(folder):
    return b"".join(file.read_bytes() for file in folder.iterdir())


def test_what_waits_in_a_folder_survives_every_end_of_the_collector(broker, publish, tmp_path):
    subscriber = broker.subscribe()
    broker.stop()
    for run, end in enumerate([signal.SIGKILL, signal.SIGTERM, signal.SIGKILL], 1):
        one = publish("--spool-dir", tmp_path / "spool")
        one.send(*(told(1 + number % 5, 3, NOON, number) for number in range(200)))
        wait(lambda: spooled(tmp_path / "spool").count(b'"seq":200,') == run, "the last report in the spool")  # pylint: disable=cell-var-from-loop
        one.program.stop(end)
        assert "dropped" not in one.program.err.read_text()
    broker.run()
    one = publish("--spool-dir", tmp_path / "spool")
    wait(lambda: list(map(len, first_time(subscriber, 5).values())) == [200, 200, 200], "all reports")
    assert all(seqs == list(range(1, 201)) for seqs in first_time(subscriber).values())
    waiting = re.search(r"mqtt: (\d+) messages wait in ", one.program.err.read_text())[1]
    assert int(waiting) >= 600
    assert one.program.stop() == 0
    assert broker.retained()["home/status"] == "offline"


def test_a_kill_while_messages_are_on_their_way_loses_none_of_them(broker, publish, tmp_path):
    subscriber = broker.subscribe()
    for round_ in range(1, 6):
        one = publish("--spool-dir", tmp_path / "spool")
        one.send(*(told(1 + number % 5, 3, NOON, number) for number in range(100 * round_)))
        one.program.stop(signal.SIGKILL)
    one = publish("--spool-dir", tmp_path / "spool")
    one.send(told(1, 3, NOON, 9999))
    wait(lambda: reports(subscriber) and reports(subscriber)[-1]["oltime"] == 9999, "the last report")
    for seqs in first_time(subscriber).values():
        assert seqs == list(range(1, len(seqs) + 1)), "what was read before the kill, from the first on"
    assert one.program.stop() == 0


def test_a_damaged_spool_is_set_aside_and_what_is_before_the_damage_is_sent(broker, publish, tmp_path):
    subscriber = broker.subscribe()
    broker.stop()
    one = publish("--spool-dir", tmp_path / "spool")
    one.send(*(told(1, 3, NOON, number) for number in range(50)))
    wait(lambda: b'"seq":50,' in spooled(tmp_path / "spool"), "the last report in the spool")
    one.program.stop(signal.SIGKILL)
    (file,) = (tmp_path / "spool").iterdir()
    data = file.read_bytes()
    at = data.index(b'"seq":20,')
    file.write_bytes(data[:at] + bytes(100) + data[at + 100:])
    broker.run()
    one = publish("--spool-dir", tmp_path / "spool")
    assert re.search(r"mqtt: \S+\.spool is damaged: set aside as \S+; \d+ messages in front of the damage are kept",
                     one.program.err.read_text())
    one.send(told(1, 3, NOON, 9999))
    wait(lambda: list(first_time(subscriber).values()) == [list(range(1, 20)), [1]], "what is whole, and what is new")
    assert one.program.stop() == 0
    (aside,) = (tmp_path / "spool").glob("*.damaged-*")
    assert aside.read_bytes().count(b'"seq":') == 49


def test_when_the_disk_of_the_spool_is_full_it_goes_on_in_memory(broker, start, build_dir, tmp_path, with_mqtt):
    # pylint: disable=unused-argument
    subscriber = broker.subscribe()
    broker.stop()

    def limit():  # the kernel refuses to let files grow further, as a full disk does
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (30000, resource.RLIM_INFINITY))
    path = tmp_path / "socket"
    program = start([build_dir / "bin/wsm-collector", "--quiet", "--socket", path, "--publish", f"mqtt://127.0.0.1:{broker.port}/home",
                     "--spool-dir", tmp_path / "spool"], preexec_fn=limit)
    program.wait_for_socket(path)
    for number in range(100):
        with connect(path) as peer:
            peer.sendall(told(1, 3, NOON, number))
    wait(lambda: "File too large: what comes waits in memory" in program.err.read_text(), "the message")
    broker.run()
    wait(lambda: list(first_time(subscriber).values()) == [list(range(1, 101))], "all reports")
    assert program.stop() == 0
    assert "dropped" not in program.err.read_text()


def test_two_collectors_do_not_share_a_spool(build_dir, publish, tmp_path):
    publish("--spool-dir", tmp_path / "spool")
    second = subprocess.run([build_dir / "bin/wsm-collector", "--publish", "mqtt://127.0.0.1:1", "--spool-dir", tmp_path / "spool",
                             "--socket", tmp_path / "other"], capture_output=True, text=True, timeout=30, check=False)
    assert (second.returncode, second.stderr) == (1, f"wsm-collector: spool: {tmp_path}/spool: another collector uses it\n")


def test_a_spool_that_is_full_drops_the_oldest_and_counts(broker, publish):
    subscriber = broker.subscribe()
    broker.stop()
    one = publish("--spool", "100")
    one.send(*(told(1, 3, NOON, number) for number in range(500)))
    wait(lambda: "the spool is full" in one.program.err.read_text(), "the message")
    broker.run()
    wait(lambda: any(report["seq"] == 500 for report in reports(subscriber)), "the newest report")
    assert one.program.stop() == 0
    lost = int(one.program.err.read_text().split("mqtt: ")[-1].split(" ")[0])

    def arrived():
        return sum("/report/" in topic or "/station/" in topic for topic, _ in messages(subscriber))
    # Each report is two messages; the messages about the collector and the access point may be among those that were lost.
    wait(lambda: arrived() + lost >= 1000, "the rest")
    assert lost > 0 and arrived() + lost <= 1010


def certificates(folder):
    """Two authorities, a certificate of the broker and one of the collector, both by the first."""
    def openssl(*words):
        subprocess.run(["openssl", *words], cwd=folder, check=True, capture_output=True, timeout=60)

    for name in ("ca", "other"):
        openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj",
                f"/CN={name}", "-keyout", f"{name}.key", "-out", f"{name}.crt")
    (folder / "names").write_text("subjectAltName=IP:127.0.0.1\n")
    for name in ("broker", "client"):
        openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj", f"/CN={name}", "-keyout",
                f"{name}.key", "-out", f"{name}.csr")
        openssl("x509", "-req", "-in", f"{name}.csr", "-CA", "ca.crt", "-CAkey", "ca.key", "-CAcreateserial", "-days", "2",
                "-extfile", "names", "-out", f"{name}.crt")


@pytest.fixture
def tls(start, tmp_path, build_dir, with_mqtt):  # pylint: disable=unused-argument
    """A broker that asks for a certificate, and a function that starts a collector with these options."""
    if shutil.which("openssl") is None:
        pytest.skip("openssl is not installed")
    certificates(tmp_path)
    port = free_port()
    broker = Broker(tmp_path, start, f"listener {port} 127.0.0.1\ncafile {tmp_path}/ca.crt\ncertfile {tmp_path}/broker.crt\n"
                                     f"keyfile {tmp_path}/broker.key\nrequire_certificate true\n")
    return broker, lambda *options: Publisher(start, build_dir, tmp_path, f"mqtts://127.0.0.1:{port}/home", *options)


def test_with_tls_both_sides_show_a_certificate(tls, tmp_path):
    broker, publish_tls = tls
    subscriber = broker.subscribe()
    one = publish_tls("--publish-ca", tmp_path / "ca.crt", "--publish-cert", tmp_path / "client.crt", "--publish-key",
                      tmp_path / "client.key")
    one.send(told(1, 1, NOON))
    wait(lambda: [report["mac"] for report in reports(subscriber)] == [mac(1)], "the report")
    assert one.program.stop() == 0


@pytest.mark.parametrize("authority, certified, word", [
    ("other", True, "certificate verify failed"), ("ca", False, "the connection has ended")])
def test_without_trust_on_both_sides_nothing_is_sent_and_a_message_says_why(tls, tmp_path, authority, certified, word):
    broker, publish_tls = tls
    subscriber = broker.subscribe()
    ours = ["--publish-cert", tmp_path / "client.crt", "--publish-key", tmp_path / "client.key"] if certified else []
    one = publish_tls("--publish-ca", tmp_path / f"{authority}.crt", *ours)
    one.send(told(1, 1, NOON))
    wait(lambda: word in one.program.err.read_text(), "the message")
    one.program.stop(signal.SIGKILL)
    broker.wait_for_probe(subscriber)
    assert messages(subscriber) == []


@pytest.mark.parametrize("url", ["http://x", "mqtt://", "mqtt://:1", "mqtt://x:0", "mqtt://x:99999", "mqtt://x/a+b", "mqtt://x/#"])
def test_an_address_that_is_none_is_wrong_usage(build_dir, url):
    done = subprocess.run([build_dir / "bin/wsm-collector", "--publish", url], capture_output=True, timeout=30, check=False)
    assert done.returncode == 2
