// The thresholds' configuration, uci package "debug":  config module 'main'  /  option level '7'
#include "debug/dbg_modules.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <uci.h>
}

namespace {

int level_of(const char *text, int otherwise) noexcept {
    return text[0] >= '0' && text[0] <= '0' + dbg_level_max && text[1] == '\0' ? text[0] - '0' : otherwise;
}

} // namespace

int dbg_configured_threshold(const char *module, int otherwise) noexcept {
    uci_context *context = uci_alloc_context();
    if (!context) return otherwise;
    char tuple[64]; // the look-up changes it
    (void)std::snprintf(tuple, sizeof(tuple), "debug.%s.level", module);
    uci_ptr found{};
    int level = otherwise;
    if (uci_lookup_ptr(context, &found, tuple, true) == UCI_OK &&
        (found.flags & uci_ptr::UCI_LOOKUP_COMPLETE) && found.o && found.o->type == UCI_TYPE_STRING)
        level = level_of(found.o->v.string, otherwise);
    uci_free_context(context);
    return level;
}
