#include "internal.h"

namespace {

struct lookup {
    ubus_lookup_handler_t cb;
    void *priv;
};

void on_found(ubus_request *req, int, blob_attr *body) {
    const auto *wanted = static_cast<const lookup *>(req->priv);
    blob_attr *attrs[UBUS_ATTR_MAX];
    ubus_wire::parse(body, attrs);
    if (!attrs[UBUS_ATTR_OBJID] || !attrs[UBUS_ATTR_OBJPATH] || !attrs[UBUS_ATTR_OBJTYPE] || !wanted->cb)
        return;

    ubus_object_data found{};
    found.id = blob_get_u32(attrs[UBUS_ATTR_OBJID]);
    found.type_id = blob_get_u32(attrs[UBUS_ATTR_OBJTYPE]);
    found.path = blob_get_string(attrs[UBUS_ATTR_OBJPATH]);
    found.signature = attrs[UBUS_ATTR_SIGNATURE];
    wanted->cb(req->ctx, &found, wanted->priv);
}

void store_id(ubus_context *, ubus_object_data *found, void *id) {
    *static_cast<std::uint32_t *>(id) = found->id;
}

} // namespace

int ubus_lookup(ubus_context *ctx, const char *path, ubus_lookup_handler_t cb, void *priv) {
    ubus_client::builder b(ubus_client::out_buffer());
    if (path) b.text(UBUS_ATTR_OBJPATH, path);
    lookup wanted{cb, priv};
    return ubus_client::ask(ctx, UBUS_MSG_LOOKUP, b.root(), on_found, &wanted);
}

int ubus_lookup_id(ubus_context *ctx, const char *path, std::uint32_t *id) {
    return ubus_lookup(ctx, path, store_id, id);
}
