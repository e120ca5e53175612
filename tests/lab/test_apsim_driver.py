"""The driver simulator's answers to driver requests, byte for byte."""

import struct

import formats
import pytest

from programs import connect

MAC = "02:00:00:00:00:01"
COUNT, TABLE = 5, 1
EINVAL, EIO, ENOENT, EOPNOTSUPP = 22, 5, 2, 95


def ask(apsim, command, payload, ifname="ath0", argument=0):
    """One driver request; (result, bytes of the answer)."""
    with connect(apsim.driver) as peer:
        peer.sendall(struct.pack("<iiI36s", command, argument, len(payload), ifname.encode()) + payload)
        answer = b""
        while chunk := peer.recv(65536):
            answer += chunk
    result, size = struct.unpack_from("<iI", answer)
    assert len(answer) == 8 + size
    return result, answer[8:]


def table_request(count, mask):
    size = (160 if mask & 1 else 0) + (224 if mask & 2 else 0)
    return struct.pack("<II8x", count, mask) + bytes(count * size)


def roam_delete(mac, radio):
    return struct.pack("<20si", mac.encode(), radio)


def test_the_count_is_text_at_the_front_of_the_buffer(apsim):
    assert ask(apsim, 5, bytes(1024)) == (0, b"0" + bytes(1023))
    apsim.ok("burst n=12 ifname=ath0")
    apsim.ok(f"assoc mac={MAC} ifname=ath1")
    assert ask(apsim, 5, b"\xff" * 1024) == (0, b"12" + bytes(1022))
    assert ask(apsim, 5, bytes(1024), "ath1") == (0, b"1" + bytes(1023))
    assert ask(apsim, 5, bytes(1024), "eth0") == (0, b"0" + bytes(1023))
    assert ask(apsim, 5, bytes(1)) == (0, b"1"), "cut to the buffer"


def test_the_count_can_be_a_lie_and_any_text(apsim):
    apsim.ok("count ifname=ath0 n=-3")
    apsim.ok(f"count ifname=ath1 n={'9' * 1024}")
    assert ask(apsim, 5, bytes(1024)) == (0, b"-3" + bytes(1022))
    assert ask(apsim, 5, bytes(1024), "ath1") == (0, b"9" * 1024)
    apsim.ok("count ifname=ath0 off")
    assert ask(apsim, 5, bytes(1024)) == (0, b"0" + bytes(1023))


BASIC = {  # field: offset, format, value
    "tx_time": (72, "<i", -72), "floornoise": (80, "<i", -80), "utilization": (84, "<i", 84),
    "maxRate": (88, "<I", 0xfffffff8), "rx_rate": (92, "<I", 92), "tx_rate": (96, "<I", 96),
    "rx_bytes": (104, "<Q", 0xf000000000000104), "tx_bytes": (112, "<Q", 112), "channel": (120, "<i", 120),
    "is_reassoc": (124, "<b", 1), "rssi": (125, "<b", -25), "online_time": (128, "<i", 128),
    "chain_rssi0": (132, "<b", -32), "chain_rssi1": (133, "<b", -33), "chain_rssi2": (134, "<b", -34),
    "chain_rssi3": (135, "<b", -35), "psm": (140, "<i", 140),
}
EXTENDED = {
    "txper": (0, "<I", 1000), "rxper": (4, "<I", 1004), "supportSTBC": (8, "<B", 8), "supportSGI": (9, "<B", 9),
    "maxMCS": (10, "<B", 10), "maxBW": (11, "<B", 11), "FCAP": (12, "<B", 12), "fromDS": (13, "<B", 13),
    "toDS": (14, "<B", 14), "cost_assoc_req": (16, "<I", 16), "cost_auth_req": (20, "<I", 20),
    "cost_msg2": (24, "<I", 24), "cost_msg4": (28, "<I", 28), "onesecrxbyte": (32, "<I", 32),
    "onesectxbyte": (36, "<I", 36), "txBcast": (40, "<I", 40), "txMcast": (48, "<I", 48), "txPkt": (56, "<I", 56),
    "ap_auth_req": (64, "32s", b"t64"), "ap_assoc_req": (96, "32s", b"t96"), "key_start": (128, "32s", b"t128"),
    "key_msg2": (160, "32s", b"t160"), "key_end": (192, "32s", b"t" * 32),
}


