// sweep.h - retiring stations that came out of the backup file and that no driver event has confirmed
// since.
//
// It runs once, five minutes after the restore.   Logs: what reporting and deleting a station logs.
#pragma once

#include "base/cxx/ubox.h"

extern "C" {

extern struct uloop_timeout sta_restored_sweep_timer; // the daemon's one

// Arms `timer` for the sweep in five minutes.
void sta_sta_restored_sweep_arm(struct uloop_timeout *timer);

// The timer's callback: logs off and deletes every record that is still flagged `restored`. Does nothing
// while no station is on line (deliberate: the records then stay until an event touches them). Does not arm
// the timer again.
void sta_sta_restored_sweep(struct uloop_timeout *timer);
}
