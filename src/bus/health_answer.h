// health_answer.h - what the daemon says of its own health.
//
// Format: docs/bus-api.md, schema "wsmd health answer".
#pragma once

#include "base/cxx/ubox.h"

// Appends its members to the message `buf`, in which there is room for a station.
void sta_put_health(struct blob_buf *buf) noexcept;
