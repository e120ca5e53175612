// dbg_modules.h - the log library's internals: module table and thresholds, shared by the writer, the settings
// and the bus object. Only dbg.cpp changes the state.
#pragma once

#include "debug/log_file.h"

inline constexpr int dbg_module_max = 32;
inline constexpr int dbg_level_max = 7;
inline constexpr int dbg_level_default = 3;

struct dbg_module {
    char name[32];
    int threshold;
};

struct dbg_state {
    char program[32];
    log_file file;
    int module_count;
    dbg_module modules[dbg_module_max + 1]; // the last one is for numbers that are not registered
    unsigned lost;                          // messages that could not be written since dbg_init
};

const dbg_state &dbg_get_state() noexcept;

// Sets the threshold of the module `name`, or of all for null. False: no such module, or `level` is not 0
// to 7.
bool dbg_set_threshold(const char *name, int level) noexcept;

// The threshold that uci "debug.<module>.level" gives, or `otherwise` when there is none or it is not 0 to 7.
int dbg_configured_threshold(const char *module, int otherwise) noexcept;
