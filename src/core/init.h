// init.h - bringing the daemon up in its fixed order, and down.
//
// Exit:   a failing step ends the process with status 1, logged, its firewall chains left as they are
//         (deliberate); a normal end removes the chains and has status 1 too.
#pragma once

#include <cstdint>

extern "C" {

// The device's role, read once: 0 client, 1 access point. No flow of the daemon looks at it.
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
