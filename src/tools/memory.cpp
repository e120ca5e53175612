#include "tools/memory.h"

#include "tools/log.h"

#include <cstdlib>
#include <cstring>
#include <malloc.h>

std::uint32_t mem_total_cnt = 0;
std::size_t mem_total_bytes = 0;

void *sta_malloc(std::uint32_t size) {
    void *block = std::malloc(size);
    if (!block) return nullptr;
    std::memset(block, 0, size);
    ++mem_total_cnt;
    mem_total_bytes += malloc_usable_size(block);
    return block;
}

char *sta_strdup(const char *text) {
    if (!text) return nullptr;
    char *copy = strdup(text);
    if (!copy) return nullptr;
    ++mem_total_cnt;
    mem_total_bytes += malloc_usable_size(copy);
    return copy;
}

void sta_free(void *block) {
    if (!block) return;
    mem_total_bytes -= malloc_usable_size(block);
    std::free(block);
    --mem_total_cnt;
}

void *sta_realloc(void *block, std::size_t size) {
    const std::size_t before = malloc_usable_size(block);
    void *grown = std::realloc(block, size);
    if (!grown) return nullptr;
    mem_total_bytes += malloc_usable_size(grown) - before;
    return grown;
}

void sta_mem_dump() { STA_LOG("sta mem_total_cnt %d\n", static_cast<int>(mem_total_cnt)); }
