// memory.h - the counting allocator, for records, names and texts that modules pass to each other.
//
// Owns:   nothing; the caller frees with sta_free.   Thread: event loop only.
// Counts: live blocks, and the bytes that the allocator gave for them. Blocks of
//         malloc, json-c or libubox are freed with free(), never with sta_free, and the reverse.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

// Blocks handed out and not yet freed. Diagnostic only.
extern std::uint32_t mem_total_cnt;

// Bytes of those blocks, as large as the allocator has made them.
extern std::size_t mem_total_bytes;

// A zero-filled block of `size` bytes, or null (nothing is counted or logged then). Size 0 counts when it is
// not null.
void *sta_malloc(std::uint32_t size);

// A copy of `text`, or null; null for null.
char *sta_strdup(const char *text);

// Frees a block; null is ignored.
void sta_free(void *block);

// Makes a block larger or smaller, as realloc does. Null without memory: the block is then as it was.
void *sta_realloc(void *block, std::size_t size);

// Logs the number of live blocks at level 7.
void sta_mem_dump(void);
}
