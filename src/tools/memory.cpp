#include "tools/memory.h"

#include "tools/log.h"

#include <cstdlib>
#include <cstring>

std::uint32_t mem_total_cnt = 0;

void *sta_malloc(std::uint32_t size) {
    void *block = std::malloc(size);
    if (!block) return nullptr;
    std::memset(block, 0, size);
    ++mem_total_cnt;
    return block;
}

char *sta_strdup(const char *text) {
    if (!text) return nullptr;
    char *copy = strdup(text);
    if (copy) ++mem_total_cnt;
    return copy;
}

void sta_free(void *block) {
    if (!block) return;
    std::free(block);
    --mem_total_cnt;
}

void sta_mem_dump() { STA_LOG("sta mem_total_cnt %d\n", static_cast<int>(mem_total_cnt)); }
