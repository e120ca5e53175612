#include "bus.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr int timeout_ms = 30000;

struct taken {
    bus_taker take;
    void *priv;
};

void receive(struct ubus_request *request, int /*type*/, struct blob_attr *answer) {
    const auto *to = static_cast<const taken *>(request->priv);
    if (to->take && answer) to->take(answer, to->priv);
}

} // namespace

struct ubus_context *bus_connect() {
    struct ubus_context *bus = ubus_connect(nullptr);
    if (!bus)
        std::fputs("wsm: no broker answers: ubusd does not run, or may not be asked by this user\n", stderr);
    return bus;
}

exit_status bus_complain(const char *object, int status) {
    switch (status) {
    case UBUS_STATUS_PERMISSION_DENIED:
        std::fprintf(stderr,
                     "wsm: no right to ask \"%s\": be root, or of a group that the bus's rules name\n",
                     object);
        return exit_no_rights;
    case UBUS_STATUS_CONNECTION_FAILED:
        std::fputs("wsm: the broker has hung up\n", stderr);
        return exit_no_bus;
    case UBUS_STATUS_TIMEOUT:
        std::fputs("wsm: the daemon does not answer: wsm-check may say why\n", stderr);
        return exit_failed;
    default: std::fprintf(stderr, "wsm: %s: %s\n", object, ubus_strerror(status)); return exit_failed;
    }
}

exit_status bus_find(struct ubus_context *bus, const char *object, std::uint32_t &id) {
    const int status = ubus_lookup_id(bus, object, &id);
    if (status == UBUS_STATUS_OK) return exit_done;
    if (status != UBUS_STATUS_NOT_FOUND) return bus_complain(object, status);
    std::fprintf(stderr,
                 "wsm: the bus has no object \"%s\": wsmd does not run, or this user may not see it\n",
                 object);
    return exit_no_daemon;
}

exit_status bus_ask(struct ubus_context *bus, const char *object, const char *method,
                    struct blob_buf *arguments, bus_taker take, void *priv) {
    std::uint32_t id = 0;
    if (const exit_status missing = bus_find(bus, object, id); missing != exit_done) return missing;
    struct blob_buf none = {};
    if (!arguments) blob_buf_init(&none, 0);
    taken to{take, priv};
    const int status =
        ubus_invoke(bus, id, method, arguments ? arguments->head : none.head, receive, &to, timeout_ms);
    blob_buf_free(&none);
    if (status == UBUS_STATUS_OK) return exit_done;
    if (status != UBUS_STATUS_NOT_FOUND) return bus_complain(object, status);
    // A broker says the same of what this user may not call; only one method has things of its own to miss.
    if (std::strcmp(method, "station") != 0) return bus_complain(object, UBUS_STATUS_PERMISSION_DENIED);
    const exit_status may_ask = bus_ask(bus, object, "health", nullptr, nullptr, nullptr);
    return may_ask == exit_done ? exit_not_found : may_ask;
}
