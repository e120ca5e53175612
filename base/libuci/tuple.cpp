#include "tuple.h"

#include "model.h"
#include "text.h"

#include <climits>
#include <cstring>
#include <optional>
#include <string_view>

namespace uci {
namespace {

void set_flags(uci_ptr *ptr, int flags) { ptr->flags = static_cast<decltype(ptr->flags)>(flags); }
void add_flags(uci_ptr *ptr, int flags) { set_flags(ptr, static_cast<int>(ptr->flags) | flags); }

// @type[index]; an empty type stands for all.
struct indexed_section {
    std::string_view type;
    long index; // from the end, if negative
};

std::optional<indexed_section> parse_indexed(const char *text) {
    if (*text != '@') return std::nullopt;
    const char *type = text + 1;
    const char *bracket = std::strchr(type, '[');
    if (!bracket) return std::nullopt;
    char *end = nullptr;
    const long index = std::strtol(bracket + 1, &end, 10); // 0 for an empty index
    if (std::strcmp(end, "]") != 0) return std::nullopt;
    return indexed_section{{type, static_cast<std::size_t>(bracket - type)}, index};
}

// Most types differ in the first byte, so that most sections cost no call.
bool matches(uci_element *e, std::string_view type) {
    const char *own = uci_to_section(e)->type;
    return type.empty() || (*own == type.front() && std::strncmp(own, type.data(), type.size()) == 0 &&
                            own[type.size()] == '\0');
}

// From that end from which the index counts.
uci_section *find_indexed(uci_package *p, const indexed_section &want) {
    const bool backwards = want.index < 0;
    long others = backwards ? -(want.index + 1) : want.index; // to pass over
    uci_list &head = p->sections;
    for (uci_list *at = &head; (at = backwards ? at->prev : at->next) != &head;) {
        uci_element *e = list_to_element(at);
        if (matches(e, want.type) && others-- == 0) return uci_to_section(e);
    }
    return nullptr;
}

// The text up to the next dot, which is overwritten; null behind the last part. Half of what strsep costs.
char *cut_part(char **rest) {
    char *part = *rest;
    if (part && (*rest = std::strchr(part, '.'))) *(*rest)++ = '\0';
    return part;
}

uci_type depth(const uci_ptr *ptr) {
    if (ptr->o || ptr->option) return UCI_TYPE_OPTION;
    return ptr->s || ptr->section ? UCI_TYPE_SECTION : UCI_TYPE_PACKAGE;
}

void find_option(uci_ptr *ptr) {
    if (!ptr->s || ptr->o || !ptr->option) return;
    if (uci_element *e = find(ptr->s->options, ptr->option)) ptr->o = uci_to_option(e);
}

// Sets flags and last to show how far the look-up came.
void conclude(uci_ptr *ptr) {
    ptr->last = ptr->o ? &ptr->o->e : ptr->s ? &ptr->s->e : &ptr->p->e;
    const bool complete = ptr->target == ptr->last->type;
    add_flags(ptr, uci_ptr::UCI_LOOKUP_DONE | (complete ? uci_ptr::UCI_LOOKUP_COMPLETE : 0));
}

int lookup(uci_context *ctx, uci_ptr *ptr, char *str, bool extended) {
    if (str) {
        if (const int rc = split_tuple(ptr, str)) return rc;
    } else {
        ptr->target = depth(ptr);
        set_flags(ptr, ptr->section && !is_name(ptr->section) ? uci_ptr::UCI_LOOKUP_EXTENDED : 0);
        if (ptr->o) ptr->s = ptr->o->section;
        if (ptr->s) ptr->p = ptr->s->package;
        if (!ptr->p && !ptr->package) return UCI_ERR_INVAL;
    }

    const bool indexed = !ptr->s && (ptr->flags & uci_ptr::UCI_LOOKUP_EXTENDED);
    std::optional<indexed_section> place;
    if (indexed && extended && !(place = parse_indexed(ptr->section))) {
        *ptr = {};
        return UCI_ERR_INVAL;
    }

    if (!ptr->p && !(ptr->p = uci_lookup_package(ctx, ptr->package))) {
        if (const int rc = uci_load(ctx, ptr->package, &ptr->p)) return rc;
    }
    if (indexed) {
        if (!place) return UCI_ERR_INVAL;
        ptr->s = find_indexed(ptr->p, *place);
        if (ptr->s) ptr->section = ptr->s->e.name;
        find_option(ptr);
    } else {
        find_plain(ptr);
    }
    conclude(ptr);
    return UCI_OK;
}

} // namespace

int split_tuple(uci_ptr *ptr, char *str) {
    *ptr = {};
    char *value = std::strchr(str, '=');
    if (value) *value++ = '\0';
    char *rest = str;
    char *package = cut_part(&rest);
    char *section = cut_part(&rest);
    char *option = cut_part(&rest);
    if (rest || *package == '\0' || (option && !is_name(option)) || (value && !uci_validate_text(value)))
        return UCI_ERR_PARSE;
    ptr->package = package;
    ptr->section = section;
    ptr->option = option;
    ptr->value = value;
    ptr->target = depth(ptr);
    if (section && !is_name(section)) set_flags(ptr, uci_ptr::UCI_LOOKUP_EXTENDED);
    return UCI_OK;
}

void find_plain(uci_ptr *ptr) {
    if (!ptr->s && ptr->section) {
        if (uci_element *e = find(ptr->p->sections, ptr->section)) ptr->s = uci_to_section(e);
    }
    find_option(ptr);
}

} // namespace uci

using namespace uci;

int uci_parse_ptr(uci_context *ctx, uci_ptr *ptr, char *str) {
    if (!ctx) return UCI_ERR_INVAL;
    if (!ptr || !str) return result(ctx, UCI_ERR_INVAL);
    ctx->parse_reason = nullptr;
    return result(ctx, split_tuple(ptr, str));
}

int uci_lookup_ptr(uci_context *ctx, uci_ptr *ptr, char *str, bool extended) {
    if (!ctx) return UCI_ERR_INVAL;
    if (!ptr) return result(ctx, UCI_ERR_INVAL);
    ctx->parse_reason = nullptr;
    return result(ctx, lookup(ctx, ptr, str, extended));
}

int uci_lookup_next(uci_context *ctx, uci_element **e, uci_list *list, const char *name) {
    if (!ctx) return UCI_ERR_INVAL;
    if (!e) return result(ctx, UCI_ERR_INVAL);
    *e = list && name ? find(*list, name) : nullptr;
    return result(ctx, *e ? UCI_OK : UCI_ERR_NOTFOUND);
}

bool uci_validate_text(const char *str) {
    return std::ranges::all_of(std::string_view(str), [](char c) {
        return static_cast<unsigned char>(c) >= ' ' || c == '\t' || c == '\n' || c == '\r';
    });
}
