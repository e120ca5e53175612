#include "model.h"

#include <cstring>

namespace uci {
namespace {

// A zeroed block for a T with n bytes of text behind it.
template <class T> T *new_block(std::size_t n) { return static_cast<T *>(std::calloc(1, sizeof(T) + n)); }

std::size_t text_size(const char *text) { return text ? std::strlen(text) + 1 : 0; }

// Copies a text of that size, its end included, to *at, which moves on behind it; a null text stays null.
char *put_text(char *&at, const char *text, std::size_t size) {
    if (!text) return nullptr;
    char *copy = static_cast<char *>(std::memcpy(at, text, size));
    at += size;
    return copy;
}

// Low 16 bits tell types apart well enough; the number of the section makes the name unique.
std::uint32_t hash_text(const char *text) {
    std::uint32_t hash = 5381;
    for (; *text; ++text) hash = hash * 33 + static_cast<unsigned char>(*text);
    return hash;
}

char *generated_name(int number, const char *type) {
    char name[sizeof("cfg") + 2 * sizeof(int) + 4];
    (void)std::snprintf(name, sizeof(name), "cfg%02x%04x", static_cast<unsigned>(number),
                        static_cast<unsigned>(hash_text(type) & 0xffff));
    return strdup(name);
}

// The type shares the section's block until it is changed.
void free_type(uci_section *s) {
    if (s->type != uci_dataptr(s)) std::free(s->type);
}

uci_option *place_option(uci_option *o, uci_section *s, uci_option *old) {
    o->section = s;
    if (old) {
        list_insert_after(old->e.list, o->e.list);
        list_unlink(old->e.list);
        free_option(old);
    } else {
        list_append(s->options, o->e.list);
    }
    return o; // NOLINT(clang-analyzer-unix.Malloc): the items of old have moved to o before
}

uci_option *new_option(const char *name, uci_option_type type, const char *value) {
    const std::size_t name_size = text_size(name), value_size = text_size(value);
    auto *o = new_block<uci_option>(name_size + value_size);
    if (!o) return nullptr;
    char *at = uci_dataptr(o);
    o->e.type = UCI_TYPE_OPTION;
    o->e.name = put_text(at, name, name_size);
    o->type = type;
    if (type == UCI_TYPE_STRING)
        o->v.string = put_text(at, value, value_size);
    else
        list_init(o->v.list);
    return o;
}

} // namespace

uci_element *find(uci_list &list, const char *name) {
    uci_element *e;
    uci_foreach_element (&list, e) {
        if (std::strcmp(e->name, name) == 0) return e;
    }
    return nullptr;
}

uci_element *new_element(uci_list &list, uci_type type, const char *name) {
    const std::size_t size = text_size(name);
    auto *e = new_block<uci_element>(size);
    if (!e) return nullptr;
    char *at = uci_dataptr(e);
    e->type = type;
    e->name = put_text(at, name, size);
    list_append(list, e->list);
    return e;
}

void free_elements(uci_list &list) {
    uci_element *e, *next;
    uci_foreach_element_safe (&list, next, e) std::free(e);
    list_init(list);
}

uci_package *new_package(uci_context *ctx, const char *name, const char *path) {
    const std::size_t size = text_size(name);
    auto *p = new_block<uci_package>(size);
    if (!p) return nullptr;
    char *at = uci_dataptr(p);
    list_init(p->e.list);
    p->e.type = UCI_TYPE_PACKAGE;
    p->e.name = put_text(at, name, size);
    list_init(p->sections);
    list_init(p->delta);
    list_init(p->saved_delta);
    p->ctx = ctx;
    p->backend = ctx->backend;
    if (path && !(p->path = strdup(path))) {
        std::free(p);
        return nullptr;
    }
    return p;
}

void free_package(uci_package *p) {
    uci_element *e, *next;
    uci_foreach_element_safe (&p->sections, next, e) free_section(uci_to_section(e));
    free_deltas(p->delta);
    free_deltas(p->saved_delta);
    std::free(p->path);
    std::free(p);
}

uci_section *new_section(uci_package *p, const char *type, const char *name, bool anonymous) {
    const std::size_t size = text_size(type);
    auto *s = new_block<uci_section>(size);
    if (!s) return nullptr;
    s->e.name = name ? strdup(name) : generated_name(p->n_section + 1, type);
    if (!s->e.name) {
        std::free(s);
        return nullptr;
    }
    char *at = uci_dataptr(s);
    s->type = put_text(at, type, size);
    s->e.type = UCI_TYPE_SECTION;
    list_init(s->options);
    s->package = p;
    s->anonymous = anonymous || !name;
    list_append(p->sections, s->e.list);
    ++p->n_section;
    return s;
}

void free_section(uci_section *s) {
    uci_element *e, *next;
    uci_foreach_element_safe (&s->options, next, e) free_option(uci_to_option(e));
    free_type(s);
    std::free(s->e.name);
    std::free(s);
}

bool rename_section(uci_section *s, const char *name) {
    char *copy = strdup(name);
    if (!copy) return false;
    std::free(s->e.name);
    s->e.name = copy;
    s->anonymous = false;
    return true;
}

bool retype_section(uci_section *s, const char *type) {
    char *copy = strdup(type);
    if (!copy) return false;
    free_type(s);
    s->type = copy;
    return true;
}

uci_option *new_string(uci_section *s, uci_option *old, const char *name, const char *value) {
    uci_option *o = new_option(name, UCI_TYPE_STRING, value);
    return o ? place_option(o, s, old) : nullptr;
}

uci_option *new_list(uci_section *s, uci_option *old, const char *name) {
    uci_option *o = new_option(name, UCI_TYPE_LIST, nullptr);
    return o ? place_option(o, s, old) : nullptr;
}

uci_option *rename_option(uci_option *o, const char *name) {
    const bool is_string = o->type == UCI_TYPE_STRING;
    uci_option *renamed = new_option(name, o->type, is_string ? o->v.string : nullptr);
    if (!renamed) return nullptr;
    if (!is_string) list_move_all(renamed->v.list, o->v.list);
    return place_option(renamed, o->section, o);
}

void free_option(uci_option *o) {
    if (o->type == UCI_TYPE_LIST) free_elements(o->v.list);
    std::free(o);
}

uci_delta *new_delta(uci_command cmd, const char *section, const char *option, const char *value) {
    const std::size_t section_size = text_size(section), option_size = text_size(option);
    const std::size_t value_size = text_size(value);
    auto *d = new_block<uci_delta>(section_size + option_size + value_size);
    if (!d) return nullptr;
    char *at = uci_dataptr(d);
    d->cmd = cmd;
    d->e.type = UCI_TYPE_DELTA;
    d->e.name = put_text(at, option, option_size);
    d->section = put_text(at, section, section_size);
    d->value = put_text(at, value, value_size);
    return d;
}

void free_deltas(uci_list &list) {
    uci_element *e, *next;
    uci_foreach_element_safe (&list, next, e) free_delta(uci_to_delta(e));
    list_init(list);
}

} // namespace uci
