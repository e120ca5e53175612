// uci_options.h - a uci package without what the daemon does not read: passphrases stay on the device.
#pragma once

#include <cstddef>

// Leaves the sections and the options that the daemon reads in `text` of `size` bytes, in place; returns how many
// bytes remain. Whole lines are kept or dropped; what a value has on further lines is dropped.
std::size_t keep_known_options(char *text, std::size_t size) noexcept;
