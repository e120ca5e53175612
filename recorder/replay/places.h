// places.h - the recorded files, put where the lab's daemon reads them.
#pragma once

#include "record/recording.h"

// Writes the file, or removes it where it was absent. Empty, or what went wrong.
std::string place_file(const recorded::file &file);
