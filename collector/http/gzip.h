// gzip.h - answers made smaller, for those who can read them.
//
// Bounds: memory for what comes out, and some 270 KiB while it is made.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Below this, headers outweigh what would be saved.
inline constexpr std::size_t gzip_least = 1024;

// Whether a value of the header Accept-Encoding asks for gzip: by its name, or by "*", at a weight above 0.
bool takes_gzip(std::string_view accept_encoding);

// Whether such content becomes smaller: texts do, pictures and fonts are compressed already.
bool worth_gzip(std::string_view type);

// The same as one gzip member. Empty where that is not smaller, and without memory.
std::string gzip(std::string_view plain);
