#!/usr/bin/env python3
"""Writes the seeds of the daemon's fuzz targets into corpus/, named after what they contain.

Inputs there that once made a target fail are left alone.
"""

import json
import pathlib
import re
import struct
import sys
import zlib

FUZZ = pathlib.Path(__file__).resolve().parent
GOLDEN = FUZZ.parent / "golden"
sys.path[:0] = [str(FUZZ.parent / "system"), str(FUZZ.parent / "base/libubus")]

from driver import ASSOCIATION  # noqa: E402
from formats import REPORT, REPORT_SIZE, announcement, event_message  # noqa: E402
from ubus_wire import int32, string, table  # noqa: E402

FAMILY = 0x1C
ONLINE, ADDED, REPEATER = "02:00:00:00:00:0a", "02:00:00:00:00:0b", "02:00:00:00:00:0c"


def seed(target, name, data):
    folder = FUZZ / "corpus" / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(data.encode() if isinstance(data, str) else data)


def pieces(*several):
    """Joins pieces, (tag, bytes) or bytes alone, each with its word in front."""
    tagged = [one if isinstance(one, tuple) else (0, one) for one in several]
    return b"".join(struct.pack("<H", tag << 12 | len(data)) + data for tag, data in tagged)


def golden_hex(name):
    words = (line.split("#")[0].split() for line in (GOLDEN / "driver" / name).read_text().splitlines())
    data = bytearray()
    for word in (word for line in words for word in line):
        if word.endswith(":"):
            continue
        byte, _, times = word.partition("*")
        data += bytes.fromhex(byte) * int(times or 1)
    return bytes(data)


def event(mac=ONLINE, **fields):
    return event_message(FAMILY, **{**ASSOCIATION, "mac": mac, **fields})


def route_messages():
    def attribute(kind, value):
        return struct.pack("=HH", 4 + len(value), kind) + value + bytes(-len(value) % 4)

    def message(kind, header, *attributes, length=None):
        body = header + b"".join(attributes)
        return struct.pack("=IHHII", length or 16 + len(body), kind, 0, 1, 0) + body

    def link(index, text, *more, family=0, kind=16):
        return message(kind, struct.pack("=BBHiII", family, 0, 1, index, 0, 0), attribute(3, text + b"\0"), *more)

    def neighbour(address, mac=bytes.fromhex("02000000000a"), index=5, state=2, family=None, times=(1000, 0, 2000, 0)):
        family = family or (10 if len(address) == 16 else 2)
        return message(28, struct.pack("=BBHiHBB", family, 0, 0, index, state, 0, 1), attribute(1, address), attribute(2, mac),
                       attribute(3, struct.pack("=4I", *times)))

    number = struct.Struct("=i").pack
    links = link(5, b"br-lan") + link(9, b"ath0", attribute(10, number(5))) + link(11, b"br-lan.10", attribute(5, number(5)))
    six = bytes.fromhex("20010db8" + "00" * 11 + "0a")
    name = "fuzz_route_messages"
    seed(name, "both_kinds_of_address", pieces(links + neighbour(b"\xc0\xa8\x0a\x32") + neighbour(six)))
    seed(name, "vlan_of_the_bridge", pieces(links, neighbour(six, index=11)))
    seed(name, "foreign_bridge", pieces(links, neighbour(six, index=6)))
    seed(name, "groups_and_zero", pieces(links, neighbour(bytes(4)) + neighbour(b"\xe0\0\0\1") + neighbour(six, bytes(6))
                                         + neighbour(b"\xff\2" + bytes(13) + b"\1", b"\x33\x33\0\0\0\1", state=0x40)))
    seed(name, "twenty_addresses", pieces(links, b"".join(neighbour(bytes((10, 0, 0, last))) for last in range(1, 21))))
    seed(name, "station_leaves", pieces(links + link(10, b"ath1", attribute(10, number(5))),
                                        (1, neighbour(six, bytes.fromhex("02000000000b"))), neighbour(six, bytes.fromhex("02000000000b"))))
    seed(name, "interface_goes_and_leaves_the_bridge", pieces(links, link(9, b"ath0", kind=17), links, link(9, b"ath0"),
                                                              link(9, b"ath0", family=7, kind=17), neighbour(six)))
    seed(name, "wireless_event", pieces(links, link(9, b"ath0", attribute(11, bytes(8))), neighbour(six)))
    seed(name, "end_and_refusal", pieces(message(3, bytes(4)) + message(2, number(-16) + bytes(16))))
    seed(name, "wrong_lengths", pieces(b"\x10", message(28, b"", length=0xffffffff), message(28, bytes(12), b"\xff\xff\1\0abcd")))
    seed(name, "older_than_the_kernel", pieces(links, neighbour(six, state=4, times=(0xffffffff,) * 4)))


