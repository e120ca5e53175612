// ap_mac.h - the access point's own MAC.
//
// Source: "/proc/tk_sys/sys_mac", from the device's kernel.
#pragma once

extern "C" {
// Reads at most 20 raw bytes (the line feed included, deliberately) into `destination`. If they cannot be read,
// `destination` keeps its value and the reason goes to standard error. Null is ignored.
void sta_get_ap_mac(char *destination);
}
