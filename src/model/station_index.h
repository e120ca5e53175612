// station_index.h - a hash index of the table's records by MAC: a search looks at one or two records, however many there are.
//
// Kept by: model/members, which links and unlinks. A record linked by other code is noticed by the list's end: searches then
//          walk the list, as they do without memory.
// Memory:  plain malloc, 11 to 32 bytes for each record on a 64-bit host, nothing for an empty table.
#pragma once

#include "model/record.h"

// `list` is always the table's.
//
// After `sta` has become the last record of the list.
void sta_index_linked(const list_head *list, sta_info_t *sta) noexcept;

// Before `sta` leaves the list.
void sta_index_unlinked(const list_head *list, const sta_info_t *sta) noexcept;

// The first record of the list whose field `mac` has these bytes; null: there is none.
sta_info_t *sta_index_find(const list_head *list, const char (&mac)[sizeof(sta_info_t::mac)]) noexcept;