def entry(size, fields):
    data = bytearray(size)
    for offset, form, value in fields.values():
        struct.pack_into(form, data, offset, value)
    return data


def expected_basic(mac, ssid=b"Lobby", ifname=b"ath0"):
    data = entry(160, BASIC)
    data[4:10] = formats.mac_bytes(mac)
    data[16:49] = ssid.ljust(33, b"\0")
    data[49:72] = ifname.ljust(23, b"\0")
    return bytes(data)


def as_arguments(fields):
    return " ".join(f"{name}={value.decode() if isinstance(value, bytes) else value}"
                    for name, (_, _, value) in fields.items())


@pytest.fixture
def two_stations(apsim):
    for last in (1, 2):
        apsim.ok(f"assoc mac=02:00:00:00:00:0{last} {as_arguments(BASIC)} {as_arguments(EXTENDED)}")
    return apsim


def test_both_sections_of_a_table_hold_every_field_in_its_place(two_stations):
    result, answer = ask(two_stations, 1, table_request(2, 3))
    assert result == 0
    assert answer[:16] == struct.pack("<II8x", 2, 3)
    assert answer[16:336] == expected_basic(MAC) + expected_basic("02:00:00:00:00:02")
    assert answer[336:] == bytes(entry(224, EXTENDED)) * 2


def test_a_table_of_basic_entries_ends_after_them(two_stations):
    assert ask(two_stations, 1, table_request(2, 1)) == \
        (0, struct.pack("<II8x", 2, 1) + expected_basic(MAC) + expected_basic("02:00:00:00:00:02"))


def test_a_table_of_extended_entries_starts_with_them(two_stations):
    assert ask(two_stations, 1, table_request(1, 2)) == (0, struct.pack("<II8x", 1, 2) + bytes(entry(224, EXTENDED)))


def test_room_that_no_station_needs_stays_zero(two_stations):
    result, answer = ask(two_stations, 1, table_request(3, 3))
    assert result == 0
    assert answer[:16] == struct.pack("<II8x", 2, 3), "two entries are filled"
    assert answer[336:496] == bytes(160)
    assert answer[496:944] == bytes(entry(224, EXTENDED)) * 2
    assert answer[944:] == bytes(224)


def test_with_less_room_than_stations_the_first_ones_are_told(two_stations):
    assert ask(two_stations, 1, table_request(1, 1)) == (0, struct.pack("<II8x", 1, 1) + expected_basic(MAC))


def test_the_number_of_filled_entries_can_be_a_lie(two_stations):
    two_stations.ok("num n=4294967295")
    assert ask(two_stations, 1, table_request(2, 1))[1][:8] == b"\xff\xff\xff\xff\1\0\0\0"
    two_stations.ok("num off")
    assert ask(two_stations, 1, table_request(2, 1))[1][:8] == b"\2\0\0\0\1\0\0\0"


def test_both_networks_of_a_radio_are_in_the_answer_to_either(apsim):
    apsim.ok(f"assoc mac={MAC} ifname=ath0")
    apsim.ok("assoc mac=02:00:00:00:00:02 ifname=ath01")
    apsim.ok("assoc mac=02:00:00:00:00:03 ifname=ath1")
    for ifname in ("ath0", "ath01"):
        result, answer = ask(apsim, COUNT, bytes(1024), ifname)
        assert (result, answer[:2]) == (0, b"2\0")
        _, answer = ask(apsim, TABLE, table_request(2, 1), ifname)
        assert [answer[at + 49:at + 55].rstrip(b"\0") for at in (16, 176)] == [b"ath0", b"ath01"]


def test_a_long_network_name_fills_the_entrys_field(apsim):
    apsim.ok(f"assoc mac={MAC} ssid={'n' * 130} {as_arguments(BASIC)}")
    _, answer = ask(apsim, 1, table_request(1, 1))
    assert answer[16:] == expected_basic(MAC, ssid=b"n" * 33)


