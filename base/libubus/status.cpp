#include <cstdio>

#include <libubus.h>

const char *ubus_strerror(int error) {
    static const char *const texts[] = {
        "Success",
        "Invalid command",
        "Invalid argument",
        "Method not found",
        "Not found",
        "No response",
        "Permission denied",
        "Request timed out",
        "Operation not supported",
        "Unknown error",
        "Connection failed",
        "Out of memory",
        "Parsing message data failed",
        "System error",
    };
    static_assert(sizeof texts / sizeof texts[0] == __UBUS_STATUS_LAST);
    static char other[32];

    if (error >= 0 && error < __UBUS_STATUS_LAST) return texts[error];
    std::snprintf(other, sizeof other, "Unknown error: %d", error);
    return other;
}
