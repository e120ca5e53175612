// log_settings.h - the daemon's own log settings.
//
// Source: uci package "wsmd", section "main". The daemon's messages go through the log library (tools/log.h), which
//         has its own thresholds; these settings are read, reported and used by compat/log_write.
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

// Reads all settings (a missing key gives its default, a value that is not a number gives 0) and logs each at level 7.
void sta_debug_cfg_read(void);
}
