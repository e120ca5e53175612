// log_file.h - an appended file with a size limit and one old generation, "<path>.0".
//
// Kept open between lines; opened anew when the name leads elsewhere (rotated by somebody else, deleted). While that
// fails, the old file goes on, as long as it has another name; at twice the limit it begins anew.
// Only regular files and character devices are opened: a pipe without a reader would stop the process.
// Nothing here waits or logs. Owns:   the descriptor. An object of zeros with fd -1 is a valid, closed one.
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
    bool regular; // a size limit and rotation make sense
    bool torn;    // the last line was cut by a full disk: end it before the next
};

// Sets path and limit and opens the file (created with mode 0644 less the umask). False: the path is too
// long, or the file cannot be opened now; a later write tries again.
bool log_file_open(log_file &file, const char *path, std::int64_t limit) noexcept;

// Appends `line`, which ends in a line feed, with one write. Rotates first when the file would grow beyond
// its limit. False: the line is lost (no space, no folder, ...).
bool log_file_append(log_file &file, std::string_view line) noexcept;
