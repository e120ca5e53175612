// dhcpmon_json.h - the DHCP monitor's client list: {"count": N, "list": [{"mac", "ip", "hostName"}, ...]}.
// Its notification carries it as JSON text, its answer to "client" as a bus message of the same shape.
#pragma once

#include "tools/json.h"

// One client's texts; they live as long as the JSON object. A member of another type gives its JSON
// text.
struct dhcpmon_client {
    const char *mac;
    const char *ip;
    const char *hostName;
};

// Reads one entry (may be null). False when a member is missing or null; that is logged at level 3.
bool dhcpmon_client_read(json_object *entry, dhcpmon_client &client) noexcept;