def sessions():
    def told(station, kind, radio=0, ap=0, up=0, rssi=-50, since=0, left=0, ip=b"", ssid=b"net", gap=1):
        return struct.pack("<BBBBQbhh4s4sB", station, kind, radio, ap, up, rssi, since, left, ip, ssid, gap)

    name = "fuzz_sessions"
    seed(name, "visit", told(1, 1) + told(1, 3, up=1 << 20, gap=60) + told(1, 2, up=1 << 21, since=-61, gap=40))
    seed(name, "return_within_the_grace_time", told(1, 1) + told(1, 2, gap=10) + told(1, 1, gap=100) + told(1, 3, up=5))
    seed(name, "roam_to_the_other_radio", told(1, 1) + told(1, 4) + told(1, 1, radio=1, up=9))
    seed(name, "roam_to_another_access_point", told(1, 1) + told(1, 1, ap=1, since=-300) + told(1, 2, ap=0) + told(1, 3, ap=1))
    seed(name, "counters_begin_again", b"".join(told(2, 3, up=up, since=-30) for up in (1 << 63, 5, 1 << 62, 0)))
    seed(name, "more_stations_than_may_be", b"".join(told(number, 1, gap=0) for number in range(12)))
    seed(name, "no_mac", told(0xf3, 5, radio=0x7a) + told(1, 0))
    seed(name, "clocks_that_cannot_be", told(1, 1, since=30000) + told(1, 2, left=-30000) + told(1, 3, since=-30000, gap=255))


def station_names():
    name = "fuzz_station_names"
    seed(name, "names", "02:00:00:00:00:01 Anna's phone\n# people\n02:00:00:00:00:02\tBen\n02:00:00:00:00:03,Cara, blue\r\n")
    seed(name, "capitals_first", "02:00:00:00:AB:CD x\n02:00:00:00:ab:cd y")
    seed(name, "no_names", "no mac\n02:00:00:00:00:01\n\n , \n02:00:00:00:00:0g x\n")
    seed(name, "long_name_of_wide_characters", "02:00:00:00:00:01 " + "\u00e9\U0001f600" * 40)
    seed(name, "no_utf8", b"02:00:00:00:00:01 " + b"\x80\xff\x1b" * 40)


def collector_api():
    name = "fuzz_collector_api"
    for path in ("status", "stations", "access-points", "stations/02:00:00:00:00:01", "nothing", "stations/x/series"):
        seed(name, path.replace("/", "_").replace(":", ""), path)
    seed(name, "range", "sessions\0since\0007d\0until\0" "2026-03-01 14:05\0limit\00010\0mac\00002:00:00:00:00:01")
    seed(name, "first_rows", "stations\0sort\0signal\0direction\0descending\0limit\0" "1\0search\0LOBBY 10.0\0band\0" "2.4")
    seed(name, "stations_of", "stations\0ssid\0Lobby\0ap\00002:54:4B:00:00:01\0state\0here\0sort\0name\0direction\0ascending")
    seed(name, "too_many_stations", "stations\0limit\00010001\0sort\0colour\0search\0" + "x " * 200)
    seed(name, "wrong_arguments", "radios\0step\0-1\0since\0" + "9" * 30 + "d\0x\0'; DROP TABLE stay")


