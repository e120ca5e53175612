// backup_known.h - the lines of the station backup file, known as long as the file is the one that this daemon wrote last.
//
// So a pass need not read the file, and a departure knows the place of its line. Only a file of regular lines can be known:
// each ends with a line feed, is not too short, and holds one MAC, its station's, which is in no other line. Other programs
// should not write the file; if one does, its inode, size or times show it.
//
// Memory: eight bytes for a line, plain malloc.
#pragma once

#include "tools/array.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <sys/stat.h>

class backup_known {
public:
    using mac_number = std::uint64_t;
    static constexpr std::size_t none = SIZE_MAX;
    static constexpr mac_number no_mac = UINT64_MAX;

    // The MAC as a number, if the text is one in the table's spelling, lower case; otherwise no_mac.
    static mac_number number_of(std::string_view mac) noexcept;

    // The MAC of a regular line, or an empty text.
    static std::string_view mac_of_line(std::string_view line) noexcept;

    // Whether it is that of `mac`, which has a number.
    static bool is_line_of(std::string_view line, std::string_view mac) noexcept;

    // Whether the file at `path` is the known one.
    bool is_still(const char *path) const noexcept;
    bool is_still(int file) const noexcept;

    // The file at `path` was just written and has these lines.
    void is_written(const char *path) noexcept;
    void forget() noexcept { known_ = false; }

    // The number of lines, including removed ones until pack(). A line's number is valid until then. A removed line is still in the
    // file until take_out().
    std::size_t size() const noexcept { return lines_.size(); }
    bool is_gone(std::size_t i) const noexcept { return (lines_[i] & gone) != 0; }
    std::size_t length(std::size_t i) const noexcept { return lines_[i] & (gone - 1); } // in the file
    std::size_t length_of_all() const noexcept { return place(size()); }
    std::size_t place(std::size_t i) const noexcept; // in the file
    void remove(std::size_t i) noexcept { lines_[i] |= gone; }
    void take_out(std::size_t i) noexcept { lines_[i] = gone; }
    bool add(mac_number mac, std::size_t length) noexcept { return lines_.push(mac << 16 | length); }
    void clear() noexcept { lines_.clear(); }
    void pack() noexcept; // when no removed line is in the file any more

    // The line of `mac`, or none. The search begins at `from`, since a walk mostly asks in the order of the lines, and
    // continues at the beginning.
    std::size_t find(mac_number mac, std::size_t from) const noexcept;

private:
    static constexpr std::uint64_t gone = 1U << 15; // a flag between the length and the MAC

    bool is_same(const struct stat &now) const noexcept;

    sta_array<std::uint64_t> lines_;
    struct stat status_ {};
    bool known_ = false;
};
