"""The driver simulator's figures, its population, its lease file, and the program itself."""

import json
import struct
import subprocess

import pytest

from programs import connect, wait

MAC = "02:00:00:00:00:01"
FAST = ("--tick", "20")


def test_figures_move_as_time_goes_by(open_apsim):
    apsim = open_apsim(*FAST)
    apsim.ok(f"assoc mac={MAC}")
    before = apsim.list()[0]
    after = wait(lambda: (now := apsim.list()[0])["online_time"] > 50 and now, "fifty seconds of simulated time")
    assert after["rx_bytes"] > before["rx_bytes"] and after["tx_bytes"] > before["tx_bytes"]
    assert after["txPkt"] > before["txPkt"]
    moved = {name for name in before if before[name] != after[name]}
    assert moved >= {"rx_bytes", "tx_bytes", "txPkt", "onesecrxbyte", "onesectxbyte", "online_time"}
    assert -60 <= after["rssi"] <= -40, "around where it was"
    assert not moved & {"mac", "ssid", "ifname", "radio", "channel", "maxRate", "cost_msg2", "key_end"}


def test_figures_set_by_hand_stay(open_apsim):
    apsim = open_apsim(*FAST)
    by_hand = {"rssi": -77, "rx_bytes": 5, "floornoise": -90, "utilization": 11, "tx_rate": 3}
    apsim.ok(f"assoc mac={MAC} rssi=-77 rx_bytes=5")
    apsim.ok(f"set mac={MAC} floornoise=-90 utilization=11 tx_rate=3")
    now = wait(lambda: (now := apsim.list()[0])["online_time"] > 20 and now, "twenty seconds of simulated time")
    assert {name: now[name] for name in by_hand} == by_hand
    assert now["tx_bytes"] > 0, "the others move on"


def test_a_table_has_per_cent_of_the_channel_and_an_event_a_share_of_255(apsim):
    listener = apsim.listener()
    apsim.ok(f"assoc mac={MAC} ifname=ath0 radio=0")
    assert (listener.record()[0], apsim.list()[0]["utilization"]) == (1, 23)
    apsim.ok("pass seconds=100")
    busy = apsim.list()[0]["utilization"]
    assert 1 <= busy <= 86
    apsim.ok(f"disassoc mac={MAC}")
    assert struct.unpack_from("<i", listener.record(), 192)[0] * 100 // 255 == busy, "what the daemon makes of it"


def test_time_that_stands_still_passes_when_it_is_told_to(apsim):
    apsim.ok("population n=16 seed=3")
    assert apsim.status()["population"] == 0
    assert apsim.ok("pass seconds=10") == "events=0", "nobody heard of anybody"
    assert apsim.status()["population"] > 12
    before = apsim.list()[0]
    apsim.ok("pass seconds=30")
    assert apsim.list()[0]["online_time"] == before["online_time"] + 30


def test_what_listeners_were_told_can_be_asked_for(apsim):
    apsim.ok(f"assoc mac={MAC}")  # nobody listens
    listener = apsim.listener()
    apsim.ok(f"roam mac={MAC} ifname=ath1")
    apsim.ok(f"disassoc mac={MAC} ifname=ath01 radio=0 is_reassoc=2")
    assert [listener.record()[0] for _ in range(2)] == [1, 0]
    told = [{"assoc": 1, "mac": MAC, "ifname": "ath1", "radio": 1, "is_reassoc": 1},
            {"assoc": 0, "mac": MAC, "ifname": "ath01", "radio": 0, "is_reassoc": 2}]
    assert json.loads(apsim.ok("events clear")) == told
    assert json.loads(apsim.ok("events")) == []
    assert apsim.ok("pass seconds=1") == "events=2"


def test_of_many_events_the_newest_are_kept(apsim):
    listener = apsim.listener()  # whether it reads does not matter
    apsim.ok("burst n=10001")
    told = json.loads(apsim.ok("events"))
    assert (len(told), told[0]["mac"], told[-1]["mac"]) == (10000, "02:b0:00:00:00:01", "02:b0:00:00:27:10")
    assert listener.event()