def spool_file():
    def record(topic, payload, retain=0):
        body = struct.pack("<BH", retain, len(topic)) + topic + payload
        return struct.pack("<II", len(body), zlib.crc32(body)) + body

    def file(*records, mark=16):
        return b"wsmspl1\n" + struct.pack("<Q", mark) + b"".join(records)
    name = "fuzz_spool_file"
    two = record(b"wsm/report/x", b'{"seq":1}'), record(b"wsm/station/y", b"", retain=1)
    seed(name, "empty", file())
    seed(name, "two_records", file(*two, mark=16 + len(two[0])))
    seed(name, "cut_in_a_body", file(*two)[:-1])
    seed(name, "cut_in_a_head", file(*two) + b"\3\0")
    seed(name, "zeros_at_the_end", file(*two) + bytes(32))
    seed(name, "other_sum", file(two[0][:4] + bytes(4) + two[0][8:], two[1]))
    seed(name, "topic_longer_than_the_body", file(struct.pack("<II", 3, zlib.crc32(b"\0\xff\xff")) + b"\0\xff\xff"))
    seed(name, "no_spool", b"wsmspl2\n" + bytes(8))


def netlink():
    come, go = golden_hex("association.hex"), golden_hex("disassociation.hex")
    name = "fuzz_netlink"
    seed(name, "golden_association", pieces(come))
    seed(name, "golden_visit", pieces((1, come), (3, go)))
    seed(name, "roam_to_the_other_radio", pieces((1, event()), event(radio_id=1, ifname="ath1"), (1, event(assoc=0))))
    seed(name, "roam_to_another_access_point", pieces(event(assoc=0, is_reassoc=2)))
    seed(name, "repeater_by_flag", pieces((1, event(REPEATER, repeater=1))))
    seed(name, "repeater_by_name", pieces((1, event("02:00:00:00:00:0d", ssid="@Talvik-Repeater"))))
    seed(name, "late_leave_on_the_old_interface", pieces(event(ADDED, assoc=0, ifname="ath0")))
    seed(name, "third_radio", pieces((1, event("02:00:00:00:00:0e", radio_id=2)), (3, b"")))
    seed(name, "percent_signs", pieces(event(ap_auth_req="100%% %s %n %d", ifname="ath%d", key_end="%" * 31)))
    seed(name, "texts_without_end", pieces(event(ssid="s" * 130, ifname="i" * 20, version="12345678",
                                                 ap_auth_req="a" * 32, key_end="e" * 32)))
    seed(name, "line_feeds", pieces((1, event(ssid="a\nb c", ifname="ath0\n"))))
    seed(name, "extreme_numbers", pieces((1, event(rssi=-128, utilization=-2**31, time_stamp=2**32 - 1, radio_id=-2**31,
                                                   channel=2**31 - 1))))
    seed(name, "truncated_event", pieces(come[:100], come[:23]))
    seed(name, "lying_length", pieces(struct.pack("<I", 9999) + come[4:]))
    seed(name, "announcement", pieces(announcement(0x2A), event_message(0x2A, **ASSOCIATION)))
    seed(name, "announcement_of_another_family", pieces(announcement(0x2B, name="nl80211")))
    seed(name, "error_message", pieces(struct.pack("<IHHIIi", 36, 2, 0, 1, 0, -2) + bytes(16)))


def driver_table():
    def entry(mac, text=b"ssid", number=7):
        basic = bytearray(struct.pack("<I", number) * 40)
        basic[4:10] = bytes.fromhex(mac.replace(":", ""))
        basic[16:72] = text.ljust(56, b"\0")[:56]
        extended = struct.pack("<I", number) * 16 + text.ljust(32, b"\0")[:32] * 5
        return bytes(basic), extended

    def answer(*entries, num=None, mask=3):
        header = struct.pack("<II8x", len(entries) if num is None else num, mask)
        return header + b"".join(basic for basic, _ in entries) + b"".join(extended for _, extended in entries)

    def walks(count, data, times=8):
        return pieces(*[count, data] * times)

    name = "fuzz_driver_table"
    both = answer(entry(ONLINE), entry(ADDED))
    seed(name, "two_stations", walks(b"2", both))
    seed(name, "fewer_than_counted", walks(b"9", both, 5))
    seed(name, "claims_more_than_there_are", walks(b"2", answer(entry(ONLINE), entry(ADDED), num=2**32 - 1), 5))
    seed(name, "percent_signs", walks(b"1", answer(entry(ONLINE, b"%s%n%%%d" * 4)), 8))
    seed(name, "texts_without_end", walks(b"1", answer(entry(ONLINE, b"\xff" * 56, 2**32 - 1)), 8))
    seed(name, "no_count", pieces(b"", b"abc", b"-1", b"0"))
    seed(name, "refuses_every_table", pieces(*[b"2", (15, b"")] * 8))
    seed(name, "refuses_everything", pieces(*[(15, b"")] * 8))


