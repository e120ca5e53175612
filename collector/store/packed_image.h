// packed_image.h - a report's image without its zeros, which are most of it; it takes a third of the space in a table.
//
// Format: a sequence of runs: a byte with the number of zeros, a byte with the number of other bytes, and these bytes. Zeros at the
//         end are left out. Equal images are always packed to equal bytes.
#pragma once

#include "protocol/station_report.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

inline std::string pack_image(std::string_view image) {
    constexpr std::size_t most = 255;
    // A new run costs two bytes, so one or two zeros are stored among the other bytes.
    constexpr std::string_view gap("\0\0\0", 3);
    std::string packed;
    const auto last = image.find_last_not_of('\0');
    image = image.substr(0, last == std::string_view::npos ? 0 : last + 1);
    while (!image.empty()) {
        const std::size_t zeros = std::min({image.find_first_not_of('\0'), image.size(), most});
        image.remove_prefix(zeros);
        const std::size_t others =
            zeros == most && image.front() == '\0' ? 0 : std::min({image.find(gap), image.size(), most});
        packed += static_cast<char>(zeros);
        packed += static_cast<char>(others);
        packed += image.substr(0, others);
        image.remove_prefix(others);
    }
    return packed;
}

// Returns nothing if it was not packed by pack_image().
inline std::optional<std::string> unpack_image(std::string_view packed) {
    std::string image;
    while (packed.size() >= 2) {
        const auto zeros = static_cast<unsigned char>(packed[0]),
                   others = static_cast<unsigned char>(packed[1]);
        packed.remove_prefix(2);
        if (others > packed.size()) return {};
        image.append(zeros, '\0');
        image += packed.substr(0, others);
        packed.remove_prefix(others);
    }
    if (!packed.empty() || image.size() > station_report_size) return {};
    image.resize(station_report_size, '\0');
    return image;
}