def test_all_clients_associate_again_where_they_are(apsim):
    apsim.ok(f"assoc mac={MAC} rssi=-61")
    apsim.ok("assoc mac=02:00:00:00:00:02 ifname=ath1")
    apsim.ok(f"roam mac={MAC} ifname=ath1")  # radio 0 has not been told
    listener, before = apsim.listener(), apsim.list()
    assert apsim.ok("again") == "listeners=1"
    told = json.loads(apsim.ok("events"))
    assert [(one["mac"], one["ifname"], one["assoc"], one["is_reassoc"]) for one in told] == [
        ("02:00:00:00:00:02", "ath1", 1, 1), (MAC, "ath1", 1, 1)]
    assert listener.record()[0] == 1
    assert apsim.list() == before


def test_a_population_comes_roams_and_leaves(open_apsim):
    apsim = open_apsim("--tick", "2")
    listener = apsim.listener()
    apsim.ok("population n=40 seed=7")
    seen = {"come": 0, "roamed": 0, "gone": 0}
    while not all(seen.values()) or seen["come"] < 40:
        record = listener.record()
        kind = "gone" if record[0] == 0 else "roamed" if record[236] == 1 else "come"
        seen[kind] += 1
    wait(lambda: apsim.status()["population"] >= 38, "others to come in the place of those who left")
    apsim.ok("population n=0")
    assert apsim.status()["population"] == 0
    assert apsim.list() == []
    assert apsim.leases.read_text() == ""


def test_the_same_seed_makes_the_same_people_come_in_the_same_way(open_apsim, tmp_path):
    def arrivals(name, seed):
        folder = tmp_path / name
        folder.mkdir()
        apsim = open_apsim("--tick", "2", folder=folder)
        listener = apsim.listener()
        apsim.ok(f"population n=30 seed={seed}")
        events = [listener.record() for _ in range(60)]
        return [(event[:140], event[144:148], event[237]) for event in events]  # all but the time: who, where, how strong
    first = arrivals("one", 5)
    assert arrivals("two", 5) == first
    assert arrivals("three", 6) != first


def test_one_in_four_of_a_population_is_a_guest_wherever_it_roams(open_apsim):
    apsim = open_apsim(*FAST)
    apsim.ok("population n=24 seed=3 guests=4")
    apsim.ok("pass seconds=60")

    def numbers(*ifnames):
        return {int(one["mac"][-2:], 16) for one in apsim.list() if one["ifname"] in ifnames}
    guests = {number for number in range(1, 256) if number % 4 == 0}
    assert numbers("ath01", "ath11") and numbers("ath01", "ath11") <= guests
    assert numbers("ath0", "ath1") and not numbers("ath0", "ath1") & guests
    assert {one["ssid"] for one in apsim.list() if one["ifname"] in ("ath01", "ath11")} == {"Lobby Guest"}


def test_a_population_has_leases_with_addresses_and_names_of_its_own(open_apsim):
    apsim = open_apsim(*FAST, "--population", "25")
    wait(lambda: apsim.status()["population"] == 25, "everybody to come")
    rows = wait(lambda: len(rows := [line.split() for line in apsim.leases.read_text().splitlines()]) == 25 and rows,
                "all leases")
    assert all(len(row) == 5 and row[1] == row[4][3:] for row in rows)
    assert len({row[2] for row in rows}) == 25
    assert len({row[3] for row in rows}) == 25
    assert {row[1] for row in rows} >= {one["mac"] for one in apsim.list()}


def test_a_lease_is_written_and_withdrawn(apsim):
    apsim.ok(f"lease mac={MAC} ip=192.168.1.9 name=anna-phone")
    expiry, *rest = apsim.leases.read_text().split(" ")
    assert expiry.isdigit()
    assert rest == [MAC, "192.168.1.9", "anna-phone", f"01:{MAC}\n"]
    apsim.ok(f"lease mac={MAC} ip=192.168.1.10 name=*")
    assert f"{MAC} 192.168.1.10 * 01" in apsim.leases.read_text()
    apsim.ok(f"lease mac={MAC} off")
    assert apsim.leases.read_text() == ""


