// sta_init.h - bringing the daemon up in its fixed order, and down.
//
// Exit:   a failing step ends the process with status 1, logged, its firewall chains left as they are
//         (deliberate); a normal end removes the chains and has status 1 too.
#pragma once

extern "C" {

// The whole start-up sequence.
void sta_init(void);

// Station table, firewall chains, netlink channel. 0; ends the process when one of them fails.
int sta_service_start(void);

// Shut-down after the event loop has ended. Does not return.
void sta_deinit(void) __attribute__((noreturn));

// Removes the firewall chains and ends the process. Does not return.
void sta_terminate(int status) __attribute__((noreturn));
}
