// log_up.h - the two report cycles that refresh stations from the driver's tables.
//
// Logs:   level 7.   Blocks: as driver requests and reports do. Each radio's table is fetched at most once
//         per cycle.
#pragma once

extern "C" {

// Periodic: refreshes and reports every online station; retires those that the driver has not
// listed for 300 seconds or more. While the driver fails, no station is listed: all are reported with
// their old figures until then.
void sta_sta_log_byioctl_update(void);

// Every second: on the third pass after its association each station gets one early report. No bus
// notification.
void sta_sta_log_single_byioctl_update(void);
}
