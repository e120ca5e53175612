// watched_files.h - the files that a daemon reads, put into its recording at the start and when they have changed.
#pragma once

// Records every file there is, and that others are not there.
void watched_files_take_all() noexcept;

// Records those that are not what they were. To be called before the daemon acts on something that it received:
// the change gets the time of the file's modification, if that lies behind the last record.
void watched_files_look() noexcept;
