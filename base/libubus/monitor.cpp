#include "internal.h"

int __ubus_monitor(ubus_context *ctx, const char *type) {
    constexpr int timeout_ms = 1000;
    if (ubus_context_is_channel(ctx)) return UBUS_STATUS_INVALID_ARGUMENT;
    return ubus_invoke(ctx, UBUS_SYSTEM_OBJECT_MONITOR, type, nullptr, nullptr, nullptr, timeout_ms);
}
