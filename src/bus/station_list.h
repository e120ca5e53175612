// station_list.h - the answers of `get`: the list of stations or of the driver's entries, and the counts.
//
// Format: docs/bus-api.md; member names, order and types are fixed. Encoders append to a buffer that the
//         caller has reset. A message grows to what sta_bus_can_carry allows and no further: the caller checks
//         this before it sends.
// Locks:  the list holds g_sta_server_mutex during its walk, driver requests included.   Logs: level 7.
#pragma once

#include "model/record.h"

extern "C" {

// The answer of `get`: for `param` "online" the array "online_list", then in any case "count" as text. `mac`
// null or the only MAC to list; `wlan` "stainfo" lists the driver's entries instead of stations. A null
// `param` appends nothing.
void sta_encode_json_sta_array_info(struct blob_buf *buf, const char *param, const char *mac,
                                    const char *wlan);

// The answer of a count query: "count" as a number of "normal_sta", of "repeater_sta", or of all stations for any
// other selector. Returns the result of the append.
int sta_encode_json_sta_count_info(struct blob_buf *buf, const char *selector);

// Appends one table for each entry of the driver's station table whose MAC is `mac` (null: all) and returns
// their number. The count in the table is trusted.
unsigned ubus_server_get_wlan_online_sta_info(struct blob_buf *buf, const std::uint8_t *list,
                                              const char *mac);
}
