// log.h - the bridge's log: lines on standard error, for the supervisor. If the reader is too slow, lines are lost; the bridge
// never waits.
#pragma once

// To be called before the first line.
void log_open() noexcept;

// Writes one line; `format` has no line feed. Foreign text must pass through log_text.
void log_line(const char *format, ...) noexcept __attribute__((format(printf, 1, 2)));
