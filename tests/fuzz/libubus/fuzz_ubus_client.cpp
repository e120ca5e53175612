// What the broker sends to a client that has objects, a subscriber, an event handler and requests under way.
#include <cstdlib>

#include <sys/socket.h>
#include <unistd.h>

#include <libubus.h>

#include "script.h"

namespace {

constexpr std::uint32_t first_id = UBUS_SYSTEM_OBJECT_MAX;

ubus_context g_ctx;
ubus_request_data g_deferred;
int g_depth;

// Makes a call from a callback. The answer may be in the input.
void call_on() {
    if (g_depth >= 2) return;
    ++g_depth;
    ubus_invoke(&g_ctx, first_id, "nested", nullptr, nullptr, nullptr, 1);
    --g_depth;
}

void read_all(blob_attr *msg) {
    static volatile unsigned sum; // so that the reading is not optimised away
    const auto *p = static_cast<const unsigned char *>(blob_data(msg));
    for (std::size_t i = 0; i < blob_len(msg); ++i) sum = sum + p[i];
}

int on_call(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *method, blob_attr *msg) {
    read_all(msg);
    ubus_send_reply(ctx, req, msg);
    switch (method[0]) {
    case 'd': ubus_defer_request(ctx, req, &g_deferred); break;
    case 'c': ubus_complete_deferred_request(ctx, &g_deferred, 1); break;
    case 'n': call_on(); break;
    default: break;
    }
    return static_cast<int>(blob_len(msg));
}

void on_event(ubus_context *, ubus_event_handler *, const char *, blob_attr *msg) { read_all(msg); }
void on_gone(ubus_context *, ubus_subscriber *, std::uint32_t id) {
    if (id & 1) call_on();
}
bool on_new_object(ubus_context *, ubus_subscriber *, const char *path) { return path[0] == 'a'; }
void on_data(ubus_request *, int, blob_attr *msg) {
    read_all(msg);
    call_on();
}
void on_notify_data(ubus_notify_request *, int, blob_attr *msg) { read_all(msg); }
void on_monitor(ubus_context *, std::uint32_t, blob_attr *msg) { read_all(msg); }

const ubus_method methods[] = {UBUS_METHOD_NOARG("data", on_call), UBUS_METHOD_NOARG("complete", on_call),
                               UBUS_METHOD_NOARG("nested", on_call), UBUS_METHOD_NOARG("plain", on_call)};

// The answer that a request with this number is about to get: an object id, if any, and 0.
void prepare_answer(int broker, std::uint8_t seq, std::uint32_t peer, std::uint32_t id) {
    const auto low = [](std::uint32_t n, int shift) { return static_cast<std::uint8_t>(n >> shift); };
    const std::uint8_t data[] = {0,  2, 0, seq, 0, 0, 0, low(peer, 0), 0,         0, 0,
                                 12, 3, 0, 0,   8, 0, 0, low(id, 8),   low(id, 0)};
    const std::uint8_t status[] = {0, 1, 0, seq, 0, 0, 0, low(peer, 0), 0, 0, 0, 12, 1, 0, 0, 8, 0, 0, 0, 0};
    if (id && send(broker, data, sizeof data, 0) < 0) std::abort();
    if (send(broker, status, sizeof status, 0) < 0) std::abort();
}

// Gives the context a socket, in place of what connecting would do.
int connect_context() {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair)) std::abort();
    ubus_channel_connect(&g_ctx, pair[0], nullptr);
    g_ctx.local_id = 0x01020304;
    INIT_LIST_HEAD(&g_ctx.auto_subscribers);
    g_ctx.auto_subscribe_event_handler = {};
    g_ctx.monitor_cb = on_monitor;
    return pair[1];
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const int broker = connect_context();
    g_deferred = {};
    g_deferred.fd = g_deferred.req_fd = -1;

    ubus_object obj{};
    obj.methods = methods;
    obj.n_methods = 4;
    ubus_subscriber watcher{};
    watcher.remove_cb = on_gone;
    watcher.new_obj_cb = on_new_object;
    ubus_event_handler events{};
    events.cb = on_event;
    prepare_answer(broker, 1, 0, first_id);
    ubus_add_object(&g_ctx, &obj);
    prepare_answer(broker, 2, 0, first_id + 1); // the subscriber
    prepare_answer(broker, 3, 0, first_id + 2); // its event handler
    prepare_answer(broker, 4, UBUS_SYSTEM_OBJECT_EVENT, 0);
    prepare_answer(broker, 5, 0, 0); // the lookup of what there is
    ubus_register_subscriber(&g_ctx, &watcher);
    prepare_answer(broker, 6, 0, first_id + 3);
    prepare_answer(broker, 7, UBUS_SYSTEM_OBJECT_EVENT, 0);
    ubus_register_event_handler(&g_ctx, &events, "*");

    ubus_request call;                // number 8
    ubus_notify_request notification; // number 9
    ubus_invoke_async(&g_ctx, first_id, "m", nullptr, &call);
    call.data_cb = on_data;
    ubus_complete_request_async(&g_ctx, &call);
    ubus_notify_async(&g_ctx, &obj, "n", nullptr, &notification);
    notification.data_cb = on_notify_data;
    ubus_complete_request_async(&g_ctx, &notification.req);

    std::span<const std::uint8_t> input(data, size);
    for (int i = 0; i < 64 && input.size() >= step_header && g_ctx.sock.fd >= 0; ++i) {
        const step s = next_step(input);
        char ignored[4096];
        if (s.kind == STEP_READ) {
            ubus_handle_event(&g_ctx);
            while (recv(broker, ignored, sizeof ignored, MSG_DONTWAIT) > 0) {
            }
        } else if (s.kind == STEP_RENEW) {
            ubus_flush_requests(&g_ctx);
        } else if (send(broker, s.bytes.data(), s.bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
            break;
        }
    }
    close(broker);
    if (g_ctx.sock.fd >= 0) ubus_handle_event(&g_ctx);
    ubus_shutdown(&g_ctx);
    uloop_done();
    return 0;
}
