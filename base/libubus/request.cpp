// request.cpp - outgoing requests: sending them, matching the answers, waiting.
#include <algorithm>
#include <cstring>
#include <ctime>

#include <poll.h>
#include <unistd.h>

#include "internal.h"

namespace ubus_client {
namespace {

// A request whose answer is being delivered. A callback may end or abort the request, and the program may then free it:
// `req` is null after that.
struct delivery {
    ubus_request *req;
    delivery *outer;
};
delivery *g_deliveries;

void let_go(ubus_request *req) {
    for (delivery *d = g_deliveries; d; d = d->outer)
        if (d->req == req) d->req = nullptr;
    if (req->pending.next) discard_all(&req->pending);
    req->blocked = false;
}

bool is_waited_for(const ubus_request *req) { return req->list.next && !list_empty(&req->list); }

ubus_request *find_request(ubus_context *ctx, std::uint16_t seq, std::uint32_t peer) {
    ubus_request *req;
    list_for_each_entry (req, &ctx->requests, list) {
        if (req->seq != seq) continue;
        if (req->peer == peer || awaited_subscriber(req, peer)) return req;
    }
    return nullptr;
}

void deliver_data(ubus_request *req, const message &msg) {
    blob_attr *attrs[UBUS_ATTR_MAX];
    ubus_wire::parse(msg.body, attrs);

    delivery current{req, g_deliveries};
    g_deliveries = &current;
    if (req->raw_data_cb) req->raw_data_cb(req, UBUS_MSG_DATA, msg.body);
    if (current.req && attrs[UBUS_ATTR_DATA]) {
        auto *notification = container_of(req, ubus_notify_request, req);
        if (req->notify && notification->data_cb)
            notification->data_cb(notification, UBUS_MSG_DATA, attrs[UBUS_ATTR_DATA]);
        else if (!req->notify && req->data_cb)
            req->data_cb(req, UBUS_MSG_DATA, attrs[UBUS_ATTR_DATA]);
    }
    g_deliveries = current.outer;
}

void deliver_status(ubus_request *req, message &msg) {
    blob_attr *attrs[UBUS_ATTR_MAX];
    ubus_wire::parse(msg.body, attrs);
    int status = attrs[UBUS_ATTR_STATUS] ? static_cast<int>(blob_get_u32(attrs[UBUS_ATTR_STATUS]))
                                         : UBUS_STATUS_INVALID_ARGUMENT;
    bool ended = true;

    delivery current{req, g_deliveries};
    g_deliveries = &current;
    if (req->notify) {
        ended = notify_status(req, msg, attrs, status);
        status = UBUS_STATUS_OK; // whatever the subscribers answered
    } else if (msg.fd >= 0 && req->fd_cb) {
        const int fd = msg.fd;
        msg.fd = -1;
        req->fd_cb(req, fd);
    }
    g_deliveries = current.outer;
    if (ended && current.req) finish(req, status);
}

void deliver_answer(ubus_request *req, message &msg) {
    if (msg.type == UBUS_MSG_DATA)
        deliver_data(req, msg);
    else
        deliver_status(req, msg);
}

std::int64_t now_ms() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Reads until the request has ended, for at most `timeout` milliseconds (0 = for ever).
void wait_for(ubus_context *ctx, ubus_request *req, int timeout) {
    const std::int64_t end = now_ms() + timeout;
    while (!req->status_msg) {
        const std::int64_t left = timeout > 0 ? std::max<std::int64_t>(end - now_ms(), 0) : -1;
        pollfd readable{ctx->sock.fd, POLLIN, 0};
        if (poll(&readable, 1, static_cast<int>(left)) == 0) return;

        auto p = ubus_wire::progress::message;
        while (p == ubus_wire::progress::message && !req->status_msg) p = read_one(ctx);
        if (p == ubus_wire::progress::closed) return lose_connection(ctx);
    }
}

} // namespace

int start(ubus_context *ctx, ubus_request *req, ubus_msg_type type, std::uint32_t peer, const blob_attr *root,
          int fd) {
    std::memset(req, 0, sizeof *req);
    INIT_LIST_HEAD(&req->list);
    INIT_LIST_HEAD(&req->pending);
    req->ctx = ctx;
    req->fd = -1;
    req->peer = peer;
    req->seq = ++ctx->request_seq;
    return send(ctx, type, req->seq, peer, root, fd) ? 0 : UBUS_STATUS_INVALID_ARGUMENT;
}

int ask(ubus_context *ctx, ubus_msg_type type, const blob_attr *root, ubus_data_handler_t raw_data_cb,
        void *priv) {
    ubus_request req;
    if (ubus_context_is_channel(ctx) || start(ctx, &req, type, 0, root)) return UBUS_STATUS_INVALID_ARGUMENT;
    req.raw_data_cb = raw_data_cb;
    req.priv = priv;
    return ubus_complete_request(ctx, &req, 0);
}

void answer(ubus_context *ctx, message &msg) {
    ubus_request *req = find_request(ctx, msg.seq, msg.peer);
    if (!req) return;
    if (req->blocked) return keep(&req->pending, msg);

    // Answers that arrive while a callback of this request makes a call of its own are kept, and follow in
    // order.
    delivery current{req, g_deliveries};
    g_deliveries = &current;
    req->blocked = true;
    deliver_answer(req, msg);
    while (current.req) {
        kept_message *next = take_first(&req->pending);
        if (!next) break;
        deliver_answer(req, next->msg);
        discard(next);
    }
    if (current.req) req->blocked = false;
    g_deliveries = current.outer;
}

void finish(ubus_request *req, int status) {
    if (is_waited_for(req)) list_del_init(&req->list);
    let_go(req);
    req->status_code = status;
    req->status_msg = true;
    if (req->notify) {
        auto *notification = container_of(req, ubus_notify_request, req);
        if (notification->complete_cb) notification->complete_cb(notification, 0, status);
    } else if (req->complete_cb) {
        req->complete_cb(req, status);
    }
}

} // namespace ubus_client

