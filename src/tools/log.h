// log.h - how every module of the daemon writes to the log library.
//
// Nearly every message is of level 7 and begins "Function <name>:<line> "; refused arguments are of level 3
// and begin "ERROR in <module word> [<line>]: ". Format texts are always our own; foreign text is always
// an argument.
#pragma once

#include "debug/dbg.h"

// The daemon's module number in the log library, passed to every call; 0 until start-up has registered it.
extern "C" int g_main_id;

// Logs in the name of the function that contains the call; STA_LOG_AS is for helpers of an exported
// function, which log in its name.
#define STA_LOG(fmt, ...) STA_LOG_AS(__func__, fmt __VA_OPT__(, ) __VA_ARGS__)
#define STA_LOG_AS(function, fmt, ...)                                                                       \
    dbg_printf(g_main_id, 7, "Function %s:%d " fmt, function, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

// The text of a function's own name, for STA_LOG_AS: if the function is renamed, this does not compile until the name here is changed.
template <class Function> constexpr const char *sta_name_of(Function * /*function*/, const char *name) {
    return name;
}
#define STA_NAME_OF(function) sta_name_of(&function, #function)

// `word` is the module's name in the log: "sta_tools", "sta_sta" or "sta_ubus".
#define STA_ERROR(word, fmt, ...)                                                                            \
    dbg_printf(g_main_id, 3, "ERROR in %s [%d]: " fmt, word, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

// For people who operate the access point: a fault, or its end, at a level that is written by default. Most other lines appear
// only after the level has been raised.
#define STA_NOTICE(fmt, ...) dbg_printf(g_main_id, 3, "NOTICE: " fmt __VA_OPT__(, ) __VA_ARGS__)

// True the first time, and again after `said` was cleared: a lasting condition is logged once.
inline bool sta_first(bool &said) {
    const bool first = !said;
    said = true;
    return first;
}

// A plain line in the log file, without level or function.
#define STA_LOGFILE(fmt, ...) dbg_logfile(g_main_id, fmt __VA_OPT__(, ) __VA_ARGS__)
