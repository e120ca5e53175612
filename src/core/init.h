// init.h - starting the daemon in its fixed order, and ending it.
//
// Exit:   a failing step is logged and ends the process with status 1; the firewall chains stay
//         (deliberate). A normal end removes the chains, and its status is 1 as well.
#pragma once

#include <cstdint>

extern "C" {

// The device's role, read once: 0 client, 1 access point. Nothing in the daemon depends on it.
extern std::int32_t sta_mode;

// The whole start-up sequence.
void sta_init(void);

// Station table, firewall chains, netlink channel. 0; ends the process when one of them fails.
int sta_service_start(void);

// Shut-down after the event loop has ended. Does not return.
void sta_deinit(void) __attribute__((noreturn));

// Removes the firewall chains and ends the process. Does not return.
void sta_terminate(int status) __attribute__((noreturn));
}
