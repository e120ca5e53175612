"""The driver simulator's netlink side: what a listener of the station-event family sees."""

import struct

import formats
import pytest

from programs import wait

MAC = "02:00:00:00:00:01"

# Twenty-byte header, attribute 2 "TK_STA", attribute 1 with the identifier 2000.
ANNOUNCEMENT = bytes.fromhex("28000000 1000 0000 00000000 00000000 01 02 0000"
                             "0b00 0200 544b5f53544100 00"
                             "0600 0100 d007 0000")


def field(record, name):
    offset, form = formats.EVENT[name]
    (value,) = struct.unpack_from(form, record, offset)
    return value.split(b"\0")[0] if isinstance(value, bytes) and name != "mac" else value


def test_a_new_listener_gets_the_announcement(apsim):
    assert apsim.listener().message() == ANNOUNCEMENT


def test_a_restarted_listener_gets_one_of_its_own(apsim):
    first = apsim.listener()
    assert first.message() == ANNOUNCEMENT
    first.socket.close()
    assert apsim.listener().message() == ANNOUNCEMENT


def test_announcing_under_another_number_changes_it_for_the_events_too(apsim):
    listener = apsim.listener()
    listener.message()
    assert apsim("announce id=4660") == "ok id=4660"
    assert listener.message() == ANNOUNCEMENT[:36] + b"\x34\x12\0\0"
    apsim.ok(f"assoc mac={MAC}")
    assert listener.message()[4:6] == b"\x34\x12"


def test_it_announces_as_often_as_it_is_told(apsim):
    listener = apsim.listener()
    listener.message()
    apsim.ok("announce times=5")
    assert [listener.message() for _ in range(5)] == [ANNOUNCEMENT] * 5
    assert listener.nothing_waits()


def test_an_event_is_one_message_of_488_bytes_to_each_listener(apsim):
    listeners = [apsim.listener(), apsim.listener()]
    assert apsim(f"assoc mac={MAC}") == "ok listeners=2"
    for listener in listeners:
        message = listener.event()
        # length, type 2000, no flags, sequence, port; command 2, version 1; attribute 1 of 468 bytes
        assert message[:24] == bytes.fromhex("e8010000 d007 0000 00000000 00000000 02 01 0000 d401 0100")
        assert len(message) == 488


EVERY_FIELD = {
    "assoc": 1, "mac": "02:aa:bb:cc:dd:ee", "ssid": "Lobby 2", "time_stamp": 1700000001, "radio_id": 1,
    "ifname": "ath11", "off_reason_code": -5, "time_delay": 6, "floornoise": -97, "utilization": 255, "maxRate": 866,
    "version": "11axx", "sta_rxrate": 12, "sta_txrate": 13, "sta_rxbyte": 14000000000000000000, "sta_txbyte": 15,
    "channel": 149, "is_reassoc": 2, "rssi": -95, "roam_enable": 17, "repeater": 1, "txper": 18, "rxper": 19,
    "supportSTBC": 20, "supportSGI": 21, "maxMCS": 22, "maxBW": 23, "FCAP": 24, "fromDS": 25, "toDS": 255,
    "cost_assoc_req": 27, "cost_auth_req": 28, "cost_msg2": 29, "cost_msg4": 30, "onesecrxbyte": 31,
    "onesectxbyte": 32, "txBcast": 33, "txMcast": 34, "txPkt": 4294967295, "ap_auth_req": "a36", "ap_assoc_req": "b37",
    "key_start": "c38", "key_msg2": "d39", "key_end": "e40",
}


def as_arguments(fields):
    return " ".join(f'{name}="{value}"' if isinstance(value, str) else f"{name}={value}"
                    for name, value in fields.items())


def test_every_field_of_an_event_can_be_given_and_lands_in_its_place(apsim):
    assert EVERY_FIELD.keys() == formats.EVENT.keys()
    given = {name: value for name, value in EVERY_FIELD.items() if name not in ("assoc", "radio_id")}
    listener = apsim.listener()
    apsim.ok(f"assoc {as_arguments(given)} radio=1")
    assert listener.record() == formats.event(**EVERY_FIELD)
    given["off_reason_code"] = 307
    apsim.ok(f"disassoc {as_arguments(given)} radio=1")
    assert listener.record() == formats.event(**dict(EVERY_FIELD, assoc=0, off_reason_code=307))