def bus_methods():
    def get(**arguments):
        return 0, b"".join(string(key, value) for key, value in arguments.items())

    name = "fuzz_bus_methods"
    seed(name, "get_the_list", pieces(get(get_all_sta_status="online")))
    seed(name, "get_one_station", pieces(get(get_all_sta_status="online", get_sta_mac=ONLINE)))
    seed(name, "get_the_drivers_entries", pieces(get(get_all_sta_status="online", get_wlan_sta_info="stainfo")))
    seed(name, "get_counts", pieces(*[get(get_all_sta_status="", get_sta_count=kind)
                                      for kind in ("normal_sta", "repeater_sta", "all")]))
    seed(name, "get_with_numbers_for_texts", pieces((0, int32("get_all_sta_status", 1))))
    seed(name, "get_a_nested_table", pieces((0, table("get_all_sta_status", string("x", "online")))))
    seed(name, "get_nothing", pieces((0, b"")))
    seed(name, "get_a_text_without_end", pieces((0, string("get_all_sta_status", "online")[:-4] + b"aaaa")))
    seed(name, "set_the_period", pieces(*[(1, int32("set_update_log_period", value))
                                          for value in (60, 0, -1, 2**31 - 1)]))
    seed(name, "set_a_text", pieces((1, string("set_update_log_period", "60"))))
    seed(name, "delete_a_station", pieces((2, string("mac", ONLINE) + int32("radio", 0))))
    seed(name, "delete_on_another_radio", pieces((2, string("mac", ONLINE) + int32("radio", 1))))
    seed(name, "delete_without_a_radio", pieces((2, string("mac", ONLINE))))
    seed(name, "stations_of_the_newer_object", pieces((3, b""), (3, string("after", ONLINE) + int32("limit", 1))))
    seed(name, "stations_with_a_limit_that_cannot_be", pieces(*[(3, int32("limit", value)) for value in (0, 257, -1)]))
    seed(name, "stations_with_another_type_and_a_second_one",
         pieces((3, string("limit", "5")), (3, int32("limit", 5) + int32("limit", 5)), (3, table("fields", string("", "mac")))))
    seed(name, "station_of_the_newer_object", pieces((4, string("mac", ONLINE)), (4, string("mac", "x")), (4, b"")))
    seed(name, "who_has_departed", pieces((5, b""), (5, int32("limit", 2))))
    seed(name, "health", pieces((6, b""), (6, string("x", "y"))))


CLIENTS = [{"mac": ONLINE, "ip": "192.168.10.7", "hostName": "tv"}, {"mac": ADDED, "ip": "192.168.10.8", "hostName": ""}]


def bus_events():
    def client(mac, ip, host):
        return table("", string("mac", mac), string("ip", ip), string("hostName", host))

    def told(tag, **members):
        return tag, b"".join(string(key, value) for key, value in members.items())

    name = "fuzz_bus_events"
    seed(name, "ip_change", pieces(told(0, mac=ONLINE, before_ip="192.168.10.6", changed_ip="192.168.10.7")))
    seed(name, "ip_change_from_nothing", pieces(told(0, mac=ONLINE, before_ip="0.0.0.0", changed_ip="192.168.10.7")))
    seed(name, "ip_change_to_no_address", pieces(told(0, mac=ONLINE, before_ip="$(reboot)", changed_ip="; reboot")))
    seed(name, "dhcp_update", pieces(told(1, mac=ADDED, ip="192.168.10.9", hostName="phone")))
    seed(name, "dhcp_update_of_foreign_texts", pieces(told(1, mac=ONLINE, ip="1 2\n3 4 5 6", hostName="a b\n" * 30)))
    seed(name, "dev_mode", pieces(told(2, forwardMode="AP"), told(2, forwardMode="ROUTER")))
    seed(name, "client_list", pieces(told(3, data=json.dumps({"count": 2, "list": CLIENTS}))))
    listed = int32("count", 1) + table("list", client(ONLINE, "192.168.10.7", "tv"))
    seed(name, "answer_with_a_table_for_a_list", pieces((4, listed)))
    array = bytearray(table("list", client(ONLINE, "192.168.10.7", "tv")))
    array[0] = 0x81  # an array
    seed(name, "answer", pieces((4, int32("count", 1) + bytes(array))))
    seed(name, "answer_to_a_deletion", pieces(told(5, result="ok")))
    seed(name, "without_members", pieces(*[(tag, b"") for tag in range(6)]))


