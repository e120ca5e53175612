// io.cpp - the socket of a context: sending, receiving, losing it.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <poll.h>
#include <unistd.h>

#include "internal.h"

namespace ubus_client {
namespace {

using ubus_wire::inbox;
using ubus_wire::progress;

// ctx->msgbuf.data points to the root within the inbox, which is the receive buffer.
inbox *inbox_of(ubus_context *ctx) {
    return ctx->msgbuf.data ? container_of(ctx->msgbuf.data, inbox, body) : nullptr;
}

void set_inbox(ubus_context *ctx, inbox *in) {
    ctx->msgbuf.data = in ? &in->body : nullptr;
    ctx->msgbuf_data_len = in ? static_cast<std::uint32_t>(in->room) : 0;
}

void dispatch(ubus_context *ctx, message &msg) {
    switch (msg.type) {
    case UBUS_MSG_STATUS:
    case UBUS_MSG_DATA: answer(ctx, msg); break;

    case UBUS_MSG_INVOKE:
    case UBUS_MSG_UNSUBSCRIBE:
    case UBUS_MSG_NOTIFY:
        if (ctx->stack_depth == 0 && list_empty(&ctx->pending)) return deliver(ctx, msg);
        keep(&ctx->pending, msg);
        if (ctx->sock.registered && !ctx->pending_timer.pending) uloop_timeout_set(&ctx->pending_timer, 1);
        break;

    case UBUS_MSG_MONITOR:
        if (ctx->monitor_cb) ctx->monitor_cb(ctx, msg.seq, msg.body);
        break;

    default: break; // not a message for a client
    }
}

} // namespace

void keep(list_head *list, message &msg) {
    auto *kept = static_cast<kept_message *>(std::malloc(sizeof(kept_message) + blob_pad_len(msg.body)));
    if (!kept) return;
    kept->msg = msg;
    kept->msg.body = reinterpret_cast<blob_attr *>(kept + 1);
    std::memcpy(kept->msg.body, msg.body, blob_pad_len(msg.body));
    msg.fd = -1;
    list_add_tail(&kept->list, list);
}

kept_message *take_first(list_head *list) {
    if (list_empty(list)) return nullptr;
    kept_message *kept = list_first_entry(list, kept_message, list);
    list_del(&kept->list);
    return kept;
}

void discard(kept_message *kept) {
    if (kept->msg.fd >= 0) close(kept->msg.fd);
    std::free(kept);
}

void discard_all(list_head *list) {
    while (kept_message *kept = take_first(list)) discard(kept);
}

blob_buf &out_buffer() {
    static blob_buf buf;
    return buf;
}

bool send(ubus_context *ctx, ubus_msg_type type, std::uint16_t seq, std::uint32_t peer, const blob_attr *root,
          int fd, const ubus_wire::apart &end) {
    const ubus_msghdr hdr = ubus_wire::make_header(type, seq, peer);
    const std::size_t size = root ? ubus_wire::frame_size(root) : 0;
    std::size_t sent = 0;
    bool good = root && ctx->sock.fd >= 0;
    while (good && sent < size) {
        const ssize_t n = ubus_wire::send_some(ctx->sock.fd, hdr, root, sent, fd, end);
        if (n >= 0) {
            sent += static_cast<std::size_t>(n);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            pollfd writable{ctx->sock.fd, POLLOUT, 0};
            poll(&writable, 1, -1);
        } else {
            good = false;
        }
    }
    if (fd >= 0) close(fd);
    // Otherwise the other side would take the next message for the rest of this one.
    if (!good && sent > 0) lose_connection(ctx);
    return good;
}

progress read_one(ubus_context *ctx) {
    if (ctx->sock.fd < 0) return progress::closed;

    inbox *in = inbox_of(ctx);
    progress p = ubus_wire::inbox_read(in, ctx->sock.fd);
    set_inbox(ctx, in);
    if (p != progress::message) return p == progress::more ? p : progress::closed;
    if (in->hdr.version != 0) return progress::closed;

    // The message keeps its buffer while it is dispatched: a callback that makes a call reads into another
    // one.
    set_inbox(ctx, nullptr);
    ctx->msgbuf.hdr = in->hdr;
    message msg{in->hdr.type, be16_to_cpu(in->hdr.seq), be32_to_cpu(in->hdr.peer), &in->body,
                ubus_wire::inbox_take_fd(*in)};
    dispatch(ctx, msg);
    if (msg.fd >= 0) close(msg.fd);

    if (inbox_of(ctx)) {
        ubus_wire::inbox_free(in);
    } else {
        ubus_wire::inbox_next(in);
        set_inbox(ctx, in);
    }
    return p;
}

void deliver_pending(ubus_context *ctx) {
    while (ctx->stack_depth == 0) {
        kept_message *kept = take_first(&ctx->pending);
        if (!kept) break;
        deliver(ctx, kept->msg);
        discard(kept);
    }
}

void on_pending_timer(uloop_timeout *timer) {
    deliver_pending(container_of(timer, ubus_context, pending_timer));
}

void on_socket(uloop_fd *sock, unsigned) {
    ubus_context *ctx = container_of(sock, ubus_context, sock);
    progress p;
    deliver_pending(ctx);
    do p = read_one(ctx);
    while (p == progress::message);
    deliver_pending(ctx);
    if (p == progress::closed) lose_connection(ctx);
}

void end_loop(ubus_context *) { uloop_end(); }

void lose_connection(ubus_context *ctx) {
    // A program that only waits in the loop survives the loss of the bus: the loop has removed the socket before we
    // get here. One that is in the middle of a call ends.
    if (ctx->sock.fd < 0) return;
    const bool in_loop = ctx->sock.registered;
    uloop_fd_delete(&ctx->sock);
    close(ctx->sock.fd);
    ctx->sock.fd = -1;
    ctx->sock.eof = true;
    forget_input(ctx);
    ubus_request *req;
    list_for_each_entry (req, &ctx->requests, list) req->cancelled = true;
    ubus_flush_requests(ctx);
    if (ctx->connection_lost && (in_loop || ctx->connection_lost != end_loop)) ctx->connection_lost(ctx);
}

void forget_input(ubus_context *ctx) {
    inbox *in = inbox_of(ctx);
    ubus_wire::inbox_free(in);
    set_inbox(ctx, nullptr);
}

} // namespace ubus_client
