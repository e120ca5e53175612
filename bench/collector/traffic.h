// traffic.h - the reports of a busy network: `stations` stations, each of which is reported once a minute.
#pragma once

#include "collector/output.h"
#include "collector/sessions.h"

#include <string>
#include <vector>

inline constexpr int stations = 2048;

// The images of one minute; the first minute's are arrivals.
std::vector<std::string> images_of_minute(int minute);

// When they come.
moment time_of_minute(int minute);

// The same as an output gets them, out of sessions of their own.
class traffic {
public:
    std::vector<message> next_minute();

private:
    sessions stays_;
    int minute_ = 0;
};
