#include "support/log.h"

#include "debug/dbg.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <regex>

namespace {

std::vector<log_record> g_records;
log_start g_start;
int g_next_module = 0;
ubus_object *g_object = nullptr;

void record(int module, int level, const char *format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

void record(int module, int level, const char *format, va_list arguments) {
    char text[8192];
    std::vsnprintf(text, sizeof(text), format, arguments);
    g_records.push_back({module, level, text});
    errno = EILSEQ;
}

// "Function NAME:LINE text" as "NAME: text", "ERROR in WORD [LINE]: text" as "ERROR in WORD: text".
std::string plain(const log_record &one) {
    static const std::regex function("^Function ([A-Za-z0-9_]+):[0-9]+ ");
    static const std::regex error("^ERROR in ([a-z_]+) \\[[0-9]+\\]: ");
    if (one.level == log_level_file) return "file: " + one.text;
    std::smatch found;
    const std::regex &form = one.level == 7 ? function : error;
    if ((one.level == 7 || one.level == 3) && std::regex_search(one.text, found, form))
        return (one.level == 3 ? "ERROR in " : "") + found[1].str() + ": " + found.suffix().str();
    return "level " + std::to_string(one.level) + " " + one.text;
}

testing::AssertionResult has_line(const std::string &wanted) {
    const std::vector<std::string> lines = log_lines();
    if (std::find(lines.begin(), lines.end(), wanted) != lines.end())
        return testing::AssertionSuccess() << "the log has: " << wanted;
    testing::AssertionResult none = testing::AssertionFailure();
    none << "the log has no: " << wanted << "\nit has:\n";
    for (const std::string &line : lines) none << "  " << testing::PrintToString(line) << "\n";
    return none;
}

} // namespace

int dbg_init(const char *program, const char *logfile, int limit) {
    g_start.program = program;
    g_start.file = logfile;
    g_start.limit = limit;
    return 0;
}

int dbg_module_reg(const char *name) {
    g_start.modules.emplace_back(name);
    return g_next_module++;
}

void dbg_printf(int module, int level, const char *fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    record(module, level, fmt, arguments);
    va_end(arguments);
}

void dbg_logfile(int module, const char *fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    record(module, log_level_file, fmt, arguments);
    va_end(arguments);
}

ubus_object *dbg_get_ubus_object() { return g_object; }

const std::vector<log_record> &log_records() { return g_records; }

void forget_log() {
    g_records.clear();
    g_start = {};
    g_next_module = 0;
    g_object = nullptr;
}

void keep_log(std::vector<log_record> records) { g_records = std::move(records); }

std::vector<std::string> log_lines() {
    std::vector<std::string> lines;
    for (const log_record &one : g_records) lines.push_back(plain(one));
    return lines;
}

std::vector<std::string> lines_of(const std::string &function) {
    std::vector<std::string> found;
    for (const std::string &line : log_lines())
        if (line.starts_with(function + ": ")) found.push_back(line.substr(function.size() + 2));
    return found;
}

testing::AssertionResult logged(const std::string &function, const std::string &text) {
    return has_line(function + ": " + text);
}

testing::AssertionResult logged_error(const std::string &word, const std::string &text) {
    return has_line("ERROR in " + word + ": " + text);
}

testing::AssertionResult filed(const std::string &text) { return has_line("file: " + text); }

const log_start &log_started() { return g_start; }

void set_next_module(int number) { g_next_module = number; }

void set_log_object(ubus_object *object) { g_object = object; }
