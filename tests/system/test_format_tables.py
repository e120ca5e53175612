"""Compares the tables of docs/formats.md with the lists that the programs expand, and these with the tests' own."""

import struct

import formats
import pytest

from wsmlab import fields

LAYOUTS = ["station_report", "station_event", "driver_basic", "driver_extended"]
PAGE = fields.PAGE.read_text(encoding="utf-8")


@pytest.fixture(name="printed", scope="module")
def _printed(build_dir):
    return fields.printed(build_dir)


def places(rows):
    return {field: (int(offset), int(size)) for offset, size, _, field in rows}


def size_of(printed, layout):
    (size,) = printed[f"{layout}.size"][0]
    return int(size)


def test_the_tables_in_the_document_are_the_lists_of_the_programs(printed):
    assert fields.written_anew(PAGE, printed) == PAGE, "write it anew with wsmlab.fields"


def test_every_list_has_its_table_in_the_document(printed):
    for layout in [*LAYOUTS, "backup_line"]:
        assert printed[layout] and f"<!-- fields: {layout} -->" in PAGE, layout


@pytest.mark.parametrize("layout", LAYOUTS)
def test_no_field_overlaps_the_next_or_leaves_its_layout(printed, layout):
    ends = 0
    for field, (offset, size) in places(printed[layout]).items():
        assert offset >= ends, field
        ends = offset + size
    assert ends <= size_of(printed, layout)


@pytest.mark.parametrize("layout, text", [("station_event", "the event's {} bytes"), ("driver_basic", "Basic entry, {} bytes"),
                                          ("driver_extended", "Extended entry, {} bytes"), ("station_report", "report, {}\nbytes")])
def test_the_size_in_the_document_is_the_programs(printed, layout, text):
    assert text.format(size_of(printed, layout)) in PAGE


@pytest.mark.parametrize("layout, own, size", [("station_event", formats.EVENT, formats.EVENT_SIZE),
                                               ("station_report", formats.REPORT, formats.REPORT_SIZE)])
def test_the_layout_is_the_one_that_the_tests_have_written_by_hand(printed, layout, own, size):
    rows = places(printed[layout])
    for field, (offset, form) in own.items():
        halves = ("txBcast", "txMcast", "txPkt", "online_ts", "offline_ts")  # of which the one or the other takes four bytes
        assert rows[field][0] == offset, field
        assert rows[field][1] == struct.calcsize(form) or field in halves, field
    assert size_of(printed, layout) == size
    assert layout != "station_event" or rows.keys() == own.keys()
