#include "nl80211/log.h"

#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int descriptor = STDERR_FILENO;
bool is_socket = false;

} // namespace

void log_open() noexcept {
    struct stat about {};
    if (fstat(STDERR_FILENO, &about) != 0) return;
    is_socket = S_ISSOCK(about.st_mode);
    if (!S_ISFIFO(about.st_mode)) return;
    // A second open gives a description of our own, so that non-blocking does not affect programs that share the first.
    const int own = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (own >= 0) descriptor = own;
}

void log_line(const char *format, ...) noexcept {
    char line[512];
    const int prefix = std::snprintf(line, sizeof(line), "wsm-bridge: ");
    std::va_list words;
    va_start(words, format);
    int used =
        std::vsnprintf(line + prefix, sizeof(line) - static_cast<std::size_t>(prefix) - 1, format, words);
    va_end(words);
    if (used < 0) return;
    used += prefix;
    if (used > static_cast<int>(sizeof(line)) - 2) used = static_cast<int>(sizeof(line)) - 2;
    line[used] = '\n';
    const auto size = static_cast<std::size_t>(used) + 1;
    const ssize_t done =
        is_socket ? send(descriptor, line, size, MSG_DONTWAIT | MSG_NOSIGNAL) : write(descriptor, line, size);
    (void)done;
}
