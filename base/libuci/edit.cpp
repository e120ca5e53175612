#include "edit.h"

#include "model.h"
#include "text.h"
#include "tuple.h"

#include <climits>
#include <cstring>

namespace uci {
namespace {

// The record of a change, made before the change itself: memory may run out only while nothing has happened.
class note {
public:
    note(bool wanted, uci_command cmd, const char *section, const char *option, const char *value)
        : delta_(wanted ? new_delta(cmd, section, option, value) : nullptr), failed_(wanted && !delta_) {}
    bool failed() const { return failed_; }
    void done(uci_package *p) {
        if (delta_) list_append(p->delta, delta_.release()->e.list);
    }

private:
    delta_ptr delta_;
    bool failed_;
};

uci_option *find_option(uci_section *s, const char *name) {
    uci_element *e = find(s->options, name);
    return e ? uci_to_option(e) : nullptr;
}

const char *option_name(const uci_ptr *ptr) { return ptr->o ? ptr->o->e.name : ptr->option; }

// Points ptr to the object that has replaced an option; the old object's name must not be used any more.
int follow(uci_ptr *ptr, int rc, uci_option *o) {
    if (rc != UCI_OK) return rc;
    ptr->o = o;
    ptr->option = o->e.name;
    return rc;
}

// A whole decimal number, cut to the range of int.
bool parse_number(const char *text, int *number) {
    char *end = nullptr;
    const long n = std::strtol(text, &end, 10);
    *number = n > INT_MAX ? INT_MAX : n < INT_MIN ? INT_MIN : static_cast<int>(n);
    return end != text && *end == '\0';
}

int delete_section(uci_section *s, bool record) {
    note n(record, UCI_CMD_REMOVE, s->e.name, nullptr, nullptr);
    if (n.failed()) return UCI_ERR_MEM;
    n.done(s->package);
    list_unlink(s->e.list);
    free_section(s);
    return UCI_OK;
}

int delete_option(uci_option *o, bool record) {
    note n(record, UCI_CMD_REMOVE, o->section->e.name, o->e.name, nullptr);
    if (n.failed()) return UCI_ERR_MEM;
    n.done(o->section->package);
    list_unlink(o->e.list);
    free_option(o);
    return UCI_OK;
}

// Removes the items at which the predicate says so, given the item and its index.
template <class Predicate> bool remove_items_if(uci_option *o, Predicate matches) {
    bool any = false;
    int index = 0;
    uci_element *e, *next;
    uci_foreach_element_safe (&o->v.list, next, e) {
        if (!matches(e, index++)) continue;
        list_unlink(e->list);
        std::free(e);
        any = true;
    }
    return any;
}

int delete_item(uci_option *o, int index, const char *text, bool record) {
    note n(record, UCI_CMD_REMOVE, o->section->e.name, o->e.name, text);
    if (n.failed()) return UCI_ERR_MEM;
    if (remove_items_if(o, [index](uci_element *, int i) { return i == index; })) n.done(o->section->package);
    return UCI_OK;
}

int remove_option(uci_ptr *ptr, bool record) {
    int index = 0;
    if (!ptr->o) return UCI_ERR_NOTFOUND;
    if (ptr->value && ptr->o->type == UCI_TYPE_LIST && parse_number(ptr->value, &index))
        return delete_item(ptr->o, index, ptr->value, record);
    const bool shared = ptr->option == ptr->o->e.name;
    if (const int rc = delete_option(ptr->o, record)) return rc;
    if (shared) ptr->option = nullptr;
    ptr->o = nullptr;
    ptr->last = &ptr->s->e;
    return UCI_OK;
}

int remove_section(uci_ptr *ptr, bool record) {
    if (!ptr->s) return UCI_ERR_NOTFOUND;
    const bool shared = ptr->section == ptr->s->e.name;
    if (const int rc = delete_section(ptr->s, record)) return rc;
    if (shared) ptr->section = nullptr;
    ptr->s = nullptr;
    ptr->last = &ptr->p->e;
    return UCI_OK;
}

int remove(uci_ptr *ptr, bool record) {
    if (option_name(ptr)) return remove_option(ptr, record);
    return ptr->s || ptr->section ? remove_section(ptr, record) : UCI_ERR_INVAL;
}

int set(uci_ptr *ptr, bool record) {
    const char *option = option_name(ptr);
    if (!ptr->value || (!ptr->s && !ptr->section)) return UCI_ERR_INVAL;
    if (option && !ptr->s) return UCI_ERR_INVAL; // nothing to delete it from, either
    if (*ptr->value == '\0') {
        const int rc = remove(ptr, record);
        return rc == UCI_ERR_NOTFOUND ? UCI_OK : rc;
    }
    if (option) {
        if (!is_name(option)) return UCI_ERR_INVAL;
        uci_option *o = nullptr;
        const int rc = set_option(ptr->s, option, ptr->value, record, &o);
        return follow(ptr, rc, o);
    }
    if (!is_type(ptr->value)) return UCI_ERR_INVAL;
    if (ptr->s) return set_type(ptr->s, ptr->value, record);
    // A section that is no name, such as @type[9] past the end, would make a record that nobody can apply.
    if (!is_name(ptr->section)) return UCI_ERR_INVAL;
    return create_section(ptr->p, ptr->value, ptr->section, record, &ptr->s);
}

int rename(uci_ptr *ptr, bool record) {
    const char *option = option_name(ptr);
    if (!ptr->value || !is_name(ptr->value) || (!ptr->s && !ptr->section)) return UCI_ERR_INVAL;
    if (option ? !ptr->o : !ptr->s) return UCI_ERR_NOTFOUND;
    // Two of one name would be read back as one.
    const uci_element *self = option ? &ptr->o->e : &ptr->s->e;
    const uci_element *other = find(option ? ptr->s->options : ptr->p->sections, ptr->value);
    if (other && other != self) return UCI_ERR_DUPLICATE;
    if (other && (option || !ptr->s->anonymous)) return UCI_OK;
    note n(record, UCI_CMD_RENAME, ptr->s->e.name, option, ptr->value);
    if (n.failed()) return UCI_ERR_MEM;
    if (option) {
        uci_option *renamed = rename_option(ptr->o, ptr->value);
        if (!renamed) return UCI_ERR_MEM;
        (void)follow(ptr, UCI_OK, renamed);
    } else {
        if (!rename_section(ptr->s, ptr->value)) return UCI_ERR_MEM;
        ptr->section = ptr->s->e.name;
    }
    n.done(ptr->p);
    return UCI_OK;
}

int move_section(uci_section *s, int pos, bool record) {
    char text[3 * sizeof(int) + 1];
    (void)std::snprintf(text, sizeof(text), "%d", pos);
    note n(record, UCI_CMD_REORDER, s->e.name, nullptr, text);
    if (n.failed()) return UCI_ERR_MEM;
    uci_list &head = s->package->sections;
    const uci_list *before = s->e.list.prev;
    list_unlink(s->e.list);
    uci_list *place = &head;
    for (int i = 0; i < pos && place->next != &head; ++i) place = place->next;
    list_insert_after(*place, s->e.list);
    if (place != before) n.done(s->package);
    return UCI_OK;
}

int reorder(uci_ptr *ptr, bool record) {
    int pos = 0;
    if (!ptr->value || !ptr->s) return UCI_ERR_INVAL;
    (void)parse_number(ptr->value, &pos); // a text that is not a number means the first place
    return move_section(ptr->s, pos, record);
}

int append_item(uci_ptr *ptr, bool record) {
    const char *option = option_name(ptr);
    if (!ptr->value || !ptr->s || !option || !is_name(option)) return UCI_ERR_INVAL;
    uci_option *o = nullptr;
    const int rc = add_item(ptr->s, option, ptr->value, record, &o);
    return follow(ptr, rc, o);
}

int remove_equal_items(uci_ptr *ptr, bool record) {
    if (!ptr->value || !ptr->s || !option_name(ptr)) return UCI_ERR_INVAL;
    if (!ptr->o || ptr->o->type != UCI_TYPE_LIST) return UCI_OK;
    note n(record, UCI_CMD_LIST_DEL, ptr->s->e.name, ptr->o->e.name, ptr->value);
    if (n.failed()) return UCI_ERR_MEM;
    remove_items_if(ptr->o, [ptr](uci_element *e, int) { return std::strcmp(e->name, ptr->value) == 0; });
    n.done(ptr->p);
    return UCI_OK;
}

// A section that was recorded as created anonymous keeps the name that later records call it by.
int restore_section(uci_ptr *ptr, bool record) {
    if (!ptr->value || !ptr->section) return UCI_ERR_INVAL;
    note n(record, UCI_CMD_ADD, ptr->section, nullptr, ptr->value);
    if (n.failed()) return UCI_ERR_MEM;
    ptr->s = new_section(ptr->p, ptr->value, ptr->section, true);
    if (!ptr->s) return UCI_ERR_MEM;
    n.done(ptr->p);
    return UCI_OK;
}

// The common frame of all calls that take a ptr.
int edit(uci_context *ctx, uci_ptr *ptr, uci_command cmd) {
    if (!ctx) return UCI_ERR_INVAL;
    if (!ptr) return result(ctx, UCI_ERR_INVAL);
    if (!(ptr->flags & uci_ptr::UCI_LOOKUP_DONE)) {
        if (const int rc = uci_lookup_ptr(ctx, ptr, nullptr, true)) return rc;
    }
    if (ptr->o) ptr->s = ptr->o->section;
    if (ptr->o || ptr->s) ptr->p = ptr->s->package;
    if (!ptr->p) return result(ctx, UCI_ERR_INVAL);
    // The caller may have gone on to another option of the section after the look-up.
    if (ptr->s && !ptr->o && ptr->option) ptr->o = find_option(ptr->s, ptr->option);
    return result(ctx, change(ptr, cmd, ptr->p->has_delta));
}

} // namespace

int change(uci_ptr *ptr, uci_command cmd, bool record) {
    switch (cmd) {
    case UCI_CMD_ADD: return restore_section(ptr, record);
    case UCI_CMD_REMOVE: return remove(ptr, record);
    case UCI_CMD_CHANGE: return set(ptr, record);
    case UCI_CMD_RENAME: return rename(ptr, record);
    case UCI_CMD_REORDER: return reorder(ptr, record);
    case UCI_CMD_LIST_ADD: return append_item(ptr, record);
    case UCI_CMD_LIST_DEL: return remove_equal_items(ptr, record);
    case __UCI_CMD_MAX: break;
    }
    return UCI_ERR_INVAL;
}

int add_section(uci_package *p, const char *type, bool record, uci_section **res) {
    uci_section *s = new_section(p, type, nullptr, true);
    if (!s) return UCI_ERR_MEM;
    note n(record, UCI_CMD_ADD, s->e.name, nullptr, type); // only now there is a name to note
    if (n.failed()) {
        list_unlink(s->e.list);
        free_section(s);
        --p->n_section;
        return UCI_ERR_MEM;
    }
    n.done(p);
    *res = s;
    return UCI_OK;
}

int create_section(uci_package *p, const char *type, const char *name, bool record, uci_section **res) {
    note n(record, UCI_CMD_CHANGE, name, nullptr, type);
    if (n.failed()) return UCI_ERR_MEM;
    uci_section *s = new_section(p, type, name, false);
    if (!s) return UCI_ERR_MEM;
    n.done(p);
    *res = s;
    return UCI_OK;
}

int set_type(uci_section *s, const char *type, bool record) {
    if (std::strcmp(s->type, type) == 0) return UCI_OK;
    note n(record, UCI_CMD_CHANGE, s->e.name, nullptr, type);
    if (n.failed() || !retype_section(s, type)) return UCI_ERR_MEM;
    n.done(s->package);
    return UCI_OK;
}

int set_option(uci_section *s, const char *name, const char *value, bool record, uci_option **res) {
    uci_option *o = *res = find_option(s, name);
    if (o && o->type == UCI_TYPE_STRING && std::strcmp(o->v.string, value) == 0) return UCI_OK;
    note n(record, UCI_CMD_CHANGE, s->e.name, name, value);
    if (n.failed() || !(o = new_string(s, o, name, value))) return UCI_ERR_MEM;
    n.done(s->package);
    *res = o;
    return UCI_OK;
}

int add_item(uci_section *s, const char *name, const char *value, bool record, uci_option **res) {
    uci_option *o = find_option(s, name);
    const bool is_list = o && o->type == UCI_TYPE_LIST;
    note n(record, UCI_CMD_LIST_ADD, s->e.name, name, value);
    bool ok = !n.failed();

    uci_list items;
    list_init(items);
    if (ok && o && !is_list)
        ok = new_element(items, UCI_TYPE_ITEM, o->v.string); // a string becomes the first item
    ok = ok && new_element(items, UCI_TYPE_ITEM, value);
    if (ok && !is_list) ok = (o = new_list(s, o, name));
    if (!ok) {
        free_elements(items);
        return UCI_ERR_MEM;
    }
    list_move_all(o->v.list, items);
    n.done(s->package);
    *res = o;
    return UCI_OK;
}

} // namespace uci