def dhcpmon_json():
    name = "fuzz_dhcpmon_json"
    seed(name, "two_clients", json.dumps({"count": 2, "list": CLIENTS}))
    seed(name, "count_is_a_text", json.dumps({"count": "2", "list": CLIENTS}))
    seed(name, "count_beyond_the_list", json.dumps({"count": 2**40, "list": CLIENTS}))
    seed(name, "no_list", json.dumps({"count": 1, "list": {"mac": 1}}))
    seed(name, "member_is_missing", json.dumps({"count": 1, "list": [{"mac": ONLINE, "ip": None}]}))
    seed(name, "members_are_no_texts", json.dumps({"count": 3, "list": [{"mac": [], "ip": {}, "hostName": 1.5}, 7, None]}))
    seed(name, "long_texts", json.dumps({"count": 1, "list": [{"mac": "m" * 99, "ip": "i" * 99, "hostName": "h" * 99}]}))
    seed(name, "escapes", '{"count":1,"list":[{"mac":"%s","ip":"1.2.3.4","hostName":"a\\u0000b\\n\\ud800"}]}' % ADDED)


def files():
    leases = "fuzz_lease_file"
    seed(leases, "three_clients", f"1700000000 {ONLINE} 192.168.10.5 phone 01:{ONLINE}\n"
                                  f"1700000000 {ADDED} 192.168.10.6 tv *\n1700000000 {REPEATER} 192.168.10.7 * *\n")
    seed(leases, "no_host_name", f"1700000000 {ONLINE} 192.168.10.5")
    seed(leases, "mac_at_the_end", f"1 {ONLINE}")
    seed(leases, "no_line_feed", f"1700000000 {ADDED} 192.168.10.5 phone *")
    seed(leases, "long_line", "1" * 70 + f" {ONLINE} 192.168.10.5 " + "n" * 2000 + "\n")
    seed(leases, "foreign_white_space", f"1 {ONLINE}\t1.2.3.4\tx\ty\r\n1 {ADDED} \x0b\x0c name\x0b \n")
    seed(leases, "zero_bytes", f"1 {ONLINE} 1.2\0.3.4 a\0b *\n")

    snoop = "fuzz_snoop_file"
    seed(snoop, "two_clients", f"1 {ONLINE} 192.168.10.5 br-lan\n2 {REPEATER.upper()} 192.168.10.6 br-lan\n")
    seed(snoop, "no_address", f"1 {ONLINE} $(reboot) br-lan\n")
    seed(snoop, "words_are_missing", f"1 {ONLINE}\n\n1\n")
    seed(snoop, "long_words", f"{'x' * 300} {ONLINE} {'1' * 300} br-lan\n1 {ONLINE} {'9' * 200} br-lan\n")
    seed(snoop, "another_bridge", f"1 {ONLINE} 192.168.10.5 br-guest\n")

    capability = "fuzz_capability_file"
    seed(capability, "two_radios", '{"wireless":{"radiolist":[{"sta_limit_max":128},{"sta_limit_max":64}],'
                                   '"wireless_path":"/etc/config"}}')
    seed(capability, "limits_that_overflow", '{"wireless":{"radiolist":[{"sta_limit_max":2147483647},'
                                             '{"sta_limit_max":2147483647}]}}')
    seed(capability, "negative_limit", '{"wireless":{"radiolist":[{"sta_limit_max":-5}],"wireless_path":null}}')
    seed(capability, "long_path", '{"wireless":{"radiolist":[],"wireless_path":"/%s"}}' % ("p" * 60))
    seed(capability, "radios_are_no_objects", '{"wireless":{"radiolist":[1,null,"x",[],{}],"wireless_path":[1]}}')
    seed(capability, "no_list", '{"wireless":{"radiolist":7}}')
    seed(capability, "no_object", "[1,2,3]")
    seed(capability, "cut", '{"wireless":{"radiolist":[{"sta_li')
    seed(capability, "empty", "")

    backup = "fuzz_backup_file"
    line = "phone {} 192.168.10.5 1700000000 12 0 0 Lobby 0 {} 55 36 1 7 1000 2000 0 0 ath0 1 10 1 0 0\n"
    seed(backup, "two_stations", line.format(ADDED, 1) + line.format("02:00:00:00:00:0d", 0))
    seed(backup, "the_same_station_twice", line.format(ONLINE, 0) * 2)
    seed(backup, "third_radio", line.format("02:00:00:00:00:0d", 2))
    seed(backup, "empty_fields", line.format(ADDED, 1).replace("phone", "").replace("Lobby", ""))
    seed(backup, "a_field_is_missing", line.format("02:00:00:00:00:0d", 0).replace(" Lobby", ""))
    seed(backup, "no_number", line.format("02:00:00:00:00:0d", "x"))
    seed(backup, "numbers_that_overflow", line.format("02:00:00:00:00:0d", 2**64).replace(" 1000 ", f" {2**64} "))
    seed(backup, "long_line", line.format("02:00:00:00:00:0d", 0).replace("phone", "p" * 300))
    seed(backup, "zero_bytes", line.format("02:00:00:00:00:0d", 0).replace("Lobby", "Lo\0by"))
    seed(backup, "mac_of_other_letters", line.format("zz:zz:zz:zz:zz:$(", 0))
    seed(backup, "cut_mac", "phone 02:00:0")
    seed(backup, "empty_lines", "\n\n \n")
    seed(backup, "repeater", line.format("02:00:00:00:00:0d", 0).replace(" 1 0 0\n", " 1 1 0\n"))
    seed(backup, "device_counters", "1 2 3 4 5\n")


