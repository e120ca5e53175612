// base_uci.h - the configuration library's header, usable from C++ (see tools/base.h).
#pragma once

#include "tools/base.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wshadow"
extern "C" {
#include <uci.h>
}
#pragma GCC diagnostic pop
