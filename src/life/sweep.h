// sweep.h - removing restored stations that no driver event has confirmed
// since the start.
//
// It runs once, five minutes after the restore.   Logs: as reporting and deleting a station do.
#pragma once

#include "base/cxx/ubox.h"

extern "C" {

extern struct uloop_timeout sta_restored_sweep_timer; // the daemon's one

// Arms `timer` for the sweep in five minutes.
void sta_sta_restored_sweep_arm(struct uloop_timeout *timer);

// The timer's callback: reports the departure of every record that is still flagged `restored`, and deletes it.
// Does nothing while no station is online (deliberate: the records then stay until an event is about them). Does not
// arm the timer again.
void sta_sta_restored_sweep(struct uloop_timeout *timer);
}
