// station_view.h - a station as the bus object `wsmd` shows it: with typed members that can be asked for one by one.
//
// Format: docs/bus-api.md, schema "wsmd station". What is not known is left out.
// Units:  dBm, bit/s, bytes, seconds, MHz; times are seconds since 1970. "rx" is from the station, "tx" to it.
#pragma once

#include "base/cxx/ubox.h"
#include "model/record.h"

// A set of members, one bit each.
using station_fields = std::uint64_t;

// Every member there is.
station_fields sta_view_all() noexcept;

// The members of a page if the caller names none: all but the lists.
station_fields sta_view_page() noexcept;

// The set with the member of this name; 0: there is no such member.
station_fields sta_view_field(const char *name) noexcept;

// The members that come from the driver's table. An answer without them needs no driver request.
station_fields sta_view_figures() noexcept;

// The clocks of one answer: read once, so that all its stations agree.
struct station_clock {
    std::int32_t monotonic; // seconds
    std::int64_t wall;      // seconds since 1970
    station_clock() noexcept;
};

// Appends the members of `fields`, and always "mac", to the table that is open in `buf`. The caller has made room with
// sta_bus_make_room.
void sta_view_put(struct blob_buf *buf, const sta_info_t *sta, station_fields fields,
                  const station_clock &clock) noexcept;

// True when the record's MAC is valid: six octets as colon text. A restored line can hold anything.
bool sta_view_has_mac(const sta_info_t *sta) noexcept;
