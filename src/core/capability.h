// capability.h - the device capability table: how many stations the device admits, and where its wireless
// configuration is.
//
// Source: "/tmp/tk_device/tk_device.json", written by the platform: {"wireless": {"radiolist":
//         [{"sta_limit_max": N}, ...], "wireless_path": "/etc/config"}}
// Sets:   sta_max_num (model/table.h) and g_path (inputs/network.h); nothing else changes them. The limit is the
//         sum of the radios' limits, 512 when that is below 1, and 0 until the table has been read.
// Logs:   at level 7, what is missing and what was read.
#pragma once

extern "C" {

// Reads the table once at start. -1 only when the file cannot be read. A file that is no JSON, or has no
// radio list, leaves the limit at 0 (Deliberate: only an unreadable file is fatal); then no station is
// admitted.
int dev_cap_table_init(void);

// The whole file as a new text, to be freed with free(), and its length in bytes at `length`; null on
// failure.
char *ReadFile(const char *path, long *length);
}
