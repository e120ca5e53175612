// backup_known.h - which lines the station backup file has, for as long as it is the one that this daemon has written last.
//
// A pass that knows them need not read them back, and a departure knows where its line stands. Known is a file of plain
// lines only: each ends with a line feed, is no short one, and mentions one MAC, its station's, which no other line does.
// Nobody else writes the file; whoever does so all the same is seen by its inode, size and times.
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

    // The MAC as a number, if it is one and written as the table writes it, in lower case; otherwise no_mac.
    static mac_number number_of(std::string_view mac) noexcept;

    // The only MAC of a line that may be known, or an empty text.
    static std::string_view mac_of_line(std::string_view line) noexcept;

    // Whether the file at `path` is the known one.
    bool is_still(const char *path) const noexcept;
    bool is_still(int file) const noexcept;

    // The lines are those of the file, as it is now.
    void is_written(const char *path) noexcept;
    void forget() noexcept { known_ = false; }

    // The lines, those that are gone among them, until pack(). A number of a line is good until then, too.
    std::size_t size() const noexcept { return lines_.size(); }
    bool is_gone(std::size_t i) const noexcept { return (lines_[i] & gone) != 0; }
    std::size_t length(std::size_t i) const noexcept { return lines_[i] & (gone - 1); }
    std::size_t length_of_all() const noexcept { return place(size()); } // of those that are left
    std::size_t place(std::size_t i) const noexcept;                     // in the file, of one that is left
    void remove(std::size_t i) noexcept { lines_[i] |= gone; }
    bool add(mac_number mac, std::size_t length) noexcept { return lines_.push(mac << 16 | length); }
    void clear() noexcept { lines_.clear(); }
    void pack() noexcept;

    // The line of `mac` that is left, or none. A walk asks in the lines' own order mostly: it is looked for from `from` on
    // first, then from the beginning.
    std::size_t find(mac_number mac, std::size_t from) const noexcept;

private:
    static constexpr std::uint64_t gone = 1U << 15; // beside the length, below the MAC

    bool is_same(const struct stat &now) const noexcept;

    sta_array<std::uint64_t> lines_;
    struct stat status_ {};
    bool known_ = false;
};
