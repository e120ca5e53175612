// table.h - the station table: its head, and finding a record.
//
// Owns:   nothing; records are made, linked, unlinked and freed in model/members only.
// Keys:   mac, 17 characters of lower-case text, compared exactly.   Thread: event loop only.
// Logs:   level 7 on a hit of the search and on a lack of memory.
#pragma once

#include "model/record.h"

#include <pthread.h>

struct sta_sta_master {
    struct list_head list;        // of sta_info_t, in order of arrival
    std::int32_t online;          // records whose status is sta_status_online
    std::int32_t device_count[4]; // from the device-counter file; nothing reads them
};

extern "C" {

// The table. It is a valid empty list from the first instruction on, since the bus may ask for it before it is
// made.
extern struct sta_sta_master g_sta_sta_master;

// How many stations may be online: set once at start from the capability table (core/capability), 0 before.
extern std::int32_t sta_max_num;

// Held by the bus encoder while it walks the table. Not recursive: no bus call and no early return while it
// is held.
extern pthread_mutex_t g_sta_server_mutex;

// Makes `head` an empty list. The other list functions (list_empty, list_add_tail, list_del_init) are libubox's.
void list_init(struct list_head *head);

// The first record with this MAC, or null; null for null. Valid until the next delete.
sta_info_t *sta_sta_find_usr(const char *mac);
}

// As sta_sta_find_usr, without a log line.
sta_info_t *sta_sta_peek(const char *mac) noexcept;

// Seconds of the monotonic clock, cut to 32 bits; `oltime` is measured with it.
std::int32_t sta_monotonic_seconds() noexcept;

// System uptime, seconds.
std::int32_t sta_uptime_seconds() noexcept;

// Replaces the record's name by a new 32-byte buffer with `host_name` (cut); for a repeater by
// "wireless_repeater_" and the last four hexadecimal digits of its MAC text. Without memory the old name stays.
void sta_take_name(sta_info_t *sta, const char *host_name) noexcept;
