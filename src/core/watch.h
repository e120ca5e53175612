// watch.h - file watchers: each polls one file's modification time every 10 seconds and runs a callback
// on a change.
//
// Owns:   its three timers. Not noticed: a second change within the same second, a deleted file, and a file whose time is
//         0 at the first poll.
#pragma once

extern "C" {

// Each starts one watcher with `callback` (null: the timer runs, the file is not looked at) and polls at once. The
// first poll calls back if the file exists. Another call replaces the callback.
void sta_control_wsmd_init(void (*callback)(void)); // "/etc/config/wsmd"
void sta_control_dhcp_init(void (*callback)(void)); // "/tmp/dhcp.leases"
void sta_control_snoop_init(
    void (*callback)(void)); // "/tmp/snoop_ip", copied to "/tmp/snoop_ip_bak" before the call
}
