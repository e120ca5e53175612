// pass.h - the five-second pass, after which stations are online, and the entry points of the two log-ups.
//
// Result: always 0.
// Files:  every station's backup line and the device counters are rewritten in each pass.
// Blocks: as driver requests, look-ups of the configuration and bus events do.   Logs: level 7.
#pragma once

extern "C" {
int sta_sta_flow_count_proc(void);
int sta_sta_log_up_proc(void);        // memory figures, then the periodic log-up
int sta_sta_single_log_up_proc(void); // the single log-up
}
