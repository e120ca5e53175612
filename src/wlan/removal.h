// removal.h - asking the driver to drop a station.
//
// Source: protocol/driver_request.h.   Logs: level 7.   Blocks: until the driver answers.
#pragma once

#include "model/record.h"

extern "C" {
// Asks the driver to drop the station from its radio. A refusal is only logged.
void sta_sta_delete_sta_by_roam(const sta_info_t *sta);
}
