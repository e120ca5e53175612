// watched_files.h - recording the files that a daemon reads, at the start and when they have changed.
#pragma once

// Records every file, and which files are missing.
void watched_files_take_all() noexcept;

// Records the files that have changed. To be called before the daemon acts on something that it received. The
// record gets the time of the file's modification, if that is after the last record.
void watched_files_look() noexcept;
