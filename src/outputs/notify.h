// notify.h - messages that the daemon sends on the bus without being asked.
//
// Format: docs/bus-api.md. Without a connection nothing is sent.   Blocks: the event, until the broker has
//         taken it; notifications do not wait for subscribers.   Logs: level 7, a missing connection for the
//         event at level 3.
#pragma once

#include "model/record.h"

extern "C" {

// Broadcasts "ip_change". Mind the order: the new address comes before the old one. Returns 0, or -1 without a
// connection.
int dhcp_ubus_send_ip_change_event(const char *mac, const char *changed_ip, const char *before_ip);

// Notifies subscribers of `sta` of the station's whole record. May set its maxRate to 0 (see the encoder).
void sta_ubus_log_info_notify(sta_info_t *sta);

// Asks subscribers for the report period; one that wants another period calls `set`. Returns the library's result; 0
// without a connection. The daemon itself does not call it; it is part of the exported interface.
int sta_ubus_update_log_time_request(void);
}
