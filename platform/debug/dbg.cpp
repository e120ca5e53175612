#include "debug/dbg.h"
#include "debug/dbg_modules.h"
#include "protocol/escape.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>
#include <unistd.h>

namespace {

constexpr std::int64_t limit_unit = 65536; // bytes
constexpr std::string_view cut_mark = "...";

constinit dbg_state g_state = [] {
    dbg_state state{};
    state.modules[dbg_module_max] = {"-", dbg_level_default};
    return state;
}();
unsigned g_lost_and_told = 0;

// The module's number as an index that is valid for any argument.
unsigned index_of(int module) noexcept {
    return static_cast<unsigned>(module) < static_cast<unsigned>(g_state.module_count)
               ? static_cast<unsigned>(module)
               : unsigned{dbg_module_max};
}

// "2026-03-01 14:05:09.250"; the calendar is computed once a second.
void put_time(char (&text)[32]) noexcept {
    static std::time_t known = -1;
    static char calendar[24];
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != known) {
        struct tm parts {};
        tzset(); // localtime_r may not do this itself
        localtime_r(&now.tv_sec, &parts);
        (void)std::strftime(calendar, sizeof(calendar), "%Y-%m-%d %H:%M:%S", &parts);
        known = now.tv_sec;
    }
    (void)std::snprintf(text, sizeof(text), "%s.%03d", calendar, static_cast<int>(now.tv_nsec / 1'000'000));
}

bool write_line(const char *module, char level, std::string_view message, bool cut) noexcept {
    if (const std::size_t end = message.find_last_not_of(' '); end != message.npos && message[end] == '\n')
        message = {message.data(), end}; // substr would bring in the runtime library
    char line[8192];
    char when[32];
    put_time(when);
    const int head = std::snprintf(line, sizeof(line), "%s %s[%d] %s %c: ", when, g_state.program,
                                   static_cast<int>(getpid()), module, level);
    if (head < 0) return false;
    const std::size_t room = sizeof(line) - cut_mark.size() - 1;
    auto used = static_cast<std::size_t>(head);
    used += escape::write(message, {line + used, room - used});
    if (cut || !message.empty())
        used = static_cast<std::size_t>(std::ranges::copy(cut_mark, line + used).out - line);
    line[used++] = '\n';
    return log_file_append(g_state.file, {line, used});
}

// A message that repeats would push the others out of the file, so it is written once, and the number of repetitions is written
// when another message comes, and once a minute. At a raised level every line is written.
class repeats {
public:
    // True when the message repeats the last one and need not be written now.
    bool swallow(unsigned module, char level, std::string_view text) noexcept {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        if (level > least_urgent_level || text.size() > sizeof(text_) || module != module_ ||
            level != level_ || text != std::string_view{text_, size_}) {
            tell();
            module_ = module;
            level_ = level;
            size_ = text.size() <= sizeof(text_) ? text.size() : 0;
            std::memcpy(text_, text.data(), size_);
            since_ = now.tv_sec;
            return false;
        }
        ++count_;
        if (now.tv_sec - since_ >= told_after_s) {
            tell();
            since_ = now.tv_sec;
        }
        return true;
    }

    // After a failed write: the last message is not in the file, so the next one is written in any case.
    void forget() noexcept {
        level_ = '\0';
        count_ = 0;
    }

private:
    static constexpr char least_urgent_level = '4'; // '-' is below all levels
    static constexpr std::time_t told_after_s = 60;

    void tell() noexcept {
        if (count_ == 0) return;
        char notice[64];
        (void)std::snprintf(notice, sizeof(notice), "last message repeated %u times\n", count_);
        if (!write_line(g_state.modules[module_].name, level_, notice, false)) ++g_state.lost;
        count_ = 0;
    }

    unsigned module_ = 0;
    char level_ = '\0';  // '\0': there is no message
    unsigned count_ = 0; // repetitions not written
    std::time_t since_ = 0;
    std::size_t size_ = 0;
    char text_[512] = {}; // a longer message is written each time
};
constinit repeats g_repeats;

[[gnu::format(printf, 3, 0)]] void write_message(unsigned module, char level, const char *fmt,
                                                 std::va_list arguments) noexcept {
    const int saved = errno;
    char text[4096];
    const int length = std::vsnprintf(text, sizeof(text), fmt, arguments);
    const std::size_t kept = length < 0 ? 0 : std::min(static_cast<std::size_t>(length), sizeof(text) - 1);
    if (g_repeats.swallow(module, level, {text, kept})) {
        errno = saved;
        return;
    }
    if (g_state.lost != g_lost_and_told) {
        char notice[64];
        (void)std::snprintf(notice, sizeof(notice), "%u messages lost\n", g_state.lost - g_lost_and_told);
        if (write_line("-", '4', notice, false)) g_lost_and_told = g_state.lost;
    }
    const bool cut = static_cast<std::size_t>(length) >= sizeof(text); // also when nothing could be formatted
    if (!write_line(g_state.modules[module].name, level, {text, kept}, cut)) {
        ++g_state.lost;
        g_repeats.forget();
    }
    errno = saved;
}

constexpr bool is_name(std::string_view name) noexcept {
    return !name.empty() && name.size() < sizeof(dbg_module::name) && std::ranges::all_of(name, [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
               c == '-';
    });
}

} // namespace

const dbg_state &dbg_get_state() noexcept { return g_state; }

bool dbg_set_threshold(const char *name, int level) noexcept {
    if (level < 0 || level > dbg_level_max) return false;
    bool found = name == nullptr;
    for (int i = 0; i < g_state.module_count; ++i) {
        if (name && std::strcmp(name, g_state.modules[i].name) != 0) continue;
        g_state.modules[i].threshold = level;
        found = true;
    }
    return found;
}

int dbg_init(const char *program, const char *logfile, int limit) {
    g_repeats.forget();
    (void)std::snprintf(g_state.program, sizeof(g_state.program), "%s", program ? program : "");
    return logfile && log_file_open(g_state.file, logfile, limit * limit_unit) ? 0 : -1;
}

int dbg_module_reg(const char *name) {
    if (!name || !is_name(name)) return -1;
    for (int i = 0; i < g_state.module_count; ++i)
        if (std::strcmp(name, g_state.modules[i].name) == 0) return i;
    if (g_state.module_count == dbg_module_max) return -1;
    dbg_module &module = g_state.modules[g_state.module_count];
    (void)std::snprintf(module.name, sizeof(module.name), "%s", name);
    module.threshold = dbg_configured_threshold(name, dbg_level_default);
    return g_state.module_count++;
}

void dbg_printf(int module, int level, const char *fmt, ...) {
    const unsigned at = index_of(module);
    if (level > g_state.modules[at].threshold) return;
    std::va_list arguments;
    va_start(arguments, fmt);
    write_message(at, static_cast<char>('0' + std::max(level, 0)), fmt, arguments);
    va_end(arguments);
}

void dbg_logfile(int module, const char *fmt, ...) {
    std::va_list arguments;
    va_start(arguments, fmt);
    write_message(index_of(module), '-', fmt, arguments);
    va_end(arguments);
}
