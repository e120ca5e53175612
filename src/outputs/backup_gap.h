// backup_gap.h - removing a line from the station backup file in place, safe against a kill at any moment.
//
// The bytes after the line move up: half of the file on average, which is much cheaper than writing a new file. If the daemon were
// killed while they move, the file would hold some bytes twice and mix two lines. Therefore a note with the line's place is appended
// to the file until the move is complete: a line whose first byte is NUL, unlike any line of a station. The next start completes the
// move by this note.
#pragma once

#include <sys/types.h>

// Removes `length` bytes at `at` from an open file of `size` bytes. False when a system call failed: the move may be incomplete.
bool sta_backup_close_gap(int file, off_t at, off_t length, off_t size) noexcept;

// To be called at start, before the file is read: completes what a killed daemon has left incomplete. That is a move (see above), or
// a removal by copying, during which the complete file has the temporary name.
void sta_backup_mend(const char *path, const char *temporary) noexcept;