def test_a_lease_file_that_cannot_be_written_is_an_error(open_apsim, tmp_path):
    apsim = open_apsim("--leases", str(tmp_path / "nowhere/leases"))
    assert apsim(f"lease mac={MAC} ip=1.2.3.4 name=x") == \
        f"error cannot write {tmp_path}/nowhere/leases: No such file or directory"


def test_several_commands_may_come_at_once_and_in_pieces(apsim):
    with connect(apsim.control) as peer:
        peer.sendall(b"help\nstatus\nlist\nbo")
        answers = peer.makefile("r", encoding="utf-8")
        assert [answers.readline().split(" ")[0] for _ in range(3)] == ["ok"] * 3
        peer.sendall(b"gus\r\nlist\r\n")
        assert answers.readline() == "error unknown command; try help\n"
        assert answers.readline() == "ok []\n"


def test_a_line_without_end_is_hung_up_on(apsim):
    with connect(apsim.control) as peer:
        peer.sendall(b"x" * (1024 * 1024 + 1))
        assert peer.makefile("rb").read() == b"error the line is too long\n"
    apsim.ok("list")


def test_any_bytes_are_answered_with_an_error(apsim):
    with connect(apsim.control) as peer:
        peer.sendall(bytes(byte for byte in range(256) if byte != 10) + b"\n")
        assert peer.makefile("rb").readline().startswith(b"error ")


def test_a_connection_closed_in_the_middle_of_a_line_is_ignored(apsim):
    for _ in range(50):
        connect(apsim.control).close()
        with connect(apsim.control) as peer:
            peer.sendall(b"lis")
    assert apsim.list() == []


def test_it_ends_on_a_signal_and_takes_its_sockets_with_it(apsim):
    assert apsim.program.stop() == 0
    assert not apsim.control.exists() and not apsim.driver.exists()


def test_a_socket_that_somebody_serves_is_not_taken_away(apsim, build_dir, tmp_path):
    done = subprocess.run([build_dir / "bin/apsim", "--control", tmp_path / "other", "--socket", apsim.driver],
                          capture_output=True, text=True, timeout=30, check=False)
    assert (done.returncode, done.stderr) == (1, f"apsim: {apsim.driver}: somebody listens there already\n")
    apsim.ok("list")


def test_a_socket_that_was_left_behind_is_replaced(open_apsim):
    first = open_apsim()
    first.program.stop(9)
    assert first.control.is_socket()
    open_apsim().ok("list")


@pytest.mark.parametrize("make", [lambda path: path.mkdir(), lambda path: path.write_text("precious")],
                         ids=["folder", "file"])
def test_what_is_no_socket_is_left_alone(build_dir, tmp_path, make):
    path = tmp_path / "taken"
    make(path)
    done = subprocess.run([build_dir / "bin/apsim", "--socket", tmp_path / "was", "--control", path],
                          capture_output=True, text=True, timeout=30, check=False)
    assert (done.returncode, done.stderr) == (1, f"apsim: {path}: not a socket\n")
    assert path.exists() and not (tmp_path / "was").exists()


@pytest.mark.parametrize("arguments, message", [
    (["--bogus"], "unknown option"), (["extra"], "no arguments are expected"), (["--seed", "x"], "--seed"),
    (["--family", "1023"], "--family"), (["--family", "65536"], "--family"), (["--tick", "-1"], "--tick"),
    (["--population", "10001"], "--population"), (["--seed"], "unknown option")])
def test_wrong_usage_is_status_2(build_dir, arguments, message):
    done = subprocess.run([build_dir / "bin/apsim", *arguments], capture_output=True, text=True, timeout=30, check=False)
    assert done.returncode == 2
    assert message in done.stderr and "usage: apsim" in done.stderr


def test_help_is_status_0(build_dir):
    done = subprocess.run([build_dir / "bin/apsim", "--help"], capture_output=True, text=True, timeout=30, check=False)
    assert done.returncode == 0 and done.stdout.startswith("usage: apsim")
