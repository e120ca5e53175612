// file.h - guards for C resources, so that no function needs a clean-up label; reading a file whole.
#pragma once

#include "tools/array.h"

#include <cstdio>
#include <memory>
#include <sys/stat.h>

// True when everything that was written has reached the file. A full disk is noticed only here.
inline bool sta_flush(std::FILE *file) noexcept { return std::fflush(file) == 0 && std::ferror(file) == 0; }

inline void sta_close_file(std::FILE *file) noexcept {
    (void)std::fclose(file);
} // writers call sta_flush first

struct sta_file_closer {
    void operator()(std::FILE *file) const noexcept { sta_close_file(file); }
};
using sta_file = std::unique_ptr<std::FILE, sta_file_closer>;

// Appends the rest of `file` to `bytes`. False without memory, when reading fails, and when `bytes` would have more than
// `most`.
bool sta_read_all(std::FILE *file, sta_array<char> &bytes, std::size_t most) noexcept;

// Whether two results of stat are of the same file, and its size and times have not changed.
bool sta_same_file(const struct stat &a, const struct stat &b) noexcept;
