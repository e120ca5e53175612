"""wsm-collector: every report is taken, checked, decoded and printed."""

import csv
import io
import json
import os
import pathlib
import re
import signal
import struct
import subprocess
import time

import formats
import pytest

from programs import connect, wait

TEXTS = {"ssid": "Lobby 2", "ifname": "ath01", "mac": "02:00:00:00:00:01", "ip": "192.168.1.77", "power": "55",
         "reason": "OW_STA_DEAUTH_RECV", "version": "11ax", "ap_mac": "02:54:4b:00:00:01", "before_ip": "0.0.0.0",
         "ap_auth_req": "t1", "ap_assoc_req": "t2", "key_start": "t3", "key_msg2": "t4", "key_end": "t5"}
# Words of two halves: seconds and nanoseconds.
CLOCKS = {"online_clock": (212, 11, 500000000), "online_ts": (220, 1700000000, 0), "offline_ts": (228, 1700000060, 1)}
NUMBERS = {"status": 1, "oltime": 60, "flow_rateup": -256, "flow_ratedown": 260, "wifi_up": 0xf000000000000264,
           "wifi_down": 272, "uplink_up": 280, "uplink_down": 288, "log_type": 2, "restored": 1, "no_backup": 2,
           "third_flag": 3, "radio_id": -1, "reason_code": 307, "time_delay": 364, "pkt_loserate": 368,
           "floornoise": -97, "utilization": 37, "maxRate": 0xfffffffe, "channel": 149, "is_reassoc": -1, "vlanid": 42,
           "load_uptime": 424, "roam_enable": 255, "repeater_type": 1, "rssi": -40, "single_log_up_cnt": 3, "wlanid": 1,
           "txper": 460, "rxper": 464, "txPkt": 468, "txBcast": 472, "txMcast": 476, "supportSTBC": 480,
           "supportSGI": 484, "maxMCS": 488, "maxBW": 492, "FCAP": 496, "fromDS": 500, "toDS": 504,
           "cost_assoc_req": 508, "cost_auth_req": 512, "cost_msg2": 516, "cost_msg4": 520, "onesecrxbyte": 524,
           "onesectxbyte": 0xffffffff}
# Not in the table of formats: no other test uses them.
REST = {"work_up": (240, "<Q", 1 << 63), "work_down": (248, "<Q", 248), "dhcp_update_time": (448, "<I", 4000000000)}


def image(**fields):
    """A report with these fields; texts as str or bytes."""
    data = bytearray(formats.REPORT_SIZE)
    for name, value in fields.items():
        offset, form = formats.REPORT[name]
        struct.pack_into(form, data, offset, value.encode() if isinstance(value, str) else value)
    return bytes(data)


def full_image():
    data = bytearray(image(**TEXTS, **NUMBERS))
    for offset, seconds, nanoseconds in CLOCKS.values():
        struct.pack_into("<ii", data, offset, seconds, nanoseconds)
    for offset, form, value in REST.values():
        struct.pack_into(form, data, offset, value)
    for first, end in formats.REPORT_ZERO:  # memory references and padding, which mean nothing
        data[first:end] = b"\xff" * (end - first)
    return bytes(data)


FULL = dict(TEXTS, **NUMBERS, **{name: value for name, (_, _, value) in REST.items()},
            online_clock=11.5, online_ts=1700000000.0, offline_ts=1700000060.000000001)


def report(line):
    """A JSON line without the time of the receipt."""
    fields = json.loads(line)
    assert abs(fields.pop("received") - time.time()) < 60
    return fields


class Collector:
    def __init__(self, start, build_dir, folder, options):
        self.path = folder / "collector.sock"
        self.program = start([build_dir / "bin/wsm-collector", "--socket", self.path, *options])
        self.program.wait_for_socket(self.path)

    def send(self, *messages):
        for message in messages:
            with connect(self.path) as peer:
                peer.sendall(message)

    def lines(self):
        """What it has printed, without a last line that is incomplete."""
        return self.program.out.read_text(encoding="utf-8").split("\n")[:-1]

    def wait_for_lines(self, count):
        return wait(lambda: len(lines := self.lines()) >= count and lines, f"{count} lines")


@pytest.fixture
def collector(start, build_dir, tmp_path):
    return lambda *options: Collector(start, build_dir, tmp_path, options)


