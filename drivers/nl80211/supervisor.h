// supervisor.h - signs of life to whoever supervises this process, where that wants them.
//
// Source: sd_notify(3): one datagram for each sign, to the socket that NOTIFY_SOCKET names; a name that begins with '@' is
// abstract. Nothing is ever waited for, and without that variable nothing is sent.
#pragma once

void supervisor_started() noexcept;

// To be called about once a second.
void supervisor_alive() noexcept;
