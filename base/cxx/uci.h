// uci.h - the configuration library from C++ (see base/cxx/ubox.h).
#pragma once

#include "base/cxx/ubox.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wshadow"
extern "C" {
#include <uci.h>
}
#pragma GCC diagnostic pop
