// places.h - writing the recorded files to where the lab's daemon reads them.
#pragma once

#include "record/recording.h"

// Writes the file, or removes it if it was absent. Returns an empty text, or what failed.
std::string place_file(const recorded::file &file);
