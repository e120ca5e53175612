#include "tools/file.h"

#include <algorithm>
#include <sys/stat.h>

bool sta_read_all(std::FILE *file, sta_array<char> &bytes, std::size_t most) noexcept {
    struct stat status {};
    const bool sized = fstat(fileno(file), &status) == 0 && status.st_size > 0;
    if (sized && static_cast<std::uintmax_t>(status.st_size) > most) return false;
    // One byte more than there should be: reading less than was asked for is the end.
    const std::size_t step = sized ? static_cast<std::size_t>(status.st_size) + 1 : 4096;
    for (std::size_t got = step; got == step;) {
        if (bytes.size() > most || !bytes.reserve(bytes.size() + step)) return false;
        got = std::fread(bytes.end(), 1, step, file);
        bytes.extend(got);
    }
    return std::ferror(file) == 0 && bytes.size() <= most;
}
