#include "compat/log_write.h"

#include "core/log_settings.h"
#include "tools/file.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr const char *identity = "WSMD";

struct time_text {
    char text[32] = "";
    time_text() {
        const std::time_t now = std::time(nullptr);
        tzset(); // ctime_r may not do this itself
        ctime_r(&now, text);
    }
};

// Appends the message to `line` of `size` bytes, which already holds `prefix` characters. A longer message is cut.
// Returns the new length.
__attribute__((format(printf, 4, 0))) std::size_t append_message(char *line, std::size_t size, int prefix,
                                                                 const char *format, va_list arguments) {
    const std::size_t used = std::min(static_cast<std::size_t>(std::max(prefix, 0)), size - 1);
    std::vsnprintf(line + used, size - used, format, arguments);
    return std::strlen(line);
}

__attribute__((format(printf, 3, 0))) void write_console(const char *tag, int level, const char *format,
                                                         va_list arguments) {
    const sta_file console{std::fopen("/dev/console", "we")};
    if (!console) return;
    std::fprintf(console.get(), "[%.24s]%s[%d][%s]: ", time_text{}.text, identity, level, tag);
    std::vfprintf(console.get(), format, arguments);
    std::fputc('\n', console.get());
}

__attribute__((format(printf, 3, 0))) void write_syslog(const char *tag, int level, const char *format,
                                                        va_list arguments) {
    char text[2048];
    append_message(text, sizeof(text), std::snprintf(text, sizeof(text), "[%s] ", tag), format, arguments);
    openlog(identity, LOG_CONS | LOG_PID, LOG_USER);
    syslog(level, "%s", text);
    closelog();
}

__attribute__((format(printf, 2, 0))) void write_file(const char *tag, const char *format,
                                                      va_list arguments) {
    char line[2048];
    const int prefix = std::snprintf(line, sizeof(line), "[%.24s][%d][%s] ", time_text{}.text,
                                     static_cast<int>(getpid()), tag);
    std::size_t length = append_message(line, sizeof(line), prefix, format, arguments);
    line[length++] = '\n'; // replaces the terminator

    const int fd = open(sta_log.log_file_name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0777);
    if (fd < 0) return;
    struct stat file {};
    if (stat(sta_log.log_file_name, &file) == 0 && file.st_size > sta_log.log_file_size) {
        char command[1024];
        std::snprintf(command, sizeof(command), "cp -f %s %s.orig", sta_log.log_file_name,
                      sta_log.log_file_name);
        (void)!std::system(command); // NOLINT(cert-env33-c): the name is root's own configuration
        (void)!ftruncate(fd, 0);
    }
    (void)!write(fd, line, length); // a full disk loses the line, nothing else
    close(fd);
}

} // namespace

void sta_log_write(const char *tag, int level, const char *format, ...) {
    if (!tag) tag = "";
    va_list arguments;
    if (sta_log.log_console) { // Deliberate: no level filter
        va_start(arguments, format);
        write_console(tag, level, format, arguments);
        va_end(arguments);
    }
    if (sta_log.log_syslog && sta_log.log_level >= level) {
        va_start(arguments, format);
        write_syslog(tag, level, format, arguments);
        va_end(arguments);
    }
    if (sta_log.log_file && sta_log.log_file_level >= level) {
        va_start(arguments, format);
        write_file(tag, format, arguments);
        va_end(arguments);
    }
}
