// base_ubus.h - the bus library's header, usable from C++ (see tools/base.h).
#pragma once

#include "tools/base.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wshadow"
extern "C" {
#include <libubus.h>
}
#pragma GCC diagnostic pop
