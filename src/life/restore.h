// restore.h - making the station table at start: empty, then filled from the backup files.
//
// Files:  "/tmp/sta_sta.info" (docs/formats.md), emptied after it was copied; the five-second pass writes
//         the lines again. A line may hold anything: what can be read of it becomes a record, and no line stops the
//         start.
// Logs:   level 7, a missing file and every line.
#pragma once

#include "model/record.h"

extern "C" {

// Makes the table. Called once, before anything is added. Returns 0.
int sta_sta_init(void);

// Adds a record for every line of the backup file, and arms the sweep. The sweep is not armed
// without a file, or when memory runs out.
void sta_sta_load_users(void);
}

// Fills the zeroed record `sta` and `name` (32 bytes) from one line of at most 249 characters. An empty field
// stays empty; a damaged line gives the fields before the damage.
void sta_restore_parse(const char *line, sta_info_t *sta, char (&name)[sta_name_size]) noexcept;
