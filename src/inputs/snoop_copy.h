// snoop_copy.h - the snooping table, read once for all look-ups of a walk.
//
// Source: "/tmp/snoop_ip_bak", lines "<x> <mac> <address> <interface>".   Finds: what the shell finds that a single look-up runs.
// Memory: plain malloc, twice the file and an index of its MACs, given back by the destructor.
#pragma once

#include "tools/array.h"
#include "tools/mac_index.h"

class sta_snoop_copy {
public:
    static constexpr const char *path = "/tmp/snoop_ip_bak";

    enum class outcome {
        found,
        absent,
        missing, // there is no file
        unknown, // only the shell knows: the file is above 8 MiB, has bytes that are not plain text, or cannot be read
    };

    // Reads the file.
    sta_snoop_copy() noexcept;
    ~sta_snoop_copy();
    sta_snoop_copy(const sta_snoop_copy &) = delete;
    sta_snoop_copy &operator=(const sta_snoop_copy &) = delete;

    // Puts the third word of the first line that has `mac` as a word, in either case, into `address`, cut to its size and
    // terminated. `mac` must be plain (sta_mac_is_plain).
    outcome find(const char *mac, char (&address)[16]) const noexcept;

    // The copy of the walk that is going on; null outside of one.
    static const sta_snoop_copy *shared() noexcept { return current; }

private:
    std::size_t first_line_with(const char *folded_mac) const noexcept;
    bool is_word(std::size_t at, std::size_t length) const noexcept;

    outcome state = outcome::unknown; // `found` when the file has been read
    sta_array<char> bytes;
    sta_array<char> folded; // the same in lower case
    sta_mac_index macs;
    bool indexed = false;
    const sta_snoop_copy *outer;
    static const sta_snoop_copy *current;
};
