// health_answer.h - the daemon's answer about its own health.
//
// Format: docs/bus-api.md, schema "wsmd health answer".
#pragma once

#include "base/cxx/ubox.h"

// Appends the members of the answer to `buf`. The caller has made room (sta_bus_make_room).
void sta_put_health(struct blob_buf *buf) noexcept;
