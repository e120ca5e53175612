// station_message.h - one station as members of a bus message: for the list of `get`, and for the notification.
//
// Format: docs/bus-api.md; member names, order and types are fixed. Appended to the table that is open.
// Logs:   level 7, the values.
#pragma once

#include "base/cxx/ubox.h"
#include "model/record.h"

extern "C" {

// Appends one station's members to the open table. Nothing for null.
void ubus_server_get_all_online_sta_info(struct blob_buf *buf, const sta_info_t *sta);

// Appends the members of the notification. A maximum rate of 2001 and above becomes 0 in the record first
// (deliberate: the member has 16 bits). Nothing for null.
void sta_encode_json_sta_log_table_info(struct blob_buf *buf, sta_info_t *sta);
}