def report_image():
    name = "fuzz_report_image"
    for report in ("log_on", "log_off"):
        seed(name, f"golden_{report}", golden_hex(f"{report}.hex"))
    seed(name, "every_byte_ff", b"\xff" * REPORT_SIZE)
    seed(name, "every_byte_zero", bytes(REPORT_SIZE))
    image = bytearray(REPORT_SIZE)
    for offset, form in REPORT.values():
        if form.endswith("s"):
            size = struct.calcsize(form)
            image[offset:offset + size] = (b'"\\,\n\x1b[2J\xc3\x28\xe2\x82' * 99)[:size]
    seed(name, "foreign_texts", bytes(image))
    seed(name, "too_short", bytes(REPORT_SIZE - 1))


def report_json():
    name = "fuzz_report_json"

    fields = re.findall(r"F\((.*), (\w+), \d+\)", (FUZZ.parents[1] / "protocol/station_report.h").read_text())
    report = {field: "" if "text" in kind else 1 for kind, field in fields}
    report |= {"mac": ONLINE, "ap_mac": "02:54:4b:00:00:01\\n", "received": None, "boot": "00c0ffee", "seq": 1, "booted": None}

    def text(**changes):
        # A clock has nine digits behind the point.
        return re.sub(r"(?<=_clock\": |ine_ts\": )[\d.-]+", lambda found: f"{float(found[0]):.9f}", json.dumps({**report, **changes}))
    clocks = {"online_clock": 0.0, "online_ts": 1.5, "offline_ts": 0.0}
    seed(name, "sound", text(**clocks))
    seed(name, "foreign_texts", text(**clocks, ssid='a"\\n\\\\\\xff\u00fc', reason="\\x1b[2J"))
    seed(name, "unknown_access_point", text(**clocks, ap_mac=""))
    seed(name, "clock_that_is_none", text(online_clock=-4.7, online_ts=2147483649.147, offline_ts=-2147483649.5))
    seed(name, "large_counter", text(**clocks, wifi_up=2 ** 64 - 1))
    seed(name, "too_long_text", text(**clocks, ssid="x" * 128))
    seed(name, "cut", text(**clocks)[:-1])
    seed(name, "deep", "[" * 100)