def test_a_text_may_fill_its_field_without_a_terminator(apsim):
    listener = apsim.listener()
    apsim.ok(f"assoc mac={MAC} ssid={'s' * 130} ap_auth_req={'t' * 32}")
    record = listener.record()
    assert record[10:140] == b"s" * 130
    assert record[304:336] == b"t" * 32
    assert apsim(f"assoc mac={MAC} ssid={'s' * 131}") == "error ssid: longer than the field"
    assert apsim(f"assoc mac={MAC} ap_auth_req={'t' * 33}") == "error ap_auth_req: longer than the field"


def test_a_quoted_text_may_hold_any_byte(apsim):
    listener = apsim.listener()
    apsim.ok(f'assoc mac={MAC} ssid="a b\\"\\\\\\x01\\xff%n\\n" key_end="x y"')
    record = listener.record()
    assert field(record, "ssid") == b'a b"\\\x01\xff%n\n'
    assert apsim.list()[0]["ssid"] == 'a b"\\\\\\x01\\xff%n\\n', "escaped, as in a log"


def test_interface_and_radio_follow_from_each_other(apsim):
    listener = apsim.listener()
    for given, ifname, radio in [("", b"ath0", 0), ("radio=1", b"ath1", 1), ("ifname=ath1", b"ath1", 1),
                                 ("ifname=ath01", b"ath01", 0), ("ifname=wl radio=7", b"wl", 7)]:
        apsim.ok(f"assoc mac={MAC} {given}")
        record = listener.record()
        assert (field(record, "ifname"), field(record, "radio_id")) == (ifname, radio)


def test_a_departure_carries_the_last_figures_and_ends_the_association(apsim):
    listener = apsim.listener()
    apsim.ok(f"assoc mac={MAC} rssi=-61 ssid=Guest")
    listener.record()
    apsim.ok(f"set mac={MAC} rx_bytes=1000 tx_bytes=2000 rx_rate=3 tx_rate=4 txper=5 cost_msg4=6 tx_time=7999")
    apsim.ok(f"disassoc mac={MAC} reason=301")
    record = listener.record()
    expected = {"assoc": 0, "ssid": b"Guest", "ifname": b"ath0", "off_reason_code": 301, "rssi": -61,
                "sta_rxbyte": 1000, "sta_txbyte": 2000, "sta_rxrate": 3072, "sta_txrate": 4096, "txper": 5,
                "cost_msg4": 6, "time_delay": 7}
    assert {name: field(record, name) for name in expected} == expected
    assert apsim.list() == []


def test_a_departure_of_an_unknown_station_is_sent_too(apsim):
    listener = apsim.listener()
    apsim.ok(f"assoc mac={MAC}")
    listener.record()
    apsim.ok(f"disassoc mac={MAC} ifname=ath1")
    assert field(listener.record(), "ifname") == b"ath1"
    assert len(apsim.list()) == 1, "it was never on that interface"
    apsim.ok("disassoc mac=02:00:00:00:00:99")
    assert field(listener.record(), "mac") == bytes.fromhex("020000000099")


def test_a_station_that_roams_stays_on_the_old_radio_until_that_is_told(apsim):
    listener = apsim.listener()
    apsim.ok(f"assoc mac={MAC} ifname=ath0")
    assert field(listener.record(), "is_reassoc") == 0
    apsim.ok(f"roam mac={MAC} radio=1")
    record = listener.record()
    assert (field(record, "assoc"), field(record, "ifname"), field(record, "is_reassoc")) == (1, b"ath1", 1)
    assert [one["radio"] for one in apsim.list()] == [0, 1]


def test_a_forgotten_station_goes_without_a_word(apsim):
    listener = apsim.listener()
    apsim.ok(f"assoc mac={MAC}")
    listener.record()
    apsim.ok(f"forget mac={MAC}")
    assert apsim.list() == []
    assert listener.nothing_waits()


def test_raw_bytes_are_sent_as_they_are(apsim):
    listener = apsim.listener()
    listener.message()
    apsim.ok("raw hex=00ffE803")
    assert listener.message() == b"\0\xff\xe8\x03"
    for bad in ("raw hex=0", "raw hex=0g", "raw hex=", "raw"):
        assert apsim(bad).startswith("error"), bad


def test_a_burst_reaches_a_listener_that_reads_late_whole_and_in_order(apsim):
    listener = apsim.listener()
    listener.message()
    apsim.ok("burst n=700")
    assert apsim.status()["queued"] > 0, "more than a socket holds"
    macs = [field(listener.record(), "mac") for _ in range(700)]
    assert macs == [bytes([2, 0xb0, 0, 0, n >> 8, n & 255]) for n in range(700)]
    assert apsim.status()["stations"] == 700
    apsim.ok("burst n=700 leave")
    assert {field(listener.record(), "assoc") for _ in range(700)} == {0}
    wait(lambda: apsim.status()["queued"] == 0, "the queue to empty")
    status = apsim.status()
    assert (status["stations"], status["lost"], status["sent"]) == (0, 0, 1401)


