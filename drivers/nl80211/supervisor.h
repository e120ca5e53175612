// supervisor.h - signs of life for the supervisor of this process, if it asks for them.
//
// Source: sd_notify(3): one datagram for each sign, to the socket that NOTIFY_SOCKET names; a name that begins with '@' is
// abstract. Sending never waits, and without that variable nothing is sent.
#pragma once

void supervisor_started() noexcept;

// To be called about once a second.
void supervisor_alive() noexcept;
