// happenings.h - events about stations, sent in order to subscribers of the bus object `wsmd`.
//
// Format: docs/bus-api.md. Events are numbered from the start of the daemon, also while there are no subscribers: a subscriber that
//         sees a gap, or another start, asks for all stations again.
// Cost:   one comparison while there are no subscribers.   Blocks: as sending on the bus does. Without memory an event is lost,
//         and the gap in the numbers shows it.
#pragma once

#include "base/cxx/ubox.h"
#include "model/record.h"

struct station_departure;
enum class station_origin : std::uint8_t;

// A station has associated; `again`: it was in the table already.
void sta_tell_joined(const sta_info_t *sta, bool again) noexcept;
void sta_tell_left(const station_departure &departure) noexcept;
// A station has moved from one interface or radio to another; `sta` is where it is now.
void sta_tell_roamed(const sta_info_t *sta, const char *old_ifname, std::int32_t old_radio) noexcept;
void sta_tell_address(const sta_info_t *sta, const char *address, station_origin origin) noexcept;
void sta_tell_name(const sta_info_t *sta, const char *name, station_origin origin) noexcept;
// The same, and remember it for the station (model/identity).
void sta_learn_address(const sta_info_t *sta, const char *address, station_origin origin) noexcept;
void sta_learn_name(const sta_info_t *sta, const char *name, station_origin origin) noexcept;
// The table was compared with the driver's.
void sta_tell_resync(std::uint32_t arrived, std::uint32_t departed) noexcept;

// Appends "boot" and "seq": this start of the daemon, and the number of the last event.
void sta_put_sequence(struct blob_buf *buf) noexcept;

// Appends the members of a departure to the table that is open.
void sta_put_departure(struct blob_buf *buf, const station_departure &departure) noexcept;
