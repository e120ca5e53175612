"""Recordings: what wsm-record writes of a daemon, played again by wsm-replay, makes another daemon report the same."""

import collections
import os
import pathlib
import re
import shutil
import signal
import struct
import subprocess
import sys
import time

import pytest

from driver import ASSOCIATION
from formats import announcement, event_message
from stations import A, B, associate, wait_online
from wsmlab import LabError
from wsmlab.lab import PRELOADING
from wsmlab.scenario import Player, Scenario

ROOT = pathlib.Path(__file__).resolve().parents[2]
RECORDING = "/tmp/recording.wsr"
HEADER = struct.Struct("<8sIIqqq")  # magic, version, byte order, wall clock, monotonic clock, uptime in microseconds

# The daemon's other timers are multiples of this one, and start with it.
TICK_S = 1.0

# The report's times, by the clock of the start that they count from; also those that follow from whole seconds.
CLOCKS = {"online_clock": time.CLOCK_MONOTONIC, "load_uptime": time.CLOCK_BOOTTIME}
# Whole seconds may differ by two. The time online is set by each pass over the stations, and on a loaded machine a report may be
# before a pass in one run and after it in the other.
PASS_S = 5
WHOLE_SECONDS = {"load_uptime": 2, "oltime": 2 + PASS_S}

BUS = """
# Addresses that come over the bus: from the program that publishes them, and from the DHCP monitor for bridged stations.
lab dhcpmon
let phone 02:00:00:00:00:01
let guest 02:00:00:00:00:02

0s     driver assoc mac=$phone ifname=ath0 radio=0
0s     driver assoc mac=$guest ifname=ath01 radio=0 ssid='Lobby Guest'
1s  -> report log_type=1 mac=$phone
1s  -> report log_type=1 mac=$guest
2s     bus send dhcp_client_update mac=$phone ip=192.168.10.77 hostName=anna
3s  -> report log_type=1 mac=$phone ip=192.168.10.77
3s     driver lease mac=$guest ip=192.168.10.88 name=visitor
11s -> file /tmp/sta_sta.info has visitor $guest 192.168.10.88
12s    bus send ip_change mac=$phone before_ip=192.168.10.77 changed_ip=192.168.10.79
13s    bus sta set set_update_log_period=60
14s -> report log_type=3 mac=$phone ip=192.168.10.79
14s -> report log_type=3 mac=$guest ip=192.168.10.88
"""
SCENARIOS = {name: (ROOT / f"lab/scenarios/{name}.scn").read_text() for name in ("roam", "repeater", "evening")}
SCENARIOS["bus"] = BUS


def show(build_dir, path):
    done = subprocess.run([build_dir / "bin/wsm-record", "--show", path], capture_output=True, text=True, timeout=30,
                          check=True)
    return done.stdout.splitlines()


def between_ticks(since):
    """Waits for a moment that is far from the daemon's timers, so that a small delay does not change the order of events."""
    phase = (time.monotonic() - since) % TICK_S
    time.sleep((0.4 * TICK_S - phase) % TICK_S)


def take_out(lab, tmp_path):
    return shutil.copy(lab.root / RECORDING[1:], tmp_path / "recording.wsr")


def record(lab, scenario, tmp_path):
    """Plays the scenario to a daemon that is recorded; returns the file and the reports. The driver's figures change where
    the scenario says so and not by themselves: the daemon's timers of one second and of five end in the same millisecond,
    and which of them is first, before or after the figures were fetched, is not in a replay's control."""
    lab.start_ubusd()
    lab.start_apsim(*scenario.options.get("driver", []), "--tick", "0")
    lab.start_collector()
    if "dhcpmon" in scenario.options:
        lab.start_dhcpmon()
    lab.start_daemon(record=RECORDING)
    started = time.monotonic()
    lab.wait_for_family()
    player = Player(lab, tell=lambda happening: None, stop=lambda: False)
    between_ticks(started)
    player.play(scenario.lines)
    between_ticks(started)
    reports = list(lab.reports())
    assert lab.daemon.stop() == 1
    return take_out(lab, tmp_path), reports


def by_station(reports):
    stations = collections.defaultdict(list)
    for report in reports:
        stations[report["mac"]].append(report)
    return stations


