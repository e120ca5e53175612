// recorder.h - the recording, made inside the recorded daemon. The daemon must not be affected: any error only ends
// the recording, with one line on standard error.
//
// Start:  when the library is loaded, by "<descriptor> <limit>" in the environment's WSM_RECORD (preloaded.cpp). Children
//         of the daemon inherit neither that nor the library.
// Thread: the daemon's only one.   Blocks: while the file is written.   errno is not changed.
#pragma once

#include "record/layout.h"

#include <initializer_list>
#include <sys/uio.h>

// Starts a recording of at most `limit` bytes; the recorder owns `fd` from then on.
void recorder_begin(int fd, std::uint64_t limit) noexcept;

// False before a recording starts, after it has ended, and in children of the daemon.
bool recorder_runs() noexcept;

// Microseconds since the start of the recording.
std::uint64_t recorder_now() noexcept;

// The wall clock at the start, microseconds.
std::int64_t recorder_wall_start() noexcept;

// Writes one record from `parts`, at most 6, in order. A `time` before that of the last record is raised to it.
void recorder_write(record_kind kind, std::uint64_t time, std::initializer_list<iovec> parts) noexcept;

// A part of a record; only read.
inline iovec recorder_part(const void *data, std::size_t size) noexcept {
    return {const_cast<void *>(data), size};
}
