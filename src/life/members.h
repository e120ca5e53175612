// members.h - adding stations to the table and removing them, with their backup lines.
//
// Owns:   every record linked in g_sta_sta_master; sta_sta_add_usr owns the record it is given, even when it
//         returns -1.
// Thread: event loop only.   Result: 0 or -1. A pointer to a record is valid until the next delete.
// Logs:   level 7 every addition, refusal and removal.   Files: the backup line is removed with the record.
//         Reports and firewall rules are left to the callers.
#pragma once

#include "model/record.h"

class sta_backup_pass;

extern "C" {

// Adds a record, or merges it into the one with its MAC: the known record takes the name (if there is one),
// status, flags, radio and interface (if there is one), and nothing else; the given record is freed. -1: null, or the
// online count is at the limit (Deliberate: tested first, so that even a known MAC is refused; records that
// wait for their first pass do not count).
int sta_sta_add_usr(sta_info_t *sta);

// Removes a record of the table with its backup line. Null is ignored.
void sta_sta_del_usr(sta_info_t *sta);

// Removes the record with this MAC if it is on interface `ifname`: a late disassociation on another interface
// must not remove a station that has moved. The backup line of an unknown MAC is removed as well.
void sta_sta_del_usr_by_mac(const char *mac, const char *ifname);
}

// As sta_sta_add_usr, but returns the record that is now in the table: `sta`, or the one it was merged into. Null: refused.
sta_info_t *sta_members_admit(sta_info_t *sta);

// As sta_sta_del_usr, for a walk that removes several records: their lines are removed when `backup` is written.
void sta_members_dismiss(sta_info_t *sta, sta_backup_pass &backup);
