// collector.h - a station's report, sent to the collector.
//
// Format: protocol/station_report.h, one connection of "/tmp/sta_client_domain" to "/tmp/sta_server_domain" per
//         report.
// Result: a report that could not be delivered is lost: no retry, no queue.
// Blocks: until the collector accepts and has room for 696 bytes.   Logs: level 7.
#pragma once

#include "model/record.h"

extern "C" {
// Sends the record as it is. Returns 0 if the connection was made, even if writing failed; else -1.
int sta_domain_socket_send(const sta_info_t *sta);
}
