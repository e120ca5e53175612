// bytes.h - bytes typed by hand.
//
// Text: pairs of hexadecimal digits; "00*12" is a byte twelve times; "#" begins a comment; a number with a colon ("024:")
// states how many bytes stand before it and is checked.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

using byte_vector = std::vector<std::uint8_t>;

byte_vector from_hex(const std::string &text);

// The same, from a file of tests/golden.
byte_vector golden(const std::string &name);