using namespace ubus_client;

void ubus_complete_request_async(ubus_context *ctx, ubus_request *req) {
    if (is_waited_for(req) || req->status_msg) return;
    list_add(&req->list, &ctx->requests);
    if (ctx->sock.fd < 0) finish(req, UBUS_STATUS_TIMEOUT);
}

int ubus_complete_request(ubus_context *ctx, ubus_request *req, int timeout) {
    if (ctx->sock.fd < 0) return UBUS_STATUS_CONNECTION_FAILED;
    ubus_complete_request_async(ctx, req);

    ++ctx->stack_depth;
    if (timeout >= 0) wait_for(ctx, req, timeout);
    --ctx->stack_depth;

    if (!req->status_msg) finish(req, UBUS_STATUS_TIMEOUT);
    const int status = req->cancelled ? UBUS_STATUS_CONNECTION_FAILED : req->status_code;
    if (!ctx->sock.registered) deliver_pending(ctx);
    return status;
}

void ubus_abort_request(ubus_context *, ubus_request *req) {
    if (is_waited_for(req)) list_del_init(&req->list);
    let_go(req);
}

void ubus_flush_requests(ubus_context *ctx) {
    LIST_HEAD(flushed);
    list_splice_tail_init(&ctx->requests, &flushed);
    while (!list_empty(&flushed)) finish(list_first_entry(&flushed, ubus_request, list), UBUS_STATUS_TIMEOUT);
}

int ubus_invoke_async_fd(ubus_context *ctx, std::uint32_t obj, const char *method, blob_attr *msg,
                         ubus_request *req, int fd) {
    builder b(out_buffer());
    b.u32(UBUS_ATTR_OBJID, obj).text(UBUS_ATTR_METHOD, method).content(UBUS_ATTR_DATA, msg);
    return start(ctx, req, UBUS_MSG_INVOKE, obj, b.root(), fd);
}

int ubus_invoke_fd(ubus_context *ctx, std::uint32_t obj, const char *method, blob_attr *msg,
                   ubus_data_handler_t cb, void *priv, int timeout, int fd) {
    ubus_request req;
    const int status = ubus_invoke_async_fd(ctx, obj, method, msg, &req, fd);
    if (status) return status;
    req.data_cb = cb;
    req.priv = priv;
    return ubus_complete_request(ctx, &req, timeout);
}
