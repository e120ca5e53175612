// members.h - making, linking, unlinking and freeing the records of the table: the only place that does.
//
// Logs:   level 7, a lack of memory.   Backup lines are the business of life/members.
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

// Takes a record out of the table; the caller owns it again. If it was online, the online count goes down.
void sta_members_unlink(sta_info_t *sta) noexcept;

// Starts the early report of a known record again. A new record's starts by itself.
void sta_members_await_report(sta_info_t *sta) noexcept;

// Whether a record of the table may wait for its early report: set here, and cleared by the log-up that finds none.
extern bool sta_early_reports_due;