def recording():
    name = "fuzz_recording"

    def record(kind, time, body=b""):
        return struct.pack("<IHHQ", len(body), kind, 0, time) + body

    def request(cmd, size, asked, answer, result=0, ifname=b"ath0"):
        return struct.pack("<iiiIII36s", cmd, 0, result, 120, size, len(asked), ifname) + asked + answer

    def bus(event, message=b""):
        return struct.pack("<H", len(event)) + event + message

    header = struct.pack("<8sIIqqq", b"wsm-rec\n", 1, 0x01020304, 1_700_000_000_000_000, 5_000_000, 5_000_000)
    files = b"".join(record(4, 0, struct.pack("<HH", number, state) + text) for number, state, text in (
        (1, 1, b"1700000000 02:00:00:00:00:0a 192.168.10.50 phone *\n"), (2, 0, b""), (3, 1, b"{}"), (5, 2, b"config\n")))
    life = (record(1, 90_000, announcement(FAMILY)) + record(1, 100_000, event())
            + record(3, 1_000_000, request(5, 1024, b"", b"1")) + record(3, 1_000_200, request(1, 176, b"\1\0\0\0\1", b"\1"))
            + record(3, 2_000_000, request(5, 1024, b"", b"2")))
    seed(name, "a_life", header + files + life + record(8, 3_000_000))
    seed(name, "torn", header + files + life[:-5])
    seed(name, "bus", header + b"".join(record(kind, 5, bus(b"dhcp_client_update", b"\0\0\0\4")) for kind in (5, 6, 7)))
    seed(name, "receive_error", header + record(2, 7, struct.pack("<i", 105)))
    seed(name, "failed_request", header + record(3, 9, request(4, 24, ONLINE.encode(), b"", result=-5)))
    seed(name, "another_version", b"wsm-rec\n" + struct.pack("<I", 2) + header[12:])
    seed(name, "huge_length", header + struct.pack("<IHHQ", 0xffffffff, 1, 0, 0))


def wsm_answers():
    """The first piece: command (summary, list, show, departed, health, watch, kick) and columns; its tag: whether JSON is wanted."""
    def shown(command, *answers, columns=80, json_wanted=0):
        return pieces((json_wanted, bytes((command, columns))), *answers)

    def array(name, *fields):
        return bytes((0x81,)) + table(name, *fields)[1:]

    name = "fuzz_wsm_answers"
    station = table("", string("mac", ONLINE), string("name", "phone"), string("ssid", "Lobby"), int32("signal", -50),
                    int32("rx_bytes", 12345), int32("connected", 61), array("addresses", table("", string("address", "fe80::1")),
                                                                           table("", string("address", "192.168.10.50"))))
    page = array("stations", station) + string("next", ONLINE)
    health = string("version", "1") + int32("uptime", 7) + table("stations", int32("known", 1), int32("online", 1))
    seed(name, "summary_and_a_page", shown(0, health, page, array("stations")))
    seed(name, "narrow_list", shown(1, page, columns=20))
    seed(name, "list_as_json", shown(1, page, json_wanted=1))
    seed(name, "station", shown(2, string("mac", ONLINE) + int32("signal", -50) + table("steps", int32("assoc", 3), int32("eapol", 9))
                                + array("names", table("", string("name", "phone"), string("origin", "lease"), int32("since", 1)))))
    left = table("", int32("left", 1), string("mac", ONLINE), string("ended_by", "idle"), int32("lasted", 4000))
    seed(name, "departed", shown(3, int32("total", 1) + array("departed", left)))
    seed(name, "health", shown(4, health))
    seed(name, "every_kind_of_notification", shown(5, *((tag, string("mac", ONLINE) + int32("seq", tag) + table("station",
         string("interface", "ath0")) + table("from", string("interface", "ath0")) + table("to", string("interface", "ath1")))
         for tag in range(8))))
    seed(name, "roamed_from_a_long_place", shown(5, (2, table("from", string("interface", "i" * 600)))))
    seed(name, "notifications_as_json", shown(5, *((tag, string("mac", "\x1b[2J\"")) for tag in range(8)), json_wanted=1))
    seed(name, "kick", shown(6, int32("radio", 1), int32("total", 3), b"", b"", int32("total", 4) + array("departed", left)))
    seed(name, "hostile_texts", shown(2, string("\x1b]0;x\x07", "a\nb\u202ec\u009b31m") + array("addresses", table("", string("address", "\x1b[2J")))))
    seed(name, "lying_lengths", shown(1, page[:-3], b"\x83\xff\xff\xff\0\1x\0", b"\0\0\0\0"))


if __name__ == "__main__":
    for make in (netlink, driver_table, bus_methods, bus_events, dhcpmon_json, files, report_image, report_json, recording, sessions,
                 station_names, collector_api, spool_file, route_messages, wsm_answers):
        make()
