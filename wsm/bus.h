// bus.h - asking the daemon over the bus, and what it is called when that fails.
#pragma once

#include "base/cxx/ubus.h"

// How the program ends.
enum exit_status {
    exit_done = 0,
    exit_not_found = 1, // no such station
    exit_usage = 2,
    exit_no_bus = 3,    // no broker answers
    exit_no_daemon = 4, // the object is not there
    exit_no_rights = 5,
    exit_failed = 6, // anything else
};

// The connection. Null: nobody answers; that has been said.
struct ubus_context *bus_connect();

// Asks one method, and gives its answer to `take`, which may be null; `arguments` too. What went wrong has been said, but for
// exit_not_found.
using bus_taker = void (*)(struct blob_attr *answer, void *priv);
exit_status bus_ask(struct ubus_context *bus, const char *object, const char *method,
                    struct blob_buf *arguments, bus_taker take, void *priv);

// The same, to a function of any kind.
template <class Take>
exit_status bus_ask(struct ubus_context *bus, const char *object, const char *method,
                    struct blob_buf *arguments, Take take) {
    return bus_ask(
        bus, object, method, arguments,
        [](struct blob_attr *answer, void *priv) { (*static_cast<Take *>(priv))(answer); }, &take);
}

// The number of an object. What went wrong has been said.
exit_status bus_find(struct ubus_context *bus, const char *object, std::uint32_t &id);

// Says on standard error what a status of the bus means.
exit_status bus_complain(const char *object, int status);
