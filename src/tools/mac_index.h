// mac_index.h - where MACs stand in a text, for who looks up many of them in it.
//
// A MAC is 17 characters: six pairs of hexadecimal digits, in either case, with colons between them. It is found wherever
// it stands, even inside of a longer row of pairs, and exactly as it is written.
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
        number owner; // as it was given
        number next;  // in the same bucket, later in the order of adding
    };

    // Whether `text`, of any length, is a MAC and nothing else.
    static bool is_mac(const char *text) noexcept;

    // Calls `visit` with the place of each MAC of the `length` characters at `text`, until it returns false. Whether it never did.
    template <class Visit> static bool for_each(const char *text, std::size_t length, Visit visit) noexcept {
        for (std::size_t at = 0; at + mac_length <= length;) {
            const std::size_t step = step_to_mac(text + at);
            if (step == 0 && !visit(at)) return false;
            at += step > 0 ? step : 1;
        }
        return true;
    }

    // Adds every MAC of the `length` characters at `text + begin`. False without memory; some may be known by then.
    bool add(const char *text, number begin, std::size_t length, number owner) noexcept;

    // Calls `visit` with each mention of `mac`, which is one, in the order of adding, until it returns true. `text` is what was
    // indexed, wherever it lies by now.
    template <class Visit> void find(const char *text, const char *mac, Visit visit) const noexcept {
        for (number i = first_like(mac); i != none; i = mentions[i].next)
            if (std::memcmp(text + mentions[i].at, mac, mac_length) == 0 && visit(mentions[i])) return;
    }

private:
    struct bucket {
        number first, last;
    };

    // How far behind `text`, of 17 characters at least, the next MAC can begin; 0: it begins there.
    static std::size_t step_to_mac(const char *text) noexcept;
    number first_like(const char *mac) const noexcept; // the first mention of its bucket
    bool link(const char *text, number which) noexcept;
    bool rebuild(const char *text) noexcept;

    sta_array<mention> mentions;
    sta_array<bucket> buckets; // a power of two
};
