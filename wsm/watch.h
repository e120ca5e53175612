// watch.h - what happens to stations, as the daemon tells it; and asking it to disconnect one.
#pragma once

#include "lists.h"

// Prints each notification until the daemon or the broker goes, or somebody stops it.
exit_status watch_stations(struct ubus_context *bus, const wanted_output &to);

// Asks the driver, through the daemon, to drop the station, and waits until it has gone: at most five seconds.
exit_status kick_station(struct ubus_context *bus, const wanted_output &to, const char *mac);
