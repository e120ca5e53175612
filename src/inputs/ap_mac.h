// ap_mac.h - the access point's own MAC.
//
// Source: "/proc/tk_sys/sys_mac", of the device's kernel.
#pragma once

extern "C" {
// Reads at most 20 raw bytes (the line feed included, deliberately) into `destination`. The field is left as it is
// when they cannot be read; the reason goes to standard error. Null is ignored.
void sta_get_ap_mac(char *destination);
}