def run(build_dir, *arguments, **options):
    return subprocess.run([build_dir / "bin/wsm-collector", *arguments], capture_output=True, timeout=30, check=False,
                          **options)


def test_json_has_every_field_of_the_report(collector):
    one = collector("--json")
    one.send(full_image())
    line = one.wait_for_lines(1)[0]
    assert report(line) == FULL
    assert '"offline_ts":1700000060.000000001,' in line, "to the nanosecond, which a double would not hold"


def test_csv_has_every_field_of_the_report_under_its_name(collector):
    one = collector("--csv")
    one.send(full_image(), image(ssid='a "b",\n'))
    rows = list(csv.DictReader(io.StringIO("\n".join(one.wait_for_lines(3)))))
    assert [*rows[0]][-1] == "received" and abs(float(rows[0].pop("received")) - time.time()) < 60
    assert rows[0].keys() == FULL.keys()
    assert {name: type(FULL[name])(value) for name, value in rows[0].items()} == FULL
    assert rows[1]["ssid"] == 'a "b",\\n'


def test_a_line_tells_who_where_and_how(collector):
    one = collector()
    one.send(image(mac="02:00:00:00:00:01", ssid="Lobby", ifname="ath0", radio_id=0, ip="10.0.0.7", rssi=-40, channel=6,
                   log_type=1, wifi_up=10, wifi_down=20, oltime=5), full_image())
    first, second = one.wait_for_lines(2)
    assert re.fullmatch(r'\d{4}-\d\d-\d\d \d\d:\d\d:\d\d  online  02:00:00:00:00:01  ath0/radio 0  "Lobby"  10\.0\.0\.7'
                        r'  -40 dBm  channel 6  up 10 down 20 bytes  5 s', first)
    assert "  offline 02:00" in second and second.endswith("60 s  OW_STA_DEAUTH_RECV (307)")


@pytest.mark.parametrize("log_type, word", [(1, "online"), (2, "offline"), (3, "update"), (4, "roamed"), (9, "9")])
def test_every_kind_of_report_has_its_word(collector, log_type, word):
    one = collector()
    one.send(image(log_type=log_type))
    assert one.wait_for_lines(1)[0].split()[2] == word


@pytest.mark.parametrize("options", [(), ("--json",), ("--csv",)])
def test_foreign_text_cannot_forge_a_line_or_steer_a_terminal(collector, options):
    one = collector(*options)
    one.send(image(ssid=b"a\nb\x1b[2J\xff\xc2\x9b", mac=b"\r" * 20, ifname=b"%s%n" * 5))
    lines = one.wait_for_lines(1 + ("--csv" in options))
    assert len(lines) == 1 + ("--csv" in options)
    shown = json.loads(lines[0])["ssid"] if options == ("--json",) else lines[-1]
    assert "a\\nb\\x1b[2J\\xff\\xc2\\x9b" in shown
    assert all(character.isprintable() for character in lines[-1])


def test_a_text_that_fills_its_field_ends_with_the_field(collector):
    one = collector("--json")
    one.send(image(ssid="s" * 128, mac="m" * 20, ap_mac="a" * 23, key_end="k" * 32, ip="i" * 17))
    report = json.loads(one.wait_for_lines(1)[0])
    # The record keeps a terminator in each of its fields.
    assert (report["ssid"], report["mac"], report["ap_mac"], report["key_end"], report["ip"]) == \
        ("s" * 127, "m" * 19, "a" * 22, "k" * 31, "i" * 16)


@pytest.mark.parametrize("size", [1, 695, 697, 1392, 500000])
def test_a_message_of_another_size_is_an_error_and_changes_the_status(collector, size):
    one = collector("--json")
    try:
        one.send(bytes(size))
    except (BrokenPipeError, ConnectionResetError):
        assert size == 500000, "it need not listen to all of that"
    one.send(full_image())
    error, sound = one.wait_for_lines(2)
    error = json.loads(error)
    assert error["error"] == "size" and (error["bytes"] == size or 696 < error["bytes"] <= size)
    assert report(sound) == FULL
    assert one.program.stop() == 3
    assert one.program.err.read_text() == "wsm-collector: 1 messages were no reports\n"


