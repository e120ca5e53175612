// channel.cpp - two processes that talk without a broker.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "internal.h"

int ubus_channel_connect(ubus_context *ctx, int fd, ubus_handler_t handler) {
    ubus_client::init_context(ctx);
    if (fd < 0 || fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK) < 0) return -1;
    ctx->local_id = UBUS_CLIENT_ID_CHANNEL;
    ctx->request_handler = handler;
    ctx->sock.fd = fd;
    return 0;
}

int ubus_channel_create(ubus_context *ctx, int *remote_fd, ubus_handler_t handler) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends)) return -1;
    if (ubus_channel_connect(ctx, ends[0], handler)) {
        close(ends[0]);
        close(ends[1]);
        return -1;
    }
    *remote_fd = ends[1];
    return 0;
}
