// report.h - the station record as the collector's report (protocol/station_report.h).
#pragma once

#include "model/record.h"
#include "protocol/station_report.h"

// Copies every field of the report from the record.
station_report sta_report_of(const sta_info_t &sta) noexcept;