def compare(recorded, replayed, starts):
    """Every field of every report. `starts`: clock -> its seconds at the recorded and at the replayed start."""
    assert {mac: len(reports) for mac, reports in by_station(recorded).items()} == \
        {mac: len(reports) for mac, reports in by_station(replayed).items()}
    for mac, reports in by_station(recorded).items():
        for number, (was, now) in enumerate(zip(reports, by_station(replayed)[mac])):
            assert was.keys() == now.keys()
            for field in was.keys() - {"received"}:  # added by the collector
                place = f"{mac}, report {number}: {field}"
                if field in CLOCKS:
                    before, after = starts[CLOCKS[field]]
                    off = (now[field] - after) - (was[field] - before)
                elif field in WHOLE_SECONDS:
                    off = now[field] - was[field]
                elif field == "dhcp_update_time":  # microseconds of the wall clock, their low word
                    assert (was[field] == 0) == (now[field] == 0), place
                    before, after = (int(second * 1e6) for second in starts[time.CLOCK_REALTIME])
                    off = ((now[field] - after) - (was[field] - before) + 2**31) % 2**32 - 2**31
                    off = off / 1e6 if was[field] else 0
                else:
                    assert now[field] == was[field], place
                    continue
                assert abs(off) <= WHOLE_SECONDS.get(field, 1), f"{place} is {off} s off"


@pytest.mark.parametrize("name", SCENARIOS)
def test_a_recording_that_is_played_again_gives_the_same_reports(open_lab, tmp_path, name):
    # A machine that stops the daemon for half a tick, when it is recorded or in the replay, changes the result, so there are several
    # tries; a fault of recorder or player shows each time.
    for tries_left in (2, 1, 0):
        recording, recorded = record(open_lab(), Scenario.parse(SCENARIOS[name], name), tmp_path)
        assert recorded
        magic, version, order, *start = HEADER.unpack_from(recording.read_bytes())
        assert (magic, version, order) == (b"wsm-rec\n", 1, 0x01020304)
        try:
            play_and_compare(open_lab(), recording, recorded, start)
            return
        except AssertionError:
            if tries_left == 0:
                raise


def play_and_compare(lab, recording, recorded, start):
    clocks = (time.CLOCK_REALTIME, time.CLOCK_MONOTONIC, time.CLOCK_BOOTTIME)
    lab.start_ubusd()
    lab.start_collector()
    player = lab.start_replay(recording)
    starts = {clock: (then / 1e6, time.clock_gettime(clock)) for clock, then in zip(clocks, start)}
    lab.start_daemon()
    last = lab.wait_for_replay(player, 60)
    replayed = list(lab.reports())
    assert last.endswith(" 0 with none")
    compare(recorded, replayed, starts)


def test_a_comparison_sees_what_differs():
    report = {"mac": A, "rssi": -40, "online_clock": 105.0, "dhcp_update_time": 0}
    starts = {time.CLOCK_MONOTONIC: (100.0, 200.0), time.CLOCK_REALTIME: (0, 0)}
    same = {**report, "online_clock": 205.5}
    compare([report], [same], starts)
    for other in ({**same, "rssi": -41}, {**same, "online_clock": 206.1}, {**same, "dhcp_update_time": 1}):
        with pytest.raises(AssertionError):
            compare([report], [other], starts)
    with pytest.raises(AssertionError):
        compare([report], [], starts)


@pytest.fixture
def recorded_lab(lab):
    """An access point on which a daemon is recorded."""
    lab.start_ubusd()
    lab.start_apsim("--tick", "0")
    lab.start_collector()
    lab.start_daemon(record=RECORDING)
    lab.wait_for_family()
    return lab


def test_a_recording_is_for_its_owner_and_holds_no_passphrase(open_lab, build_dir, tmp_path):
    lab = open_lab(config={"wireless": "config wifi-iface\n\toption ssid 'Lobby'\n\toption ifname 'ath0'\n"
                                       "\toption device 'wifi0'\n\toption key 'do not tell'\n"})
    lab.start_ubusd()
    lab.start_daemon(record=RECORDING)
    assert (lab.root / RECORDING[1:]).stat().st_mode & 0o7777 == 0o600
    lab.write_config("wireless", "config wifi-iface\n\toption ssid 'Other'\n\toption key 'nor this'\n")
    lab.start_apsim()
    lab.wait_for_family()
    lab.daemon.stop()
    recording = take_out(lab, tmp_path).read_bytes()
    assert b"'Lobby'" in recording and b"'Other'" in recording
    assert b"tell" not in recording and b"nor" not in recording
    assert sum("/etc/config/wireless, " in line for line in show(build_dir, tmp_path / "recording.wsr")) == 2


