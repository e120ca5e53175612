#include "lookup.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "access.h"
#include "object.h"
#include "send.h"

namespace ubusd {
namespace {

// Between two objects only the path of the last one is kept, since objects are added and removed while a listing waits.
struct lookup {
    list_head list;
    std::uint16_t seq;
    std::uint32_t peer;
    char *after;      // path of the last object sent; null = none yet
    bool exact;       // `prefix` is the whole path
    bool may_be_none; // finding nothing is not an error
    bool found;
    std::size_t prefix_len;
    char prefix[];
};

lookup *make(const request &req, std::string_view prefix) {
    auto *l = static_cast<lookup *>(std::calloc(1, sizeof(lookup) + prefix.size() + 1));
    if (!l) return nullptr;
    l->seq = req.seq;
    l->peer = req.peer;
    l->prefix_len = prefix.size();
    std::memcpy(l->prefix, prefix.data(), prefix.size());
    return l;
}

void forget(client &c, lookup *l) {
    list_del(&l->list);
    --c.n_lookups;
    std::free(l->after);
    std::free(l);
}

// The methods that the client may call; true if there is something to show.
bool add_permitted(builder &b, const client &c, const object &o) {
    const blob_attr *signature = o.type->signature;
    if (access_everything(c)) {
        b.content(UBUS_ATTR_SIGNATURE, signature);
        return true;
    }
    void *nest = blob_nest_start(b.raw(), UBUS_ATTR_SIGNATURE);
    if (!nest) return false;
    bool any = false, all = true;
    blob_attr *method;
    std::size_t rem;
    blob_for_each_attr (method, signature, rem) {
        all = false;
        if (!access_method(c, o.path, blobmsg_name(method))) continue;
        any = true;
        if (!blob_put_raw(b.raw(), method, static_cast<unsigned>(blob_pad_len(method)))) b.fail();
    }
    blob_nest_end(b.raw(), nest);
    return any || all; // all: it has no methods
}

void send_object(client &c, const lookup &l, const object &o) {
    if (!o.type) return;
    builder b(c.bus->out);
    b.text(UBUS_ATTR_OBJPATH, o.path)
        .u32(UBUS_ATTR_OBJID, o.number.id)
        .u32(UBUS_ATTR_OBJTYPE, o.type->number.id);
    if (add_permitted(b, c, o)) client_send(c, UBUS_MSG_DATA, l.seq, l.peer, b.root());
}

object *next_object(const broker &bus, const lookup &l) {
    object *o = nullptr;
    if (l.exact) return l.found ? nullptr : object_find_path(bus, l.prefix);

    o = avl_find_ge_element(&bus.paths, l.after ? l.after : l.prefix, o, by_path);
    if (o && l.after && !std::strcmp(o->path, l.after))
        o = avl_is_last(const_cast<avl_tree *>(&bus.paths), &o->by_path) ? nullptr
                                                                         : avl_next_element(o, by_path);
    return o && !std::strncmp(o->path, l.prefix, l.prefix_len) ? o : nullptr;
}

// Sends until the listing has ended (true) or the client has to read first.
bool advance(client &c, lookup &l) {
    while (list_empty(&c.queue)) {
        const object *o = next_object(*c.bus, l);
        if (!o) {
            reply_status(c, l.seq, l.peer, l.found || l.may_be_none ? UBUS_STATUS_OK : UBUS_STATUS_NOT_FOUND);
            return true;
        }
        char *here = l.exact ? nullptr : strdup(o->path);
        if (!l.exact && !here) {
            reply_status(c, l.seq, l.peer, UBUS_STATUS_NO_MEMORY);
            return true;
        }
        std::free(l.after);
        l.after = here;
        l.found = true;
        send_object(c, l, *o);
    }
    return false;
}

} // namespace

int handle_lookup(request &req) {
    std::string_view path = req.has(UBUS_ATTR_OBJPATH) ? req.text(UBUS_ATTR_OBJPATH) : "*";
    if (path.empty()) return UBUS_STATUS_INVALID_ARGUMENT;
    const bool exact = path.back() != '*';
    if (!exact) path.remove_suffix(1);

    lookup *l = make(req, path);
    if (!l) return UBUS_STATUS_NO_MEMORY;
    l->exact = exact;
    l->may_be_none = !req.has(UBUS_ATTR_OBJPATH);
    list_add_tail(&l->list, &req.from.lookups);
    ++req.from.n_lookups;
    lookup_continue(req.from);
    if (req.from.n_lookups >= lookups_limit) client_watch(req.from);
    return no_status;
}

void lookup_continue(client &c) {
    while (!list_empty(&c.lookups)) {
        auto *first = list_first_entry(&c.lookups, lookup, list);
        if (!advance(c, *first)) return;
        forget(c, first);
    }
}

void lookup_forget_all(client &c) {
    while (!list_empty(&c.lookups)) forget(c, list_first_entry(&c.lookups, lookup, list));
}

} // namespace ubusd