@pytest.mark.parametrize("request_bytes", [
    b"", bytes(15), table_request(2, 3)[:-1], struct.pack("<II8x", 0xffffffff, 3), table_request(1, 0),
    struct.pack("<II8x", 1, 1)], ids=["empty", "short", "one byte short", "lying", "no section", "no room"])
def test_a_table_request_of_the_wrong_size_is_refused(two_stations, request_bytes):
    assert ask(two_stations, 1, request_bytes) == (-EINVAL, b"")


def test_an_unknown_request_is_not_supported(apsim):
    assert ask(apsim, 77, bytes(8)) == (-EOPNOTSUPP, b"")


def test_a_dropped_station_is_said_to_have_gone_from_that_radio(apsim):
    listener = apsim.listener()
    apsim.ok(f"assoc mac={MAC} ifname=ath0")
    listener.record()
    apsim.ok(f"roam mac={MAC} ifname=ath1")
    listener.record()
    assert ask(apsim, 4, roam_delete(MAC, 0))[0] == 0
    record = listener.record()
    assert record[:4] == bytes(4)
    assert record[154:159] == b"ath0\0"
    assert struct.unpack_from("<i", record, 176) == (310,)
    assert [one["ifname"] for one in apsim.list()] == ["ath1"]


def test_dropping_a_station_that_is_not_there_fails_and_says_nothing(apsim):
    listener = apsim.listener()
    apsim.ok(f"assoc mac={MAC} ifname=ath0")
    listener.record()
    assert ask(apsim, 4, roam_delete(MAC, 1)) == (-ENOENT, b"")
    assert ask(apsim, 4, roam_delete("02:00:00:00:00:02", 0)) == (-ENOENT, b"")
    assert ask(apsim, 4, bytes(23)) == (-EINVAL, b"")
    assert listener.nothing_waits()
    assert len(apsim.list()) == 1


def test_requests_fail_as_often_as_they_are_told_to(apsim):
    apsim.ok("fail cmd=5 times=2")
    assert [ask(apsim, 5, bytes(4))[0] for _ in range(3)] == [-EIO, -EIO, 0]
    apsim.ok("fail cmd=5")
    assert [ask(apsim, 5, bytes(4))[0] for _ in range(3)] == [-EIO, -EIO, -EIO]
    assert ask(apsim, 1, table_request(1, 1))[0] == 0, "another command"
    apsim.ok("fail off")
    assert ask(apsim, 5, bytes(4))[0] == 0


def test_requests_are_logged_with_what_they_asked(apsim):
    ask(apsim, 5, bytes(1024))
    ask(apsim, 1, table_request(3, 3), "ath1")
    ask(apsim, 4, roam_delete(MAC, 1), "ath0", argument=9)
    assert apsim.log() == [
        {"cmd": 5, "arg": 0, "size": 1024, "ifname": "ath0", "result": 0},
        {"cmd": 1, "arg": 0, "size": 1168, "ifname": "ath1", "result": 0, "num": 3, "sections": 3},
        {"cmd": 4, "arg": 9, "size": 24, "ifname": "ath0", "result": -ENOENT, "mac": MAC, "radio": 1},
    ]
    apsim.ok("log clear")
    assert apsim.log() == []


def test_a_request_in_pieces_is_put_together_and_others_are_served_meanwhile(apsim):
    with connect(apsim.driver) as slow:
        request = struct.pack("<iiI36s", 5, 0, 4, b"ath0") + bytes(4)
        slow.sendall(request[:30])
        assert ask(apsim, 5, bytes(4)) == (0, b"0\0\0\0")
        slow.sendall(request[30:])
        assert slow.recv(64) == struct.pack("<iI", 0, 4) + b"0\0\0\0"


def test_a_request_that_claims_to_be_endless_is_hung_up_on(apsim):
    with connect(apsim.driver) as peer:
        peer.sendall(struct.pack("<iiI36s", 5, 0, 0xffffffff, b"ath0"))
        assert peer.recv(64) == b""
    assert apsim.log() == []
