// log_write.h - a log writer that follows the daemon's own log settings (core/log_settings.h).
//
// The daemon itself does not call it; it is part of the exported interface.
#pragma once

extern "C" {
// Writes one line to each sink that the settings name. `tag` may be null. Prefix and message are cut at 2047 bytes
// together; the console gets them uncut. Sinks that cannot be opened are skipped silently. One old
// generation of the file is kept: "<name>.orig".
void sta_log_write(const char *tag, int level, const char *format, ...) __attribute__((format(printf, 3, 4)));
}
