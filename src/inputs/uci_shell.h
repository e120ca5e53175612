// uci_shell.h - configuration values read through the command line tool: each value runs a shell.
//
// Source: the "uci" tool's output.
// Logs:   only what sta_fork logs.
#pragma once

#include <cstddef>

extern "C" {

// The number that `command` prints; `fallback` when it prints nothing; 0 when it prints no number.
int sta_get_uci_int(const char *command, int fallback);

// Copies the trimmed line that `command` prints into `buffer` of `size` bytes (terminated, cut to fit). The buffer
// keeps its value when the command prints nothing.
void sta_get_uci_str(const char *command, char *buffer, std::size_t size);

// The device's role: 0 client ("cpe"), 1 access point ("ap", also for anything else).
int sta_get_mod_type(void);

// The forwarding mode: 0 for "ROUTER", 1 for anything else.
int sta_get_dev_mode(void);

// 1 when the first wireless interface with this SSID has the transmission mode "bridge", else 0.
int sta_ssid_is_bridge(const char *ssid);
}
