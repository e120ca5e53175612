// sta_ubus_encode.h - stations as bus messages: the answers of `get` and the table of the station
// notification.
//
// Format: docs/bus-api.md; member names, order and types are fixed. Encoders append to a buffer that the
//         caller has reset. A message grows to what sta_bus_can_carry allows and no further: the caller tests
//         it before it sends.
// Locks:  the list holds g_sta_server_mutex during its walk, driver requests included.   Logs: level 7.
#pragma once

#include "sta/sta_info.h"

extern "C" {

// The answer of `get`: for `param` "online" the array "online_list", then in any case "count" as text. `mac`
// null or the only MAC to list; `wlan` "stainfo" lists the driver's entries instead of stations. A null
// `param` appends nothing.
void sta_encode_json_sta_array_info(struct blob_buf *buf, const char *param, const char *mac,
                                    const char *wlan);

// The answer of a count query: "count" as a number: of "normal_sta", of "repeater_sta", or of all for any
// other selector. The buffer's result.
int sta_encode_json_sta_count_info(struct blob_buf *buf, const char *selector);

// Appends one station's members to the open table. Nothing for null.
void ubus_server_get_all_online_sta_info(struct blob_buf *buf, const sta_info_t *sta);

// Appends the members of the notification. A maximum rate of 2001 and above becomes 0 in the record first
// (deliberate: the member has 16 bits). Nothing for null.
void sta_encode_json_sta_log_table_info(struct blob_buf *buf, sta_info_t *sta);

// Appends one table for each entry of the driver's station table whose MAC is `mac` (null: all) and returns
// their number. The table's own count is believed: the caller has lowered it to what was fetched.
unsigned ubus_server_get_wlan_online_sta_info(struct blob_buf *buf, const std::uint8_t *list,
                                              const char *mac);
}
