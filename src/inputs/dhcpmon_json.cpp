#include "inputs/dhcpmon_json.h"

#include "tools/log.h"

namespace {

const char *text_of(json_object *entry, const char *key) {
    json_object *member = nullptr;
    if (json_object_is_type(entry, json_type_object)) json_object_object_get_ex(entry, key, &member);
    return member ? json_object_get_string(member) : nullptr;
}

} // namespace

bool dhcpmon_client_read(json_object *entry, dhcpmon_client &client) noexcept {
    client.mac = text_of(entry, "mac");
    client.ip = text_of(entry, "ip");
    client.hostName = text_of(entry, "hostName");
    const char *missing = !client.mac ? "mac" : !client.ip ? "ip" : !client.hostName ? "hostName" : nullptr;
    if (missing) STA_ERROR("sta_ubus", "get jsondata '%s' error ...\n", missing);
    return !missing;
}
