// log_file.h - a file for appending, with a size limit and one old generation, "<path>.0".
//
// The file stays open between lines and is opened again when the path names another file (rotated by another program,
// deleted). If that fails, lines are still written to the old file while it has another name; at twice the limit it is
// emptied. Only regular files and character devices are opened: a pipe without a reader would stop the process.
// Nothing here waits or logs.   Owns: the descriptor. A zeroed object with fd -1 is valid and closed.
#pragma once

#include <cstdint>
#include <string_view>
#include <sys/types.h>

struct log_file {
    char path[256];
    std::int64_t limit; // bytes; 0 and below: none
    int fd = -1;
    dev_t device;
    ino_t inode;
    bool regular; // the size limit and rotation apply
    bool torn;    // the last line was cut by a full disk: end it before the next line
};

// Sets path and limit and opens the file (created with mode 0644 less the umask). False: the path is too
// long, or the file cannot be opened now; a later write tries again.
bool log_file_open(log_file &file, const char *path, std::int64_t limit) noexcept;

// Appends `line`, which ends in a line feed, with one write. Rotates first when the file would grow beyond
// its limit. False: the line is lost (no space, no folder, ...).
bool log_file_append(log_file &file, std::string_view line) noexcept;
