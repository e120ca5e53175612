"""The tables of docs/formats.md against the lists in the headers that the programs expand, and against the test's own."""

import pathlib
import re
import struct

import formats
import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = (ROOT / "docs/formats.md").read_text(encoding="utf-8")
SIGNS = {"std::uint": "u", "std::int": "i"}
# list: the header that has it, name and offset of the MAC that is no row of it, the table's place in the document
LISTS = {
    "STATION_EVENT_FIELDS": ("protocol/station_event.h", "station_event_mac_offset", "Station event"),
    "DRIVER_BASIC_FIELDS": ("protocol/driver_request.h", "basic_mac_offset", "Basic entry"),
    "DRIVER_EXTENDED_FIELDS": ("protocol/driver_request.h", None, "Extended entry"),
}
SIZES = {"STATION_EVENT_FIELDS": "station_event_size", "DRIVER_BASIC_FIELDS": "table_basic_size",
         "DRIVER_EXTENDED_FIELDS": "table_extended_size"}


def constant(header, name):
    return int(re.search(rf"\b{name} = (\d+);", header)[1])


def declared(name):
    """The rows of a header's list: {field: (offset, size, type)}."""
    path, mac, _ = LISTS[name]
    header = (ROOT / path).read_text(encoding="utf-8")
    body = re.search(rf"#define {name}\(NUM, TEXT\)((?:.*\\\n)*.*)", header)[1]
    rows = {}
    for sign, bits, field, offset in re.findall(r"NUM\((std::u?int)(\d+)_t, (\w+), (\d+)\)", body):
        rows[field] = (int(offset), int(bits) // 8, SIGNS[sign] + bits)
    for field, offset, size in re.findall(r"TEXT\((\w+), (\d+), (\d+)\)", body):
        rows[field] = (int(offset), int(size), "text")
    assert len(rows) == len(re.findall(r"\b(?:NUM|TEXT)\(", body)), "a row is written in another way"
    if mac:
        rows["mac"] = (constant(header, mac), 6, "bytes")
    return rows


def documented(name):
    """The rows of the table behind the place, in the same form and in the document's order."""
    place = LISTS[name][2]
    start = re.search(rf"^(?:## )?{place}\b", PAGE, re.M).start()
    table = re.search(r"\| offset \| size \| type \| field \|.*\n\|[-|]+\n((?:\|.*\n)+)", PAGE[start:])[1]
    rows = {}
    for line in table.splitlines():
        offset, size, kind, field = (cell.strip() for cell in line.split("|")[1:5])
        assert field.strip("`") not in rows, line
        rows[field.strip("`")] = (int(offset), int(size), kind)
    return rows


@pytest.mark.parametrize("name", LISTS)
def test_the_table_in_the_document_is_the_list_in_the_header(name):
    assert documented(name) == declared(name)


@pytest.mark.parametrize("name", LISTS)
def test_the_rows_stand_in_the_order_of_their_offsets_and_do_not_overlap(name):
    ends = 0
    for field, (offset, size, _) in documented(name).items():
        assert offset >= ends, field
        ends = offset + size
    header = (ROOT / LISTS[name][0]).read_text(encoding="utf-8")
    assert ends <= constant(header, SIZES[name])


@pytest.mark.parametrize("name, text", [("STATION_EVENT_FIELDS", "the event's {} bytes"),
                                        ("DRIVER_BASIC_FIELDS", "Basic entry, {} bytes"),
                                        ("DRIVER_EXTENDED_FIELDS", "Extended entry, {} bytes")])
def test_the_size_in_the_document_is_the_header_s(name, text):
    header = (ROOT / LISTS[name][0]).read_text(encoding="utf-8")
    assert text.format(constant(header, SIZES[name])) in PAGE


def test_the_event_in_the_document_is_the_one_that_the_tests_send():
    rows = documented("STATION_EVENT_FIELDS")
    assert rows.keys() == formats.EVENT.keys()
    for field, (offset, form) in formats.EVENT.items():
        wide = field in ("txBcast", "txMcast", "txPkt")  # the driver writes eight bytes, of which four are read
        assert rows[field][:2] == (offset, 4 if wide else struct.calcsize(form)), field
