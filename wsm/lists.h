// lists.h - the commands that show what the daemon knows.
#pragma once

#include "bus.h"

struct wanted_output {
    bool json;
    int width; // columns of the terminal
};

exit_status list_stations(struct ubus_context *bus, const wanted_output &to, bool with_summary);
exit_status list_departed(struct ubus_context *bus, const wanted_output &to, std::uint32_t limit);
exit_status show_station(struct ubus_context *bus, const wanted_output &to, const char *mac);
exit_status show_health(struct ubus_context *bus, const wanted_output &to);
