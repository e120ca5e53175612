/* What a C program does with uci.h: the header must be C as well as C++, with the checked casts, too. */
#define UCI_DEBUG_TYPECAST
#include <uci.h>

/* The number of items of a list option, or -1. */
int uci_count_items_in_c(struct uci_context *ctx, struct uci_package *p, const char *section,
                         const char *option) {
    struct uci_section *s = uci_lookup_section(ctx, p, section);
    struct uci_option *o = s ? uci_lookup_option(ctx, s, option) : NULL;
    struct uci_element *e, *tmp;
    int n = 0;
    if (!o || o->type != UCI_TYPE_LIST || uci_list_empty(&o->v.list)) return -1;
    uci_foreach_element_safe (&o->v.list, tmp, e) ++n;
    return n;
}

/* The first section's type. */
const char *uci_first_type_in_c(struct uci_package *p) {
    struct uci_element *e;
    uci_foreach_element (&p->sections, e) return uci_to_section(e)->type;
    return NULL;
}

/* The option's name through a cast to another kind, which complains on standard error. */
const char *uci_wrong_cast_in_c(struct uci_option *o) { return uci_to_section(&o->e)->e.name; }

int uci_complete_in_c(struct uci_context *ctx, char *tuple) {
    struct uci_ptr ptr;
    return uci_lookup_ptr(ctx, &ptr, tuple, true) == UCI_OK && (ptr.flags & UCI_LOOKUP_COMPLETE);
}
