// members.h - making, linking, unlinking and freeing the records of the table: the only place that does.
//
// Logs:   level 7, a lack of memory.   What goes with a member (its backup line) is life/members' business.
#pragma once

#include "model/record.h"

extern "C" {

// A new record with status 2, its clock running, not yet in the table; to be freed with sta_sta_free or
// handed to sta_sta_add_usr. `mac` is cut at 19 characters, `ssid` at 127. Null when one of them is null (not
// logged) or there is no memory (logged).
sta_info_t *sta_sta_new(const char *mac, const char *ssid);

// Frees a record that is not in the table, its name, and what is known of it (model/identity). Null is ignored.
void sta_sta_free(sta_info_t *sta);
}

// Puts a record at the end of the table, which owns it from then on.
void sta_members_link(sta_info_t *sta) noexcept;

// Takes a record out; it is the caller's again. One that was on line is not counted any more.
void sta_members_unlink(sta_info_t *sta) noexcept;

// The early report of a record of the table starts over, as a new record's does by itself.
void sta_members_await_report(sta_info_t *sta) noexcept;

// Whether a record of the table may wait for its early report: set here, and cleared by who has found none.
extern bool sta_early_reports_due;
