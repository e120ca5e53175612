// resync.h - after events were lost: the table is compared with the driver's own, for every interface of the configuration and
// of the table. Who is listed and not known arrives, who is known and not listed departs, both reported as always.
//
// Nothing is concluded of an interface for which the driver does not answer.
// Blocks: as driver requests and reports do.
#pragma once

#include "base/cxx/ubox.h"

extern struct uloop_timeout sta_resync_timer;

// Asks for a comparison as soon as the driver's socket is empty, and not within ten seconds of the last one.
void sta_resync_request() noexcept;

// Compares now, and tells what came of it.
void sta_resync() noexcept;

// As at start: none was asked for, none was made.
void sta_resync_forget() noexcept;