def test_signals_reach_the_daemon_and_its_status_comes_back(recorded_lab, build_dir, tmp_path):
    recorded_lab.daemon.signal(signal.SIGINT)
    assert recorded_lab.daemon.wait(20 * recorded_lab.patience) == 1
    assert not [line for line in recorded_lab.firewall_rules("mangle") if "incoming" in line]
    lines = show(build_dir, take_out(recorded_lab, tmp_path))
    assert re.fullmatch(r"recorded \d{4}-\d\d-\d\d \d\d:\d\d:\d\d UTC, \d+ records in \d+\.\d s", lines[0])
    assert lines[-1].endswith("  end")


def test_children_of_the_daemon_know_nothing_of_it(lab):
    lab.run(["wsm-record", "--output", RECORDING, "--", "sh", "-c", "env >/tmp/env; ls -l /proc/self/fd >/tmp/fds"],
            environment=PRELOADING)
    assert "WSM_RECORD" not in (lab.files / "env").read_text() and "wsm-record" not in (lab.files / "env").read_text()
    assert "recording" not in (lab.files / "fds").read_text()


def test_other_libraries_that_are_preloaded_stay(lab, build_dir):
    shim = str(build_dir / "lib/libclock_shim.so")
    lab.run(["wsm-record", "--output", RECORDING, "--", "sh", "-c", 'echo "$LD_PRELOAD" >/tmp/preloaded'],
            environment={**PRELOADING, "LD_PRELOAD": shim})
    assert (lab.files / "preloaded").read_text() == shim + "\n"


def test_a_recording_with_a_torn_end_is_played_without_it(recorded_lab, open_lab, build_dir, tmp_path):
    associate(recorded_lab, A)
    wait_online(recorded_lab, A)
    recorded_lab.daemon.kill()
    recording = take_out(recorded_lab, tmp_path)
    with open(recording, "r+b") as file:
        file.truncate(recording.stat().st_size - 3)
    assert show(build_dir, recording)[-1].startswith("the last record is torn: ")
    lab = open_lab()
    player = lab.replay(recording)
    lab.wait_for_report(mac=A, log_type=1)
    lab.wait_for_replay(player, 30)
    assert "the last record is torn: " in player.text()


def test_a_daemon_that_was_restarted_is_recorded_with_its_backup(recorded_lab, open_lab, tmp_path):
    associate(recorded_lab, A, ssid="Lobby")
    wait_online(recorded_lab, A)
    recorded_lab.daemon.kill()
    (recorded_lab.root / RECORDING[1:]).unlink()
    recorded_lab.start_daemon(record=RECORDING)
    recorded_lab.wait_for_report(mac=A, log_type=3, restored=1)
    assert recorded_lab.daemon.stop() == 1
    lab = open_lab()
    last = lab.wait_for_replay(lab.replay(take_out(recorded_lab, tmp_path)), 30)
    assert last.endswith(" 0 with the answer before, 0 with none")
    assert lab.wait_for_report(mac=A, log_type=3, restored=1)["ssid"] == "Lobby"


def test_the_demo_plays_a_recording(recorded_lab, build_dir, tmp_path):
    associate(recorded_lab, A)
    recorded_lab.apsim(f"disassoc mac={A} reason=307")
    recorded_lab.wait_for_report(mac=A, log_type=2)
    recorded_lab.daemon.stop()
    done = subprocess.run([sys.executable, "-m", "wsmlab.demo", "--build-dir", str(build_dir),
                           "--replay", str(take_out(recorded_lab, tmp_path))], capture_output=True, text=True,
                          timeout=60 * recorded_lab.patience, env={**os.environ, "PYTHONPATH": str(ROOT / "lab")})
    assert done.returncode == 0, done.stderr
    lines = done.stdout.splitlines()
    assert re.fullmatch(r"recorded .* UTC, \d+ records in \d+\.\d s", lines[0])
    assert [line.split(" report ")[1].split()[:3] for line in lines if " report " in line] == \
        [["log", "on", A], ["log", "off", A]]
    assert lines[-1] == "2 reports; the daemon ended cleanly (status 1, as it should)"


