// connection.cpp - connecting to the broker, again after a loss, and leaving.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "internal.h"

namespace ubus_client {
namespace {

constexpr int greeting_timeout_ms = 30000; // a broker greets at once; one that never does must not block us

// A connected socket, or -1.
int open_socket(const char *path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (!path) path = ubus_wire::default_socket;
    if (std::strlen(path) >= sizeof address.sun_path) return -1;
    std::strcpy(address.sun_path, path);

    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    int failed;
    do failed = connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
    while (failed && errno == EINTR);
    if (failed || fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK) < 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// The id that the broker's greeting gives, in network order; 0 if there is no proper greeting.
std::uint32_t read_greeting(int fd) {
    using ubus_wire::progress;
    ubus_wire::inbox *in = nullptr;
    progress p;
    while ((p = ubus_wire::inbox_read(in, fd)) == progress::more) {
        pollfd readable{fd, POLLIN, 0};
        const int ready = poll(&readable, 1, greeting_timeout_ms);
        if (ready == 0 || (ready < 0 && errno != EINTR)) break;
    }
    const bool greeted = p == progress::message && in->hdr.version == 0 && in->hdr.type == UBUS_MSG_HELLO;
    const std::uint32_t id = greeted ? in->hdr.peer : 0;
    ubus_wire::inbox_free(in);
    return id;
}

// Registers the objects again. Those that the broker refuses are dropped; if the connection is lost
// again, the rest keep their old ids, and so their places in the order for the next attempt.
void renew_objects(ubus_context *ctx) {
    LIST_HEAD(old);
    ubus_object *obj, *next;
    avl_remove_all_elements (&ctx->objects, obj, avl, next) {
        list_add_tail(&obj->avl.list, &old);
        if (obj->type) obj->type->id = 0;
    }
    while (!list_empty(&old)) {
        obj = list_first_entry(&old, ubus_object, avl.list);
        list_del(&obj->avl.list);
        const std::uint32_t old_id = obj->id;
        obj->id = 0;
        if (ctx->sock.fd >= 0) ubus_add_object(ctx, obj);
        if (ctx->sock.fd < 0 && obj->id == 0) {
            obj->id = old_id;
            if (avl_insert(&ctx->objects, &obj->avl)) obj->id = 0;
        }
    }
}

// Closes the socket and drops everything received from it.
void close_socket(ubus_context *ctx) {
    if (ctx->sock.fd >= 0) {
        uloop_fd_delete(&ctx->sock);
        close(ctx->sock.fd);
        ctx->sock.fd = -1;
    }
    forget_input(ctx);
    discard_all(&ctx->pending);
    uloop_timeout_cancel(&ctx->pending_timer);
}

} // namespace

void init_context(ubus_context *ctx) {
    std::memset(ctx, 0, sizeof *ctx);
    uloop_init();
    INIT_LIST_HEAD(&ctx->requests);
    INIT_LIST_HEAD(&ctx->pending);
    INIT_LIST_HEAD(&ctx->auto_subscribers);
    avl_init(&ctx->objects, compare_ids, false, nullptr);
    ctx->sock.fd = -1;
    ctx->sock.cb = on_socket;
    ctx->pending_timer.cb = on_pending_timer;
    ctx->connection_lost = end_loop;
}

} // namespace ubus_client

using namespace ubus_client;

ubus_context *ubus_connect(const char *path) {
    auto *ctx = static_cast<ubus_context *>(std::malloc(sizeof(ubus_context)));
    if (ctx && ubus_connect_ctx(ctx, path)) {
        std::free(ctx);
        ctx = nullptr;
    }
    return ctx;
}

int ubus_connect_ctx(ubus_context *ctx, const char *path) {
    init_context(ctx);
    return ubus_reconnect(ctx, path) ? -1 : 0;
}

int ubus_reconnect(ubus_context *ctx, const char *path) {
    if (ubus_context_is_channel(ctx)) return -1;

    const int fd = open_socket(path);
    if (fd < 0) return UBUS_STATUS_CONNECTION_FAILED;
    const std::uint32_t id = read_greeting(fd);
    if (id == 0) {
        close(fd);
        return UBUS_STATUS_UNKNOWN_ERROR;
    }

    close_socket(ctx);
    ctx->local_id = id;
    ctx->sock.fd = fd;
    ctx->sock.eof = ctx->sock.error = false;
    const handlers_wait until_back(ctx);
    renew_objects(ctx);
    renew_automatic(ctx);
    return 0;
}

void ubus_shutdown(ubus_context *ctx) {
    blob_buf_free(&out_buffer());
    ubus_wire::inbox_forget_spare();
    if (ctx) close_socket(ctx);
}

void ubus_free(ubus_context *ctx) {
    ubus_shutdown(ctx);
    std::free(ctx);
}