def test_a_listener_that_dies_in_a_burst_holds_nobody_up(apsim):
    dying, living = apsim.listener(), apsim.listener()
    apsim.ok("burst n=400")
    dying.socket.close()
    for _ in range(400):
        living.record()
    wait(lambda: apsim.status()["queued"] == 0, "the queue to empty")
    assert apsim.status()["lost"] > 0


def test_without_a_listener_events_go_nowhere(apsim):
    assert apsim(f"assoc mac={MAC}") == "ok listeners=0"
    assert len(apsim.list()) == 1


@pytest.mark.parametrize("line, answer", [
    ("", "unknown command; try help"),
    ("bogus", "unknown command; try help"),
    ("assoc", "mac is missing"),
    ("assoc mac=02:00:00:00:00", "mac: six octets like 02:00:00:00:00:01"),
    ("assoc mac=02-00-00-00-00-01", "mac: six octets like 02:00:00:00:00:01"),
    ("assoc mac=0g:00:00:00:00:01", "mac: six octets like 02:00:00:00:00:01"),
    (f"assoc mac={MAC} mac={MAC}", "mac is given twice"),
    (f"assoc mac={MAC} rssi=-129", "rssi: out of the field's range"),
    (f"assoc mac={MAC} FCAP=-1", "FCAP: out of the field's range"),
    (f"assoc mac={MAC} FCAP=256", "FCAP: out of the field's range"),
    (f"assoc mac={MAC} rssi=", "rssi: not a whole number"),
    (f"assoc mac={MAC} rssi=5x", "rssi: not a whole number"),
    (f"assoc mac={MAC} rssi=1.5", "rssi: not a whole number"),
    (f"assoc mac={MAC} colour=red", "unknown field colour"),
    (f"assoc mac={MAC} radio=x", "radio: not a whole number from -2147483648 to 2147483647"),
    (f"assoc mac={MAC} ifname={'i' * 21}", "ifname: longer than the field"),
    (f'assoc mac={MAC} ssid="open', "a quotation mark is missing"),
    (f'assoc mac={MAC} ssid="\\q"', 'a backslash needs one of " \\ n r t xNN behind it'),
    (f'assoc mac={MAC} ssid="\\x1"', 'a backslash needs one of " \\ n r t xNN behind it'),
    (f'assoc mac={MAC} ssid="\\', 'a backslash needs one of " \\ n r t xNN behind it'),
    (f'assoc mac={MAC} =x', "a value needs a name before it"),
    (f'assoc mac={MAC} a"b"', "a value needs a name before it"),
    ("roam mac=02:00:00:00:00:99 radio=1", "no such station"),
    ("set mac=02:00:00:00:00:99 rssi=1", "no such station"),
    ("forget mac=02:00:00:00:00:99", "no such station"),
    ("announce id=1023", "id: not a whole number from 1024 to 65535"),
    ("announce id=65536", "id: not a whole number from 1024 to 65535"),
    ("burst", "n is missing"),
    ("burst n=0", "n: not a whole number from 1 to 60000"),
    ("fail", "cmd is missing"),
    ("fail cmd=x", "cmd: not a whole number from 0 to 2147483647"),
    ("count n=3", "ifname is missing"),
    ("list now", "unknown argument now"),
    ("population n=-1", "n: not a whole number from 0 to 10000"),
    ("lease mac=02:00:00:00:00:01 ip=1.2.3.4", "name is missing"),
    ('lease mac=02:00:00:00:00:01 ip=1.2.3.4 name="a\\nb"', "a lease is one line"),
])
def test_a_bad_command_is_answered_with_what_is_wrong(apsim, line, answer):
    assert apsim(line) == f"error {answer}"
    assert apsim.list() == []


def test_setting_several_fields_is_all_or_nothing(apsim):
    apsim.ok(f"assoc mac={MAC} rssi=-40 channel=6")
    assert apsim(f"set mac={MAC} channel=11 rssi=1000") == "error rssi: out of the field's range"
    assert apsim(f"set mac={MAC}") == "error which field?"
    assert apsim(f"set mac={MAC} ifname=ath1") == "error ifname: use roam"
    assert apsim.list()[0]["channel"] == 6
