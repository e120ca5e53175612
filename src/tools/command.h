// command.h - commands run through the shell. Each call blocks the event loop until the command has
// ended.
//
// Format: printf-style, even if a caller passes a complete command: a "%" in it is interpreted. Values from
//         outside must have been checked before (sta_mac_is_plain, sta_is_valid_ipaddr): this
//         module does no quoting.
// Limits: a command is cut at 511 characters.   Logs: level 7 when a process cannot be made. Children get the
//         default SIGPIPE, SIGINT and SIGTERM, and none of our descriptors.
#pragma once

#include <sys/types.h>

extern "C" {

// fork, with the child's signals set back to their defaults. -1 is logged with its reason.
pid_t sta_fork(void);

// Runs the command and returns its exit status, 0 to 255. 127: no such command; 0 also for one killed by a
// signal (Deliberate: only an exit code counts as failure); -1 when no process could be made.
int sta_execute(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Runs the command and returns the first line of its output (at most 1023 characters, without the line feed),
// to be freed with sta_free; null when that line is empty or the command could not be run. The rest is
// discarded.
char *sta_execute_buf(const char *format, ...) __attribute__((format(printf, 1, 2)));
}
