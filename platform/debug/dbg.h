// dbg.h - the log library's interface (libdebug.so). A device brings its own library with these names; the
// one in this folder is the open implementation.
//
// Levels: 0 emergency ... 3 error ... 6 information, 7 debug; a message is written when its level is at or
// below its module's threshold. Thread: the caller's event loop only. Texts are not kept: they may be freed
// after the call.
//
// Line:   2026-03-01 14:05:09.250 wsmd[812] main 7: Function sta_service_start:41 ...
//         local time, program and process id, module, level ("-" for dbg_logfile), then the message. A line
//         is one message, whatever was formatted into it: the message's last line feed, and spaces after it,
//         are dropped; every other control character, a backslash and bytes that are not UTF-8 are escaped
//         (\n, \\, \x1b). A message of more than 4095 bytes is cut and ends in "...".
//         A message of level 4 and below that is the same as the one before is not written again; "last message repeated
//         N times" stands for it when another one comes, and once a minute while it goes on.
// errno:  unchanged by dbg_printf and dbg_logfile, so that a caller may log before it uses errno; "%m"
//         works.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

struct ubus_object;

// Opens the log. `program` (31 characters kept) names the lines' source, `logfile` is the path of the file,
// `limit` its size limit in units of 64 KiB (10: 640 KiB; 0 and below: none); one old generation is kept as
// "<logfile>.0". The file is opened again after it was renamed or deleted. Call this once, before the
// others. Returns 0, or -1 when the file cannot be opened now: messages are then dropped until it can be, without an
// error to the caller, and their number is logged later.
int dbg_init(const char *program, const char *logfile, int limit);

// Registers a module and returns its number (0 and up), to be passed to the calls below; a known name
// keeps its number. `name`: 1 to 31 letters, digits, '_' or '-'. -1 for another name or when the table of 32
// modules is full; messages of such a module are written as those of module "-", with threshold 3. The
// threshold is 3, or what uci "debug.<name>.level" says (0 to 7).
int dbg_module_reg(const char *name);

// Writes one message of `module` at `level`. A message above the threshold costs one comparison.
void dbg_printf(int module, int level, const char *fmt, ...) __attribute__((format(printf, 3, 4)));

// Writes one message of `module` to the log file whatever the threshold.
void dbg_logfile(int module, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

// The library's own bus object "<program>.debug", owned by the library; it lives as long as the process;
// null before dbg_init. The caller adds it to its bus connection. Methods:
//   get                   -> {"file": STRING, "limit": INT64 bytes, "lost": INT32 messages, "modules": {NAME:
//   INT32, ...}} set {module, level}   -> status only; STRING and INT32 0 to 7; without "module" every
//   module's threshold is set.
struct ubus_object *dbg_get_ubus_object(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
