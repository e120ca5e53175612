#include "tools/file.h"

#include <algorithm>

bool sta_read_all(std::FILE *file, sta_array<char> &bytes, std::size_t most) noexcept {
    struct stat status {};
    const bool sized = fstat(fileno(file), &status) == 0 && status.st_size > 0;
    if (sized && static_cast<std::uintmax_t>(status.st_size) > most) return false;
    // One byte more than the file's size, so that a short read shows the end.
    const std::size_t step = sized ? static_cast<std::size_t>(status.st_size) + 1 : 4096;
    for (std::size_t got = step; got == step;) {
        if (bytes.size() > most || !bytes.reserve(bytes.size() + step)) return false;
        got = std::fread(bytes.end(), 1, step, file);
        bytes.extend(got);
    }
    return std::ferror(file) == 0 && bytes.size() <= most;
}

bool sta_same_file(const struct stat &a, const struct stat &b) noexcept {
    const auto same = [](const timespec &x, const timespec &y) {
        return x.tv_sec == y.tv_sec && x.tv_nsec == y.tv_nsec;
    };
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           same(a.st_mtim, b.st_mtim) && same(a.st_ctim, b.st_ctim);
}
