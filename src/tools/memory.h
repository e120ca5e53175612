// memory.h - the counting allocator: records, names and texts that modules hand to each other.
//
// Owns:   nothing; the caller frees with sta_free.   Thread: event loop only.
// Counts: live blocks, not bytes. Blocks of malloc, json-c or libubox go to free(), never here, and the
//         reverse.
#pragma once

#include <cstdint>

extern "C" {

// Live blocks handed out and not yet given back. Diagnostic only.
extern std::uint32_t mem_total_cnt;

// A zero-filled block of `size` bytes, or null (nothing is counted or logged then). Size 0 counts when it is
// not null.
void *sta_malloc(std::uint32_t size);

// A copy of `text`, or null; null for null.
char *sta_strdup(const char *text);

// Gives a block back; null is ignored.
void sta_free(void *block);

// Logs the number of live blocks at level 7.
void sta_mem_dump(void);
}