def test_messages_that_the_daemon_had_no_room_for_are_recorded_as_their_error(recorded_lab, build_dir, tmp_path):
    recorded_lab.daemon.signal(signal.SIGSTOP)
    recorded_lab.apsim("announce times=5000")
    recorded_lab.daemon.signal(signal.SIGCONT)
    recorded_lab.wait_for_log("Recv msg error. -1 [105]")
    recorded_lab.daemon.stop()
    lines = show(build_dir, take_out(recorded_lab, tmp_path))
    assert any(line.endswith("  netlink  error 105: No buffer space available") for line in lines)


class ByHand:
    """A recording that no daemon made."""

    def __init__(self):
        self.content = HEADER.pack(b"wsm-rec\n", 1, 0x01020304, 0, 0, 0)

    def record(self, kind, seconds, body):
        self.content += struct.pack("<IHHQ", len(body), kind, 0, int(seconds * 1e6)) + body
        return self

    def file(self, number, text):
        return self.record(4, 0, struct.pack("<HH", number, 1) + text)

    def message(self, seconds, datagram):
        return self.record(1, seconds, datagram)

    def write(self, path):
        path.write_bytes(self.content)
        return path


def test_a_device_with_another_number_of_the_family_is_played(lab, tmp_path):
    family = 31
    recording = (ByHand().file(1, b"1700000000 %s 10.9.8.7 anna *\n" % A.encode()).file(4, b"02:aa:bb:cc:dd:ee\n")
                 .file(3, b'{"wireless": {"radiolist": [{"sta_limit_max": 7}], "wireless_path": "/rom/elsewhere"}}')
                 .file(5, b"config wifi-iface\n\toption device 'wifi0'\n\toption ssid 'Far'\n\toption vlanid '77'\n")
                 .message(0.1, announcement(family)).message(0.2, event_message(family + 1, **{**ASSOCIATION, "mac": B}))
                 .record(2, 0.3, struct.pack("<i", 105))
                 .message(0.4, event_message(family, **{**ASSOCIATION, "mac": A, "ssid": "Far"}))
                 .record(8, 6, b"").write(tmp_path / "device.wsr"))
    player = lab.replay(recording)
    report = lab.wait_for_report(mac=A, log_type=1)
    assert (report["ssid"], report["vlanid"], report["ap_mac"][:17]) == ("Far", 77, "02:aa:bb:cc:dd:ee")
    assert "/rom" not in (lab.files / "tk_device/tk_device.json").read_text()
    last = lab.wait_for_replay(player, 30)
    assert lab.online()[A]["ip"] == "10.9.8.7" and set(lab.online()) == {A}  # B's was of another family
    text = player.text()
    assert "not played: receiving failed, No buffer space available" in text
    assert "no answer was recorded to request 5 of 1024 bytes" in text and not last.endswith(" 0 with none")


def test_a_slow_driver_is_as_slow_again(lab, tmp_path):
    request = struct.pack("<iiiIII36s", 5, 0, 0, 700_000, 1024, 0, b"ath0") + b"0"
    recording = (ByHand().message(0.1, announcement(31)).message(0.2, event_message(31, **{**ASSOCIATION, "mac": A}))
                 .record(3, 3, request).record(8, 6, b"").write(tmp_path / "slow.wsr"))
    lab.start_ubusd()
    lab.start_collector()
    player = lab.start_replay(recording)
    lab.start_daemon(record=RECORDING)
    lab.wait_for_replay(player, 30)
    lab.daemon.stop()
    took = [float(re.search(r"after ([\d.]+) ms", line)[1]) for line in show(lab.build_dir, take_out(lab, tmp_path))
            if " request  5 ath0" in line]
    assert took and all(700 <= each < 1400 * lab.patience for each in took)


