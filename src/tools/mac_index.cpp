#include "tools/mac_index.h"

#include "tools/spread.h"

#include <algorithm>
#include <bit>

namespace {

constexpr std::size_t mac_length = sta_mac_index::mac_length;

bool is_hex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

bool is_of_mac(char c) { return c == ':' || is_hex(c); }

// 0 if the 17 characters at `text` are a MAC; otherwise the number of characters up to and including the last one that does not
// fit.
std::size_t length_of_no_mac(const char *text) {
    std::size_t length = mac_length;
    while (length > 0 && (length % 3 == 0 ? text[length - 1] == ':' : is_hex(text[length - 1]))) --length;
    return length;
}

// Two words with all characters except the colon between them, which is always the same.
std::size_t hash_mac(const char *text) {
    std::uint64_t head = 0, tail = 0;
    std::memcpy(&head, text, sizeof(head));
    std::memcpy(&tail, text + mac_length - sizeof(tail), sizeof(tail));
    return sta_spread(head ^ std::rotl(tail, 32));
}

} // namespace

bool sta_mac_index::is_mac(const char *text) noexcept {
    return std::strlen(text) == mac_length && length_of_no_mac(text) == 0;
}

std::size_t sta_mac_index::step_to_mac(const char *text) noexcept {
    const std::size_t misfit = length_of_no_mac(text);
    // No MAC contains a character that is neither a digit nor a colon; another misfit may fit a MAC that begins one later.
    return misfit > 0 && is_of_mac(text[misfit - 1]) ? 1 : misfit;
}

bool sta_mac_index::add(const char *text, number begin, std::size_t length, number owner) noexcept {
    return for_each(text + begin, length, [&](std::size_t at) {
        return mentions.push({begin + static_cast<number>(at), owner, none}) &&
               link(text, static_cast<number>(mentions.size() - 1));
    });
}

sta_mac_index::number sta_mac_index::first_like(const char *mac) const noexcept {
    return buckets.size() > 0 ? buckets[hash_mac(mac) & (buckets.size() - 1)].first : none;
}

bool sta_mac_index::link(const char *text, number which) noexcept {
    if (mentions.size() > buckets.size()) return rebuild(text);
    bucket &home = buckets[hash_mac(text + mentions[which].at) & (buckets.size() - 1)];
    if (home.first == none)
        home.first = which;
    else
        mentions[home.last].next = which;
    home.last = which;
    return true;
}

bool sta_mac_index::rebuild(const char *text) noexcept {
    const std::size_t wanted = std::max<std::size_t>(256, 4 * buckets.size());
    if (!buckets.assign(wanted, {none, none})) return false;
    for (number i = 0; i < mentions.size(); ++i) {
        mentions[i].next = none;
        link(text, i); // there is room for all, so this does not rebuild again
    }
    return true;
}
