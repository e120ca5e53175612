// dhcp_check.h - asking the DHCP monitor service for one client's lease, or to drop it.
//
// Format: docs/bus-api.md.   Blocks: up to 20 seconds, until "dhcpmon" answers.   Logs: level 7 and 3.
#pragma once

#include "base/cxx/ubus.h"
#include "model/record.h"

extern "C" {

// `op` 1 asks for the client ("client"), 0 has it dropped ("del_client"), anything else sends nothing. Returns 0 when
// the service was found, whatever it answers; -1 without a connection or service. `sta` must live until the
// call returns. The daemon itself does not call it; it is part of the exported interface.
int selfchk_ubus_get_del_dhcpip(sta_info_t *sta, int op);

// The answer to "client": the request's private pointer is the station. When all entries are well-formed and
// the last one has the station's MAC, the station takes its address and name.
void selfchk_dhcpmon_data_get_cb(struct ubus_request *req, int type, struct blob_attr *msg);

// The answer to "del_client": its "result" is logged.
void selfchk_dhcpmon_data_del_cb(struct ubus_request *req, int type, struct blob_attr *msg);
}
