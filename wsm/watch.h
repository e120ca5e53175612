// watch.h - printing the daemon's events, and asking it to disconnect a station.
#pragma once

#include "lists.h"

// Prints each notification until the daemon or the broker ends, or a signal stops it.
exit_status watch_stations(struct ubus_context *bus, const wanted_output &to);

// Asks the driver, through the daemon, to drop the station, and waits at most five seconds until it is gone.
exit_status kick_station(struct ubus_context *bus, const wanted_output &to, const char *mac);