using namespace uci;

int uci_set(uci_context *ctx, uci_ptr *ptr) { return edit(ctx, ptr, UCI_CMD_CHANGE); }
int uci_delete(uci_context *ctx, uci_ptr *ptr) { return edit(ctx, ptr, UCI_CMD_REMOVE); }
int uci_rename(uci_context *ctx, uci_ptr *ptr) { return edit(ctx, ptr, UCI_CMD_RENAME); }
int uci_add_list(uci_context *ctx, uci_ptr *ptr) { return edit(ctx, ptr, UCI_CMD_LIST_ADD); }
int uci_del_list(uci_context *ctx, uci_ptr *ptr) { return edit(ctx, ptr, UCI_CMD_LIST_DEL); }

int uci_add_section(uci_context *ctx, uci_package *p, const char *type, uci_section **res) {
    if (!ctx) return UCI_ERR_INVAL;
    if (!p || !type || !res || !is_type(type)) return result(ctx, UCI_ERR_INVAL);
    return result(ctx, add_section(p, type, p->has_delta, res));
}

int uci_reorder_section(uci_context *ctx, uci_section *s, int pos) {
    if (!ctx) return UCI_ERR_INVAL;
    if (!s) return result(ctx, UCI_ERR_INVAL);
    return result(ctx, move_section(s, pos, s->package->has_delta));
}
