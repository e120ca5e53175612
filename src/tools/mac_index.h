// mac_index.h - an index of the MACs in a text, for looking up many of them.
//
// A MAC is 17 characters: six pairs of hexadecimal digits, in either case, with colons between them. Every
// occurrence is found, even inside a longer row of pairs, and compared as it is written.
// Memory: plain malloc, given back by the destructor. 12 bytes for a MAC and 8 to 32 for the index.
#pragma once

#include "tools/array.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

class sta_mac_index {
public:
    using number = std::uint32_t;
    static constexpr number none = UINT32_MAX;
    static constexpr std::size_t mac_length = 17;

    struct mention {
        number at;    // in the text
        number owner; // as passed to add()
        number next;  // in the same bucket, later in the order of adding
    };

    // Whether `text`, of any length, is a MAC and nothing else.
    static bool is_mac(const char *text) noexcept;

    // Calls `visit` with the offset of each MAC in the `length` characters at `text`, until it returns false. True if it never did.
    template <class Visit> static bool for_each(const char *text, std::size_t length, Visit visit) noexcept {
        for (std::size_t at = 0; at + mac_length <= length;) {
            const std::size_t step = step_to_mac(text + at);
            if (step == 0 && !visit(at)) return false;
            at += step > 0 ? step : 1;
        }
        return true;
    }

    // Adds every MAC in the `length` characters at `text + begin`. False without memory; some may have been added.
    bool add(const char *text, number begin, std::size_t length, number owner) noexcept;

    // Calls `visit` with each occurrence of `mac` (a valid MAC), in the order of adding, until it returns true. `text` is the
    // indexed text; it may have moved.
    template <class Visit> void find(const char *text, const char *mac, Visit visit) const noexcept {
        for (number i = first_like(mac); i != none; i = mentions[i].next)
            if (std::memcmp(text + mentions[i].at, mac, mac_length) == 0 && visit(mentions[i])) return;
    }

private:
    struct bucket {
        number first, last;
    };

    // How far after `text`, of at least 17 characters, the next MAC can begin; 0: one begins at `text`.
    static std::size_t step_to_mac(const char *text) noexcept;
    number first_like(const char *mac) const noexcept; // the first mention of its bucket
    bool link(const char *text, number which) noexcept;
    bool rebuild(const char *text) noexcept;

    sta_array<mention> mentions;
    sta_array<bucket> buckets; // a power of two
};
