// reports.h - reporting arrivals, departures and roams: to the collector first, then to the bus.
//
// Blocks: as the collector, the driver and the broker do.   Logs: level 7.
#pragma once

#include "model/record.h"

extern "C" {

// Report the station's arrival or departure: set its log_type, send it, and notify the bus even if the
// collector could not be reached.
void sta_sta_log_on(sta_info_t *sta);
void sta_sta_log_off(sta_info_t *sta);

// Before a newly associated record is added: when the table knows its MAC on another radio, the driver is
// asked to drop it there and the known record is reported as roamed. No bus notification.
void sta_sta_roam_send_msg(const sta_info_t *sta);
}