@pytest.mark.parametrize("content, complaint", [
    (b"", "it is empty"), (b"\x7fELF" + bytes(100), "this is no recording"),
    (HEADER.pack(b"wsm-rec\n", 7, 0x01020304, 0, 0, 0), "version 7"),
    (HEADER.pack(b"wsm-rec\n", 1, 0x04030201, 0, 0, 0), "other byte order"),
    (HEADER.pack(b"wsm-rec\n", 1, 0x01020304, 0, 0, 0) + b"\xff" * 16, "record 1, at byte 40: longer than any record is"),
    (HEADER.pack(b"wsm-rec\n", 1, 0x01020304, 0, 0, 0) + struct.pack("<IHHQ", 2, 99, 0, 0) + b"xx", "cannot be understood"),
], ids=["empty", "other", "version", "order", "length", "kind"])
def test_a_file_that_is_no_recording_is_refused_with_the_reason(lab, tmp_path, content, complaint):
    (tmp_path / "file").write_bytes(content)
    for program, option in (("wsm-record", "--show"), ("wsm-replay", "--files")):
        done = lab.run([program, option, "-"], stdin=content, check=False)
        assert done.status == 1 and complaint in done.stderr and done.stdout == ""
    with pytest.raises(LabError, match=complaint):
        lab.start_replay(tmp_path / "file")


def test_a_full_disk_ends_the_recording_and_nothing_else(lab, tmp_path):
    (lab.files / "small").mkdir()
    lab.run(["mount", "-t", "tmpfs", "-o", "size=16k", "small", "/tmp/small"])
    lab.start_ubusd()
    lab.start_apsim("--tick", "0")
    lab.start_collector()
    lab.start_daemon(record="/tmp/small/recording.wsr")
    lab.wait_for_family()
    lab.apsim("burst n=100")
    lab.wait(lambda: len(lab.online()) == 100, 20, "100 stations")
    assert lab.daemon.text().count("wsm-record: no space left: the recording ends, the program goes on") == 1
    associate(lab, B)  # is reported, too
    assert lab.daemon.stop() == 1
    recording = shutil.copy(lab.files / "small/recording.wsr", tmp_path)
    assert 4_000 < pathlib.Path(recording).stat().st_size <= 16_384
    lines = show(lab.build_dir, recording)
    assert "assoc 02:b0:00:00:00:00" in "".join(lines) and "torn" not in lines[-1]


def test_a_recording_at_its_limit_ends_with_a_whole_record(lab, tmp_path):
    # The kernel's announcement of its controller is some hundred bytes each time.
    program = """import socket, struct
ask = struct.pack("=IHHIIBBHHH8s", 32, 16, 1, 0, 0, 3, 1, 0, 11, 2, b"nlctrl")
with socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 16) as kernel:
    for _ in range(8000):
        kernel.send(ask)
        assert kernel.recv(4096)
print("the program goes on")"""
    done = lab.run(["wsm-record", "--limit", "1", "--output", RECORDING, "/usr/bin/python3", "-c", program],
                   environment=PRELOADING, timeout=60)
    assert done.stdout == "the program goes on\n"
    assert done.stderr == "wsm-record: the limit is reached: the recording ends, the program goes on\n"
    recording = take_out(lab, tmp_path)
    assert 1_000_000 < recording.stat().st_size <= 1 << 20
    assert "torn" not in show(lab.build_dir, recording)[-1]


@pytest.mark.parametrize("options, status, complaint", [
    (["--output", RECORDING], 2, "which program?"), (["wsmd"], 2, "one of --output and --show"),
    (["--output", RECORDING, "--show", RECORDING, "wsmd"], 2, "one of --output and --show"),
    (["--limit", "0", "--output", RECORDING, "wsmd"], 2, "--limit: whole MiB"),
    (["--output", "/nowhere/file", "wsmd"], 1, "/nowhere/file: No such file or directory"),
    (["--output", "/etc/config/wsmd", "wsmd"], 1, "/etc/config/wsmd: File exists"),
    (["--output", RECORDING, "/nowhere/wsmd"], 1, "/nowhere/wsmd: No such file or directory"),
    (["--show", "/nowhere/file"], 1, "/nowhere/file: No such file or directory")])
def test_what_cannot_be_done_is_said(lab, options, status, complaint):
    done = lab.run(["wsm-record", *options], check=False)
    assert done.status == status and complaint in done.stderr
    assert not (lab.root / RECORDING[1:]).exists()
