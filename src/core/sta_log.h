// sta_log.h - the daemon's own log settings and the direct writer that honours them.
//
// Source: uci package "wsmd", section "main". The daemon's messages go through the log library
//         (tools/sta_debug.h), which has its own thresholds; these settings are read, reported and used by
//         sta_log_write, which no flow of the daemon calls: it belongs to the module's interface.
#pragma once

struct sta_log_settings {
    int log_console; // non-zero: every line also goes to "/dev/console", whatever its level
    int log_syslog;  // non-zero: lines of log_level and below go to syslog
    int log_level;
    int log_file; // non-zero: lines of log_file_level and below go to the file
    int log_file_level;
    int log_file_size; // bytes; a larger file is rotated before the next line
    char log_file_name[300];
};

extern "C" {

extern sta_log_settings sta_log;

// Reads all settings (a missing key gives its default, a key that is no number 0) and logs each at level 7.
void sta_debug_cfg_read(void);

// Writes one line to each sink that the settings name. `tag` may be null. The message is cut at 2047 bytes
// with its prefix (on the console it is whole). Sinks that cannot be opened are skipped silently. One old
// generation of the file is kept: "<name>.orig".
void sta_log_write(const char *tag, int level, const char *format, ...) __attribute__((format(printf, 3, 4)));
}
