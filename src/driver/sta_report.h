// sta_report.h - telling the collector, and the driver, what became of a station.
//
// Format: protocol/station_report.h, one connection of "/tmp/sta_client_domain" to "/tmp/sta_server_domain" per
//         report.
// Result: a report that could not be delivered is lost: no retry, no queue.
// Blocks: until the collector accepts and has room for 696 bytes.   Logs: level 7.
#pragma once

#include "sta/sta_info.h"

extern "C" {

// Sends the record as it is. 0 once the connection stood, else -1.
int sta_domain_socket_send(const sta_info_t *sta);

// Report the record on line or off line: set its log_type, send it, and notify the bus whether or not that
// worked.
void sta_sta_log_on(sta_info_t *sta);
void sta_sta_log_off(sta_info_t *sta);

// Before a newly associated record is added: when the table knows its MAC on another radio, the driver is
// told to drop it there and the known record is reported as roamed. No bus notification.
void sta_sta_roam_send_msg(const sta_info_t *sta);

// Asks the driver to drop the station from its radio. A refusal is logged, nothing else.
void sta_sta_delete_sta_by_roam(const sta_info_t *sta);

// Reads the access point's MAC, at most 20 raw bytes (its line feed included, deliberately), into
// `destination`. The field is left as it is when it cannot be read; the reason goes to standard error. Null
// is ignored.
void sta_get_ap_mac(char *destination);
}
