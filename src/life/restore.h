// restore.h - making the station table at start: empty, then whatever the backup files hold.
//
// Files:  "/tmp/sta_sta.info" (docs/formats.md), emptied once it was copied: lines come back as stations pass
//         the online cycle. A line may hold anything: what was read of it becomes a record, and nothing stops
//         the start.
// Logs:   level 7, a missing file and every line.
#pragma once

#include "model/record.h"

extern "C" {

// Makes the table. Called once, before anything is added. 0.
int sta_sta_init(void);

// Adds a record for every line of the backup file, and arms the sweep of those that are never confirmed; not
// without a file, and not when memory runs out on the way.
void sta_sta_load_users(void);
}

// Fills the zeroed record `sta` and `name` (32 bytes) from one line of at most 249 characters. An empty field
// is empty again; a line that is not whole gives what could be read before the fault.
void sta_restore_parse(const char *line, sta_info_t *sta, char (&name)[sta_name_size]) noexcept;
