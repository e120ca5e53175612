#include "support/memory.h"

#include <cerrno>
#include <cstddef>

namespace {

unsigned g_left = 0; // allocations until the one that fails, it included; 0: none
bool g_failed = false;

} // namespace

bool next_allocation_fails() {
    if (g_left == 0 || --g_left > 0) return false;
    g_failed = true;
    errno = ENOMEM;
    return true;
}

// The linker redirects the program's calls to these functions (--wrap).
extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *block, std::size_t size);
char *__real_strdup(const char *text);
void *__wrap_malloc(std::size_t size);
void *__wrap_calloc(std::size_t count, std::size_t size);
void *__wrap_realloc(void *block, std::size_t size);
char *__wrap_strdup(const char *text);

void *__wrap_malloc(std::size_t size) { return next_allocation_fails() ? nullptr : __real_malloc(size); }
void *__wrap_calloc(std::size_t count, std::size_t size) {
    return next_allocation_fails() ? nullptr : __real_calloc(count, size);
}
void *__wrap_realloc(void *block, std::size_t size) {
    return next_allocation_fails() ? nullptr : __real_realloc(block, size);
}
char *__wrap_strdup(const char *text) { return next_allocation_fails() ? nullptr : __real_strdup(text); }
}

void fail_allocation(unsigned nth) {
    g_left = nth;
    g_failed = false;
}

bool allocation_failed() { return g_failed; }