def test_for_people_errors_are_on_the_error_stream(collector):
    one = collector()
    one.send(b"short")
    wait(lambda: one.program.err.read_text(), "the error")
    assert one.program.err.read_text() == "wsm-collector: a message of 5 bytes is no report\n"
    assert one.lines() == []


def test_a_thousand_reports_are_printed_in_the_order_in_which_they_were_sent(collector):
    one = collector("--json", "--count", "1000")
    one.send(*(image(log_type=1, oltime=number) for number in range(1000)))
    assert one.program.wait_for_end() == 0
    assert [json.loads(line)["oltime"] for line in one.lines()] == list(range(1000))


def test_a_sender_that_dawdles_makes_nobody_wait(collector):
    one = collector("--json")
    with connect(one.path) as slow:
        slow.sendall(bytes(100))
        one.send(*[full_image()] * 20)
        assert all(report(line) == FULL for line in one.wait_for_lines(20))
        slow.sendall(image(oltime=7)[100:])
    assert json.loads(one.wait_for_lines(21)[20])["oltime"] == 7


def test_a_report_in_many_pieces_is_put_together(collector):
    one = collector("--json")
    with connect(one.path) as peer:
        for byte in full_image():
            peer.sendall(bytes([byte]))
    assert report(one.wait_for_lines(1)[0]) == FULL


def test_a_visitor_that_says_nothing_is_no_wrong_report(collector):
    one = collector("--json")
    one.send(b"", full_image(), b"")
    one.wait_for_lines(1)
    assert one.program.stop() == 0
    assert len(one.lines()) == 1 and one.program.err.read_text() == ""


def test_an_image_in_a_file_has_no_time_of_receipt(build_dir, tmp_path):
    (tmp_path / "image").write_bytes(full_image())
    done = run(build_dir, "--json", tmp_path / "image")
    assert json.loads(done.stdout) == dict(FULL, received=None)
    assert run(build_dir, "--csv", tmp_path / "image").stdout.splitlines()[1].endswith(b",")
    assert run(build_dir, tmp_path / "image").stdout.startswith(b"time of receipt ?    offline ")


def test_a_reader_that_does_not_read_keeps_no_sender_waiting(start, build_dir, tmp_path):
    os.mkfifo(tmp_path / "wsm-collector.out")
    reader = os.open(tmp_path / "wsm-collector.out", os.O_RDONLY | os.O_NONBLOCK)
    program = start([build_dir / "bin/wsm-collector", "--json", "--queue", "50", "--socket", tmp_path / "socket"])
    program.wait_for_socket(tmp_path / "socket")
    for number in range(3000):  # far more than the pipe and the queue hold
        with connect(tmp_path / "socket") as peer:
            peer.sendall(image(oltime=number))
    program.process.send_signal(signal.SIGTERM)
    os.set_blocking(reader, True)
    with open(reader, "rb") as output:
        numbers = [json.loads(line)["oltime"] for line in output]
    assert program.wait_for_end() == 0
    dropped = re.fullmatch(r"wsm-collector: print: (\d+) messages dropped\n", program.err.read_text())
    assert int(dropped[1]) + len(numbers) == 3000
    assert numbers == sorted(numbers) and numbers[-1] == 2999


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_it_ends_on_a_signal_prints_the_rest_and_takes_its_socket_with_it(collector, number):
    one = collector("--json")
    one.send(*[full_image()] * 50)
    assert one.program.stop(number) == 0
    assert len(one.lines()) == 50
    assert not one.path.exists()


def test_it_ends_after_the_number_of_reports_it_was_given(collector):
    one = collector("--count", "2")
    one.send(b"not counted", *[full_image()] * 2)
    assert one.program.wait_for_end() == 3
    assert len(one.lines()) == 2


