// auto_connect.cpp - a connection that is made again automatically.
#include <cstdio>

#include "internal.h"

namespace {

constexpr int retry_ms = 1000;

void on_lost(ubus_context *ctx) {
    uloop_timeout_set(&container_of(ctx, ubus_auto_conn, ctx)->timer, retry_ms);
}

void on_retry(uloop_timeout *timer) {
    auto *conn = container_of(timer, ubus_auto_conn, timer);
    if (ubus_reconnect(&conn->ctx, conn->path))
        uloop_timeout_set(timer, retry_ms);
    else
        ubus_add_uloop(&conn->ctx);
}

void on_first_try(uloop_timeout *timer) {
    auto *conn = container_of(timer, ubus_auto_conn, timer);
    if (ubus_connect_ctx(&conn->ctx, conn->path)) {
        std::fputs("failed to connect to ubus\n", stderr);
        uloop_timeout_set(timer, retry_ms);
        return;
    }
    timer->cb = on_retry;
    conn->ctx.connection_lost = on_lost;
    if (conn->cb) conn->cb(&conn->ctx);
    ubus_add_uloop(&conn->ctx);
}

} // namespace

void ubus_auto_connect(ubus_auto_conn *conn) {
    conn->timer.cb = on_first_try;
    on_first_try(&conn->timer);
}
