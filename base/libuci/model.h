// model.h - packages, sections, options and recorded changes as objects in memory.
//
// An object belongs to the list that it is linked in: the makers link it there, the free_ functions unlink
// nothing and take everything below along. Names and values that do not change are stored in the object's own
// block, so that an option costs one allocation. A maker returns null when out of memory and has then changed
// nothing.
#pragma once

#include <uci.h>

#include <cstdlib>
#include <memory>

namespace uci {

template <auto Free> struct freer {
    template <class T> void operator()(T *p) const noexcept { Free(p); }
};

inline void free_memory(void *p) noexcept { std::free(p); }
inline void close_file(FILE *f) noexcept { (void)std::fclose(f); } // writers flush and check first

using text_ptr = std::unique_ptr<char, freer<free_memory>>;
using file_ptr = std::unique_ptr<FILE, freer<close_file>>;

inline bool is_strict(const uci_context *ctx) { return (ctx->flags & UCI_FLAG_STRICT) != 0; }

// Stores a result in the context.
inline int result(uci_context *ctx, int code) {
    ctx->err = code;
    return code;
}

inline void list_init(uci_list &head) { head.next = head.prev = &head; }

inline void list_insert_after(uci_list &place, uci_list &node) {
    node.prev = &place;
    node.next = place.next;
    place.next->prev = &node;
    place.next = &node;
}

inline void list_append(uci_list &head, uci_list &node) { list_insert_after(*head.prev, node); }

inline void list_unlink(uci_list &node) {
    node.prev->next = node.next;
    node.next->prev = node.prev;
    list_init(node);
}

// Moves all of one list to the end of another.
inline void list_move_all(uci_list &to, uci_list &from) {
    while (!uci_list_empty(&from)) {
        uci_list &node = *from.next;
        list_unlink(node);
        list_append(to, node);
    }
}

// First element of that name, or null.
uci_element *find(uci_list &list, const char *name);

// An element with only a name: a list item, or a folder of the delta path.
uci_element *new_element(uci_list &list, uci_type type, const char *name);
void free_elements(uci_list &list); // of that plain kind: unlinks and frees all

// In no list yet; path may be null.
uci_package *new_package(uci_context *ctx, const char *name, const char *path);
void free_package(uci_package *p);
using package_ptr = std::unique_ptr<uci_package, freer<free_package>>;

// At the end of the package; a null name makes an anonymous section with a generated one. Another name with
// anonymous true is one that was generated before and comes back from a delta file.
uci_section *new_section(uci_package *p, const char *type, const char *name, bool anonymous);
void free_section(uci_section *s);
bool rename_section(uci_section *s, const char *name);
bool retype_section(uci_section *s, const char *type);

// Both put the option in the place of old, which is freed, or at the end of the section if old is null.
uci_option *new_string(uci_section *s, uci_option *old, const char *name, const char *value);
uci_option *new_list(uci_section *s, uci_option *old, const char *name);
uci_option *rename_option(uci_option *o, const char *name); // returns the object that takes its place
void free_option(uci_option *o);

// A recorded change, in no list. option and value may be null.
uci_delta *new_delta(uci_command cmd, const char *section, const char *option, const char *value);
inline void free_delta(uci_delta *d) { std::free(d); }
void free_deltas(uci_list &list); // unlinks and frees all
using delta_ptr = std::unique_ptr<uci_delta, freer<free_delta>>;

} // namespace uci
