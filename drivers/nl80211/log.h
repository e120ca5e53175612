// log.h - the bridge's log: lines on the standard error, for the supervisor. A reader that does not keep up loses lines
// and never holds the bridge up.
#pragma once

// Before the first line.
void log_open() noexcept;

// One line, without its end. Foreign text goes in through log_text.
void log_line(const char *format, ...) noexcept __attribute__((format(printf, 1, 2)));
