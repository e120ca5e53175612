// locked_file.h - files of packages and deltas: paths, locks, modes.
#pragma once

#include "model.h"

#include <sys/types.h>

namespace uci {

// "dir/name"; null when out of memory.
text_ptr join_path(const char *dir, const char *name);

bool is_regular(const char *path);

// Waits for a lock that others share unless they write.
enum class lock { shared, exclusive };

// Opens a regular file for reading (shared) or for reading and writing (exclusive), locked until it is
// closed. UCI_ERR_NOTFOUND if it is missing or no regular file, else UCI_ERR_IO.
int open_locked(const char *path, lock kind, file_ptr *file);

// The same, exclusive, making the file with this mode if it is missing.
int create_locked(const char *path, mode_t mode, file_ptr *file);

// Permission bits of what path leads to, or otherwise if there is nothing.
mode_t mode_of(const char *path, mode_t otherwise);

} // namespace uci
