#include "outputs/backup_lines.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

constexpr std::size_t mac_length = 17;

bool is_hex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

bool is_of_mac(char c) { return c == ':' || is_hex(c); }

// How many of the 17 characters at `text` end with one that a MAC, in either case, does not have there; 0: it is one.
std::size_t length_of_no_mac(const char *text) {
    std::size_t length = mac_length;
    while (length > 0 && (length % 3 == 0 ? text[length - 1] == ':' : is_hex(text[length - 1]))) --length;
    return length;
}

// Two words: all characters but the colon between them, which is always one.
std::size_t hash_mac(const char *text) {
    std::uint64_t head = 0, tail = 0;
    std::memcpy(&head, text, sizeof(head));
    std::memcpy(&tail, text + mac_length - sizeof(tail), sizeof(tail));
    // A product spreads upwards only: its upper half comes down and spreads again.
    constexpr std::uint64_t odd = 0x9e3779b97f4a7c15U;
    std::uint64_t hash = (head ^ std::rotl(tail, 32)) * odd;
    hash = (hash ^ (hash >> 32)) * odd;
    return static_cast<std::size_t>(hash >> 32);
}

} // namespace

bool backup_lines::read(std::FILE *file) noexcept {
    constexpr std::size_t step = 65536;
    for (std::size_t got = step; got == step;) {
        if (!make_room(step)) return false;
        got = std::fread(bytes.end(), 1, step, file);
        bytes.extend(got);
    }
    return std::ferror(file) == 0 && add_pieces(0);
}

bool backup_lines::make_room(std::size_t length) noexcept {
    return length < none - bytes.size() && bytes.reserve(bytes.size() + length);
}

bool backup_lines::add_pieces(std::size_t begin) noexcept {
    while (begin < bytes.size()) {
        const char *text = bytes.data() + begin;
        const std::size_t most = std::min(bytes.size() - begin, backup_line_max);
        const void *feed = std::memchr(text, '\n', most);
        const std::size_t length =
            feed ? static_cast<std::size_t>(static_cast<const char *>(feed) - text) + 1 : most;
        if (!add_piece(begin, length)) return false;
        begin += length;
    }
    return true;
}

bool backup_lines::add_piece(std::size_t begin, std::size_t length) noexcept {
    const auto text = static_cast<std::uint16_t>(strnlen(bytes.data() + begin, length));
    const piece one = {static_cast<number>(begin), static_cast<std::uint16_t>(length), text, false};
    if (!pieces.push(one)) return false;
    if (one.is_short()) short_ones_gone = false;
    return index_piece(static_cast<number>(pieces.size() - 1));
}

bool backup_lines::index_piece(number which) noexcept {
    const piece one = pieces[which];
    const char *text = text_of(one).data();
    for (std::size_t at = 0; at + mac_length <= one.text;) {
        const std::size_t misfit = length_of_no_mac(text + at);
        if (misfit > 0) {
            // No MAC reaches over a character that none has; others may fit when the next one begins later.
            at += is_of_mac(text[at + misfit - 1]) ? 1 : misfit;
            continue;
        }
        if (!mentions.push({one.begin + static_cast<number>(at), which, none}) ||
            !link_mention(static_cast<number>(mentions.size() - 1)))
            return false;
        ++at;
    }
    return true;
}

bool backup_lines::link_mention(number which) noexcept {
    if (mentions.size() > buckets.size()) return rebuild_buckets();
    bucket &home = buckets[hash_mac(bytes.data() + mentions[which].at) & (buckets.size() - 1)];
    if (home.first == none)
        home.first = which;
    else
        mentions[home.last].next = which;
    home.last = which;
    return true;
}

bool backup_lines::rebuild_buckets() noexcept {
    const std::size_t wanted = std::max<std::size_t>(256, 4 * buckets.size());
    if (!buckets.assign(wanted, {none, none})) return false;
    for (number i = 0; i < mentions.size(); ++i) {
        mentions[i].next = none;
        link_mention(i); // there is room for all: it cannot come back here
    }
    return true;
}

void backup_lines::drop(piece &one, const char *mac, backup_line_told tell) noexcept {
    one.gone = true;
    tell(mac, text_of(one), one.is_short());
}

backup_lines::piece *backup_lines::last_piece() noexcept {
    for (std::size_t i = pieces.size(); i-- > 0;)
        if (!pieces[i].gone) return &pieces[i];
    return nullptr;
}

bool backup_lines::ends_torn() noexcept {
    const piece *last = last_piece();
    return last && bytes[last->begin + last->length - 1] != '\n' && last->length < backup_line_max;
}

void backup_lines::remove(const char *mac, backup_line_told tell) noexcept {
    const std::size_t length = std::strlen(mac);
    const bool torn = ends_torn();
    if (!short_ones_gone || length != mac_length || length_of_no_mac(mac) > 0) {
        // Every line has to be looked at: the first time for the short ones, and for a text that is not
        // indexed.
        for (piece &one : pieces) {
            if (one.gone) continue;
            if (one.is_short() || text_of(one).find(mac) != std::string_view::npos) drop(one, mac, tell);
        }
        short_ones_gone = true;
    } else if (buckets.size() > 0) {
        const std::size_t home = hash_mac(mac) & (buckets.size() - 1);
        for (number i = buckets[home].first; i != none; i = mentions[i].next) {
            piece &one = pieces[mentions[i].piece];
            if (!one.gone && std::memcmp(bytes.data() + mentions[i].at, mac, mac_length) == 0)
                drop(one, mac, tell);
        }
    }
    // A torn last line ends the file and the reading at once, even when it is dropped; after anything else there
    // is one more, empty, reading.
    if (!torn) tell(mac, "", true);
}

bool backup_lines::append(const char *line, std::size_t length) noexcept {
    const std::size_t begin = bytes.size();
    const std::size_t known = pieces.size();
    const piece *last = ends_torn() ? last_piece() : nullptr;
    const auto torn = static_cast<std::size_t>(last ? last - pieces.begin() : 0);
    if (!make_room(length + (last ? last->length : 0))) return false;
    if (last) bytes.append(bytes.data() + last->begin, last->length); // it and the new line become one
    bytes.append(line, length);
    const bool added = add_pieces(begin);
    if (last && added) pieces[torn].gone = true;
    for (std::size_t i = known; i < pieces.size() && !added; ++i)
        pieces[i].gone = true; // half a line is none
    return added;
}

bool backup_lines::write(std::FILE *file) const noexcept {
    for (std::size_t i = 0; i < pieces.size();) {
        const std::size_t begin = pieces[i].begin;
        std::size_t end = begin;
        // Lines that stand one behind the other are written at once.
        while (i < pieces.size() && !pieces[i].gone && pieces[i].begin == end) end += pieces[i++].length;
        if (end == begin) // it is gone
            ++i;
        else if (std::fwrite(bytes.data() + begin, 1, end - begin, file) != end - begin)
            return false;
    }
    return true;
}
