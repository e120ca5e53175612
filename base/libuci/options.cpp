#include "model.h"

#include <cstring>

namespace uci {
namespace {

// FNV-1a over the text and its terminator, so that "ab","c" and "a","bc" differ.
std::uint32_t hash_more(std::uint32_t hash, const char *text) {
    do hash = (hash ^ static_cast<unsigned char>(*text)) * 16777619u;
    while (*text++);
    return hash;
}

uci_option *find_typed(uci_section *s, const uci_parse_option &want) {
    uci_element *e = want.name ? find(s->options, want.name) : nullptr;
    return e && uci_to_option(e)->type == want.type ? uci_to_option(e) : nullptr;
}

} // namespace
} // namespace uci

using namespace uci;

void uci_parse_section(uci_section *s, const uci_parse_option *opts, int n, uci_option **tb) {
    for (int i = 0; i < n; ++i) tb[i] = find_typed(s, opts[i]);
}

uint32_t uci_hash_options(uci_option **tb, int n) {
    std::uint32_t hash = 2166136261u;
    for (int i = 0; i < n; ++i) {
        const uci_option *o = tb[i];
        if (!o) continue;
        hash = hash_more(hash, o->e.name);
        if (o->type == UCI_TYPE_STRING) {
            hash = hash_more(hash, o->v.string);
        } else {
            uci_element *item;
            uci_foreach_element (&o->v.list, item) hash = hash_more(hash, item->name);
        }
    }
    return hash;
}
