// gzip.h - compressing answers for clients that accept it.
//
// Bounds: memory for the result, and some 270 KiB while compressing.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Below this, compressing saves less than its headers cost.
inline constexpr std::size_t gzip_least = 1024;

// Whether a value of the header Accept-Encoding asks for gzip: by its name, or by "*", with a weight above 0.
bool takes_gzip(std::string_view accept_encoding);

// Whether such content becomes smaller: texts do, pictures and fonts are compressed already.
bool worth_gzip(std::string_view type);

// The text as one gzip member. Empty if that is not smaller, and without memory.
std::string gzip(std::string_view plain);
