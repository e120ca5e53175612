// sta_device.h - what the device is: values that start-up reads once (core/) and everybody may look at.
#pragma once

#include <cstdint>

extern "C" {
extern std::int32_t sta_max_num; // station limit (core/dev_cap)
extern char g_path[32];          // wireless configuration file (core/dev_cap)
extern std::int32_t sta_mode;    // role: 0 client, 1 access point (core/sta_init)
}
