// uci_options.h - removing from a uci package what the daemon does not read, so that passphrases stay on the device.
#pragma once

#include <cstddef>

// Keeps only the sections and options that the daemon reads in `text` of `size` bytes, in place. Returns how many bytes
// remain. Whole lines are kept or dropped; the further lines of a value are dropped.
std::size_t keep_known_options(char *text, std::size_t size) noexcept;
