// notify.cpp - notifications to subscribers, and their answers.
//
// The broker first answers with the list of subscribers, then each of these answers by itself. Bit 0 of
// `pending` stands for the broker's answer, bit i for subscriber id[i].
#include <cstring>

#include "internal.h"

namespace ubus_client {
namespace {

const blob_attr *notification(const ubus_object *obj, const char *type, blob_attr *msg, bool no_reply) {
    builder b(out_buffer());
    b.u32(UBUS_ATTR_OBJID, obj->id).text(UBUS_ATTR_METHOD, type).content(UBUS_ATTR_DATA, msg);
    if (no_reply) b.u8(UBUS_ATTR_NO_REPLY, true);
    return b.root();
}

int start_notification(ubus_context *ctx, const ubus_object *obj, const blob_attr *root,
                       ubus_notify_request *req) {
    std::memset(req, 0, sizeof *req);
    const int status = start(ctx, &req->req, UBUS_MSG_NOTIFY, obj->id, root);
    req->req.notify = true;
    req->pending = 1;
    req->id[0] = obj->id;
    return status;
}

} // namespace

int awaited_subscriber(const ubus_request *req, std::uint32_t id) {
    if (!req->notify) return 0;
    const auto *notification = container_of(const_cast<ubus_request *>(req), ubus_notify_request, req);
    for (int i = 1; i <= UBUS_MAX_NOTIFY_PEERS; ++i)
        if (notification->id[i] == id && (notification->pending & (1u << i))) return i;
    return 0;
}

bool notify_status(ubus_request *req, const message &msg, blob_attr **attrs, int status) {
    auto *n = container_of(req, ubus_notify_request, req);
    if (n->pending & 1) {
        n->pending = 0;
        blob_attr *subscriber;
        std::size_t rem;
        int count = 0;
        blob_for_each_attr (subscriber, attrs[UBUS_ATTR_SUBSCRIBERS], rem) {
            if (blob_raw_len(subscriber) != sizeof(blob_attr) + sizeof(std::uint32_t)) continue;
            if (++count > UBUS_MAX_NOTIFY_PEERS) break;
            n->id[count] = blob_get_u32(subscriber);
            n->pending |= 1u << count;
        }
        return n->pending == 0;
    }
    const int index = awaited_subscriber(req, msg.peer);
    if (index == 0) return false;
    n->pending &= ~(1u << index);
    const bool all = n->pending == 0;
    if (n->status_cb) n->status_cb(n, index, status);
    return all;
}

} // namespace ubus_client

using namespace ubus_client;

int ubus_notify_async(ubus_context *ctx, ubus_object *obj, const char *type, blob_attr *msg,
                      ubus_notify_request *req) {
    if (ubus_context_is_channel(ctx)) return UBUS_STATUS_INVALID_ARGUMENT;
    return start_notification(ctx, obj, notification(obj, type, msg, false), req);
}

int ubus_notify(ubus_context *ctx, ubus_object *obj, const char *type, blob_attr *msg, int timeout) {
    const bool no_reply = timeout < 0;
    const blob_attr *root = notification(obj, type, msg, no_reply);
    if (!root || ubus_context_is_channel(ctx)) return UBUS_STATUS_INVALID_ARGUMENT;

    ubus_notify_request req;
    const int failed = start_notification(ctx, obj, root, &req);
    if (no_reply) return UBUS_STATUS_OK;
    return failed ? UBUS_STATUS_CONNECTION_FAILED : ubus_complete_request(ctx, &req.req, timeout);
}
