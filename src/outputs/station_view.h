// station_view.h - a station as the bus object `wsmd` shows it: typed members, each of which can be asked for alone.
//
// Format: docs/bus-api.md, schema "wsmd station". What is not known is left out, never invented.
// Units:  dBm, bit/s, bytes, seconds, MHz; times are seconds since 1970. "rx" is from the station, "tx" to it.
#pragma once

#include "base/cxx/ubox.h"
#include "model/record.h"

// A set of members, one bit each.
using station_fields = std::uint64_t;

// Every member there is.
station_fields sta_view_all() noexcept;

// Those of a page, unless others are asked for: all but what a station can have many of.
station_fields sta_view_page() noexcept;

// The member of this name as a set; 0: there is none.
station_fields sta_view_field(const char *name) noexcept;

// Those that come from the driver's table, so that who does not ask for them need not ask the driver.
station_fields sta_view_figures() noexcept;

// The clocks of one answer: read once, so that all its stations agree.
struct station_clock {
    std::int32_t monotonic; // seconds
    std::int64_t wall;      // seconds since 1970
    station_clock() noexcept;
};

// Appends the members of `fields` to the table that is open in `buf`, in which sta_bus_make_room has made room. "mac" is
// always among them.
void sta_view_put(struct blob_buf *buf, const sta_info_t *sta, station_fields fields,
                  const station_clock &clock) noexcept;

// True when the record's MAC is one: six octets of colon text. A restored line can hold anything.
bool sta_view_has_mac(const sta_info_t *sta) noexcept;
