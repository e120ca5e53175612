// bus_house.h - a House with a broker, which the daemon is connected to when the test says so.
#pragma once

#include "support/house.h"
#include "support/peer.h"

#include "bus/object.h"
#include "outputs/bus_link.h"

class BusHouse : public House {
protected:
    BusHouse() {
        // A router's daemon does not look for the DHCP monitor.
        forward_mode("ROUTER");
        start_bus();
    }
    ~BusHouse() override { disconnect_daemon(); }

    static void forward_mode(const std::string &mode) {
        write_file("/etc/config/sysinfo", "config sysinfo\n\toption forwardMode '" + mode + "'\n");
    }
};

// The daemon is connected and its log begins afresh.
class ConnectedHouse : public BusHouse {
protected:
    ConnectedHouse() {
        sta_ubus_object_init();
        if (!sta_ubus_ctx) ADD_FAILURE() << "not connected";
        forget_log();
    }
    static bool soon(const std::function<bool()> &done) { return loop_until(done); }

    peer other;
};
