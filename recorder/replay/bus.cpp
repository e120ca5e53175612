#include "replay/bus.h"

#include "base/cxx/ubus.h"
#include "common/loop.h"

#include <cstring>
#include <list>

namespace {

constexpr const char *notifier_name = "dhcpmon.client.notify";

// The daemon sends this event for new addresses, and ignores it when it receives it.
bool is_daemons_own(std::string_view name, blob_attr *message) {
    if (name != "ip_change") return false;
    const blobmsg_policy policy = {"before_ip", BLOBMSG_TYPE_STRING};
    blob_attr *before = nullptr;
    blobmsg_parse(&policy, 1, &before, blob_data(message), static_cast<unsigned>(blob_len(message)));
    return before && std::string_view(blobmsg_get_string(before)) == "0.0.0.0";
}

} // namespace

struct replayed_bus::connection {
    ubus_context *bus = nullptr;
    ubus_object_type type{};
    ubus_object notifier{};
    std::list<ubus_request> calls; // their answers may still arrive
};

replayed_bus::replayed_bus() : now_(std::make_unique<connection>()) {}

replayed_bus::~replayed_bus() {
    if (now_->bus) ubus_free(now_->bus);
}

std::string replayed_bus::open(bool notifies) {
    now_->bus = ubus_connect(nullptr);
    if (!now_->bus) return "there is no bus";
    ubus_add_uloop(now_->bus);
    if (!notifies) return {};
    now_->type.name = now_->notifier.name = notifier_name;
    now_->notifier.type = &now_->type;
    const int status = ubus_add_object(now_->bus, &now_->notifier);
    return status == UBUS_STATUS_OK ? std::string()
                                    : std::string(notifier_name) + ": " + ubus_strerror(status);
}

void replayed_bus::say(const recorded::bus_message &said) {
    if (!now_->bus) return;
    // Aligned, and never without a header.
    std::vector<std::uint32_t> room(said.message.size() / sizeof(std::uint32_t) + 2);
    std::memcpy(room.data(), said.message.data(), said.message.size());
    auto *message = reinterpret_cast<blob_attr *>(room.data());
    if (said.message.empty()) blob_set_raw_len(message, sizeof(blob_attr));
    const std::string name(said.name);
    if (said.kind == record_event) {
        if (!is_daemons_own(said.name, message)) ubus_send_event(now_->bus, name.c_str(), message);
    } else if (said.kind == record_notification) {
        ubus_notify(now_->bus, &now_->notifier, name.c_str(), message, -1);
    } else {
        std::uint32_t object = 0;
        if (ubus_lookup_id(now_->bus, "sta", &object) != UBUS_STATUS_OK) return;
        ubus_request &call = now_->calls.emplace_back();
        if (ubus_invoke_async(now_->bus, object, name.c_str(), message, &call) != UBUS_STATUS_OK) {
            now_->calls.pop_back();
            return;
        }
        call.priv = now_.get();
        call.complete_cb = [](ubus_request *over, int) {
            static_cast<connection *>(over->priv)->calls.remove_if([over](const ubus_request &one) {
                return &one == over;
            });
        };
        ubus_complete_request_async(now_->bus, &call);
    }
}
