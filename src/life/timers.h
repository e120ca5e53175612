// timers.h - the three repeating timers. Each callback does its work, then arms its timer again, whatever
// the work returned. A timer is started by calling its callback once: the first run happens at once.
#pragma once

#include "base/cxx/ubox.h"

extern "C" {

extern std::int32_t sta_log_update_period; // seconds; 60 until the bus changes it
extern struct uloop_timeout sta_flow_count_timeout;
extern struct uloop_timeout sta_log_up_timeout;
extern struct uloop_timeout sta_single_log_up_timeout;

void sta_flow_count_timer(struct uloop_timeout *timer);    // every 5000 ms
void sta_sta_log_up_timer(struct uloop_timeout *timer);    // every sta_log_update_period
void sta_single_log_up_timer(struct uloop_timeout *timer); // every 1000 ms

// Sets the log-up period in seconds and runs a log-up at once. No range check (deliberate): 0 runs a log-up
// on every turn of the event loop, a negative period is overdue at once, again and again.
void sta_sta_log_set_uptate_time(int seconds);
}
