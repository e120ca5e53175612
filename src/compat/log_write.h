// log_write.h - the direct writer that honours the daemon's own log settings (core/log_settings.h).
//
// No flow of the daemon calls it; it belongs to the interface.
#pragma once

extern "C" {
// Writes one line to each sink that the settings name. `tag` may be null. The message is cut at 2047 bytes
// with its prefix (on the console it is whole). Sinks that cannot be opened are skipped silently. One old
// generation of the file is kept: "<name>.orig".
void sta_log_write(const char *tag, int level, const char *format, ...) __attribute__((format(printf, 3, 4)));
}
