// bus.h - calling the daemon's methods over the bus, and the messages and exit statuses for failures.
#pragma once

#include "base/cxx/ubus.h"

#include <span>

// The program's exit status.
enum exit_status {
    exit_done = 0,
    exit_not_found = 1, // no such station
    exit_usage = 2,
    exit_no_bus = 3,    // no broker answers
    exit_no_daemon = 4, // the object is not there
    exit_no_rights = 5,
    exit_failed = 6, // anything else
};

// The connection. Null when no broker answers; the message has been printed.
struct ubus_context *bus_connect();

// The arguments of a call. Without memory for one of them there is no message, since a call with fewer would ask for something
// else.
class bus_arguments {
public:
    bus_arguments() noexcept : whole(blob_buf_init(&buf, 0) == 0) {}
    ~bus_arguments() { blob_buf_free(&buf); }
    bus_arguments(const bus_arguments &) = delete;
    bus_arguments &operator=(const bus_arguments &) = delete;

    void add(const char *name, const char *text) noexcept;
    void add(const char *name, std::uint32_t number) noexcept;
    void add(const char *name, std::span<const char *const> texts) noexcept;

    // Null without memory.
    struct blob_attr *message() const noexcept {
        return whole ? buf.head : nullptr;
    }

private:
    struct blob_buf buf = {};
    bool whole;
};

// Calls one method and passes its answer to `take`, which may be null. Failures have been printed, except exit_not_found.
using bus_taker = void (*)(struct blob_attr *answer, void *priv);
exit_status bus_ask(struct ubus_context *bus, const char *object, const char *method,
                    const bus_arguments &arguments, bus_taker take, void *priv);

// The same, for any function object.
template <class Take>
exit_status bus_ask(struct ubus_context *bus, const char *object, const char *method,
                    const bus_arguments &arguments, Take take) {
    return bus_ask(
        bus, object, method, arguments,
        [](struct blob_attr *answer, void *priv) { (*static_cast<Take *>(priv))(answer); }, &take);
}

// The number of an object. Failures have been printed.
exit_status bus_find(struct ubus_context *bus, const char *object, std::uint32_t &id);

// Prints that there is no memory.
exit_status complain_of_memory();

// Prints on standard error what a status of the bus means.
exit_status bus_complain(const char *object, int status);
