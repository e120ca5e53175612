// show.h - a recording as text for people.
#pragma once

#include "record/recording.h"

// One line, without line feed: time, kind, content. Foreign texts are escaped.
std::string record_line(const recorded::record &record);

// When it was made, and how long it is.
std::string recording_line(const recording &whole);
