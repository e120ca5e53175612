#include "debug/log_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// On failure the file that was open stays open.
void reopen(log_file &file) noexcept {
    // Must not block on a pipe, nor make a terminal the controlling one.
    const int fd = open(file.path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0644);
    struct stat found {};
    if (fd >= 0 && (fstat(fd, &found) != 0 || !(S_ISREG(found.st_mode) || S_ISCHR(found.st_mode)))) {
        close(fd);
        return;
    }
    if (fd < 0) return;
    if (file.fd >= 0) close(file.fd);
    file.fd = fd;
    file.device = found.st_dev;
    file.inode = found.st_ino;
    file.regular = S_ISREG(found.st_mode);
    file.torn = false;
}

// The size of the open file if the path still names it, else -1.
std::int64_t size_under_its_name(const log_file &file) noexcept {
    struct stat named {};
    if (file.fd < 0 || stat(file.path, &named) != 0) return -1;
    return named.st_dev == file.device && named.st_ino == file.inode ? named.st_size : -1;
}

void rotate(log_file &file) noexcept {
    char old[sizeof(file.path) + 2];
    (void)std::snprintf(old, sizeof(old), "%s.0", file.path);
    if (rename(file.path, old) == 0)
        reopen(file);
    else
        (void)!ftruncate(file.fd, 0); // keeps the limit even where renaming fails
}

// Prepares the open file for a line although the path no longer names it, because no other file could be opened. It may grow
// to the size of both generations. False, and the file is closed, if it has no name left, so that nobody could read the line.
bool go_on_without_name(log_file &file, std::size_t line) noexcept {
    struct stat left {};
    if (fstat(file.fd, &left) != 0 || left.st_nlink == 0) {
        close(file.fd);
        file.fd = -1;
        return false;
    }
    const bool full = file.limit > 0 && left.st_size + static_cast<std::int64_t>(line) > 2 * file.limit;
    return !file.regular || !full || ftruncate(file.fd, 0) == 0;
}

bool write_all(int fd, std::string_view text, bool &torn) noexcept {
    ssize_t put = 0;
    do put = write(fd, text.data(), text.size());
    while (put < 0 && errno == EINTR);
    if (put == static_cast<ssize_t>(text.size())) return true;
    torn = torn || put > 0;
    return false;
}

} // namespace

bool log_file_open(log_file &file, const char *path, std::int64_t limit) noexcept {
    const std::size_t length = std::strlen(path);
    if (length == 0 || length >= sizeof(file.path)) return false;
    std::memcpy(file.path, path, length + 1);
    file.limit = limit;
    if (file.fd >= 0) close(file.fd);
    file.fd = -1;
    reopen(file);
    return file.fd >= 0;
}

bool log_file_append(log_file &file, std::string_view line) noexcept {
    std::int64_t size = size_under_its_name(file);
    if (size < 0) {
        reopen(file);
        size = size_under_its_name(file);
    }
    if (file.fd < 0) return false;
    const bool full =
        file.limit > 0 && size > 0 && size + static_cast<std::int64_t>(line.size()) > file.limit;
    if (file.regular && full) {
        rotate(file);
        size = size_under_its_name(file);
    }
    if (size < 0 && !go_on_without_name(file, line.size())) return false;
    if (file.torn && !write_all(file.fd, "\n", file.torn)) return false;
    file.torn = false;
    return write_all(file.fd, line, file.torn);
}