def test_the_summary_tells_each_stations_sessions_time_bytes_and_departures(collector):
    one = collector("--summary", "--count", "9")

    def told(mac, log_type, since, **fields):
        data = bytearray(image(mac=mac, log_type=log_type, **fields))
        struct.pack_into("<i", data, 220, since)
        struct.pack_into("<i", data, 228, since + 100 if log_type == 2 else 0)
        return data

    anna, ben = "02:00:00:00:00:01", "02:00:00:00:00:02"
    one.send(
        told(anna, 1, 1000), told(anna, 3, 1000, oltime=60, wifi_up=10, wifi_down=100),
        told(anna, 2, 1000, oltime=60, wifi_up=20, wifi_down=200, reason="OW_STA_TIMEOUT"),
        told(anna, 1, 2000), told(anna, 2, 2000, wifi_up=1, wifi_down=2, reason="OW_STA_TIMEOUT"),
        told(ben, 3, 500, oltime=7, wifi_up=5),  # came before the collector did
        told(ben, 4, 500, oltime=8, wifi_up=6), told(ben, 1, 600), told(ben, 1, 600, oltime=3, wifi_up=1))
    assert one.program.wait_for_end() == 0
    heading, first, second = one.lines()[9:]
    assert heading.split() == ["station", "reports", "sessions", "roams", "seconds", "up", "bytes", "down", "bytes",
                               "departures"]
    assert first.split() == [anna, "5", "2", "0", "200", "21", "202", "2", "OW_STA_TIMEOUT"]
    assert second.split() == [ben, "4", "2", "1", "11", "7", "0", "-", "(online)"]


def test_raw_images_can_be_decoded_from_a_file_later(collector, build_dir, tmp_path):
    one = collector("--raw", "--count", "2")
    one.send(full_image(), image(mac="m"))
    assert one.program.wait_for_end() == 0
    assert one.program.out.read_bytes() == full_image() + image(mac="m")
    done = run(build_dir, "--json", one.program.out)
    assert done.returncode == 0
    assert [json.loads(line)["mac"] for line in done.stdout.splitlines()] == [TEXTS["mac"], "m"]
    assert run(build_dir, "--json", "-", input=full_image()).stdout.count(b"\n") == 1
    assert run(build_dir, "--json", "-", input=full_image() + b"rest").returncode == 3
    missing = run(build_dir, tmp_path / "nowhere")
    assert (missing.returncode, missing.stderr) == (1, f"wsm-collector: cannot read {tmp_path}/nowhere\n".encode())


def test_follow_reads_what_is_added_to_a_file(start, build_dir, tmp_path):
    file = tmp_path / "images"
    file.write_bytes(full_image() + full_image()[:300])
    program = start([build_dir / "bin/wsm-collector", "--json", "--follow", "--count", "3", file])
    wait(lambda: len(program.lines()) == 1, "the first report")
    with open(file, "ab") as more:
        more.write(full_image()[300:] + image(mac="m"))
    assert program.wait_for_end() == 0
    assert [json.loads(line)["mac"] for line in program.lines()] == [TEXTS["mac"]] * 2 + ["m"]


def test_a_socket_that_somebody_serves_is_not_taken_away(collector, build_dir):
    one = collector("--json")
    done = run(build_dir, "--socket", one.path)
    assert (done.returncode, done.stderr) == (1, f"wsm-collector: {one.path}: somebody listens there already\n".encode())


@pytest.mark.parametrize("arguments", [
    ["--bogus"], ["--count", "0"], ["--count", "x"], ["--count"], ["--json", "--csv"], ["--raw", "--json"],
    ["--follow"],
    ["--quiet", "--json"], ["--grace", "-1"], ["--silence", "0"], ["--queue", "0"], ["-x"], ["--summary=1"]])
def test_wrong_usage_is_status_2(build_dir, arguments):
    done = run(build_dir, *arguments)
    assert done.returncode == 2 and b"usage: wsm-collector" in done.stderr


def test_help_is_status_0(build_dir):
    done = run(build_dir, "--help")
    assert done.returncode == 0 and done.stdout.startswith(b"usage: wsm-collector")


def test_output_that_cannot_be_written_is_status_1(build_dir, tmp_path):
    (tmp_path / "image").write_bytes(full_image())
    with open("/dev/full", "wb") as full:
        done = subprocess.run([build_dir / "bin/wsm-collector", tmp_path / "image"], stdout=full, timeout=30, check=False)
    assert done.returncode == 1


def test_the_example_in_the_documents_is_what_is_printed(collector):
    documents = (pathlib.Path(__file__).resolve().parents[2] / "docs/lab.md").read_text(encoding="utf-8")
    example = documents.split("$ wsm-collector\n")[1].split("\n")[0]
    one = collector()
    one.send(image(mac="02:00:00:00:00:01", ifname="ath0", ssid="Lobby", rssi=-48, channel=6, log_type=1))
    assert one.wait_for_lines(1)[0][19:] == example[19:]
