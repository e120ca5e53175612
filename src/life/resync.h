// resync.h - after events were lost: the table is compared with the driver's own, for every interface of the configuration and
// of the table. A station that is listed and not known arrives; one that is known and not listed departs. Both are reported as usual.
//
// An interface for which the driver does not answer is left out of the comparison.
// Blocks: as driver requests and reports do.
#pragma once

#include "base/cxx/ubox.h"

extern struct uloop_timeout sta_resync_timer;

// Requests a comparison as soon as the driver's socket is empty, but not within ten seconds of the last one.
void sta_resync_request() noexcept;

// Compares now, and sends the event "resync" with the result.
void sta_resync() noexcept;

// Back to the state at start. For tests.
void sta_resync_forget() noexcept;
