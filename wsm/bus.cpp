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

exit_status complain_of_memory() {
    std::fputs("wsm: no memory\n", stderr);
    return exit_failed;
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

void bus_arguments::add(const char *name, const char *text) noexcept {
    whole = whole && blobmsg_add_string(&buf, name, text) == 0;
}

void bus_arguments::add(const char *name, std::uint32_t number) noexcept {
    whole = whole && blobmsg_add_u32(&buf, name, number) == 0;
}

void bus_arguments::add(const char *name, std::span<const char *const> texts) noexcept {
    void *array = whole ? blobmsg_open_array(&buf, name) : nullptr;
    whole = array != nullptr;
    if (!whole) return;
    for (const char *one : texts) add(nullptr, one);
    blobmsg_close_array(&buf, array);
}

exit_status bus_ask(struct ubus_context *bus, const char *object, const char *method,
                    const bus_arguments &arguments, bus_taker take, void *priv) {
    std::uint32_t id = 0;
    if (!arguments.message()) return complain_of_memory();
    if (const exit_status missing = bus_find(bus, object, id); missing != exit_done) return missing;
    taken to{take, priv};
    const int status = ubus_invoke(bus, id, method, arguments.message(), receive, &to, timeout_ms);
    if (status == UBUS_STATUS_OK) return exit_done;
    if (status != UBUS_STATUS_NOT_FOUND) return bus_complain(object, status);
    // A broker gives the same status for a method that this user may not call. Only "station" can fail to find something itself.
    if (std::strcmp(method, "station") != 0) return bus_complain(object, UBUS_STATUS_PERMISSION_DENIED);
    const exit_status may_ask = bus_ask(bus, object, "health", {}, nullptr, nullptr);
    return may_ask == exit_done ? exit_not_found : may_ask;
}
