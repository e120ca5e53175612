// watch.h - file watchers: each polls one file's modification time every 10 seconds and runs a callback
// on a change.
//
// Owns:   its three timers. A change within the second of the previous one and a deleted file are not seen, nor is
//         a first time of 0.
#pragma once

extern "C" {

// Start one watcher: keep `callback` (null: poll without looking), and poll at once. The first poll calls
// back if the file exists. Calling again replaces the callback.
void sta_control_wsmd_init(void (*callback)(void)); // "/etc/config/wsmd"
void sta_control_dhcp_init(void (*callback)(void)); // "/tmp/dhcp.leases"
void sta_control_snoop_init(
    void (*callback)(void)); // "/tmp/snoop_ip", copied to "/tmp/snoop_ip_bak" before the call
}
