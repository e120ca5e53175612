#include "sta/backup_lines.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t mac_length = 17;

bool is_hex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// True when the 17 characters at `text` look like a MAC, in either case.
bool is_mac(const char *text) {
    for (std::size_t i = 0; i < mac_length; ++i)
        if (i % 3 == 2 ? text[i] != ':' : !is_hex(text[i])) return false;
    return true;
}

std::size_t hash_mac(const char *text) { // FNV-1a
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (std::size_t i = 0; i < mac_length; ++i)
        hash = (hash ^ static_cast<std::uint8_t>(text[i])) * 0x100000001b3U;
    return static_cast<std::size_t>(hash ^ (hash >> 32));
}

} // namespace

bool backup_lines::read(std::FILE *file) noexcept {
    sta_array<char> whole;
    constexpr std::size_t step = 65536;
    for (;;) {
        if (!whole.reserve(whole.size() + step)) return false;
        const std::size_t got = std::fread(whole.end(), 1, step, file);
        whole.extend(got);
        if (got < step) break;
    }
    return std::ferror(file) == 0 && add_pieces(whole.data(), whole.size());
}

bool backup_lines::add_pieces(const char *text, std::size_t length) noexcept {
    while (length > 0) {
        const std::size_t most = std::min(length, backup_line_max);
        const void *feed = std::memchr(text, '\n', most);
        const std::size_t taken =
            feed ? static_cast<std::size_t>(static_cast<const char *>(feed) - text) + 1 : most;
        if (!add_piece(text, taken)) return false;
        text += taken;
        length -= taken;
    }
    return true;
}

bool backup_lines::add_piece(const char *text, std::size_t length) noexcept {
    const piece one = {bytes.size(), length, false};
    if (!bytes.append(text, length) || !bytes.push('\0') || !pieces.push(one)) return false;
    if (is_short(one)) short_ones_gone = false;
    return index_piece(pieces.size() - 1);
}

bool backup_lines::index_piece(std::size_t number) noexcept {
    const char *text = text_of(pieces[number]);
    const std::size_t length = std::strlen(text);
    for (std::size_t at = 0; at + mac_length <= length; ++at) {
        if (text[at + 2] != ':' || !is_mac(text + at)) continue;
        if (!mentions.push({pieces[number].begin + at, number, none}) || !link_mention(mentions.size() - 1))
            return false;
    }
    return true;
}

bool backup_lines::link_mention(std::size_t number) noexcept {
    if (mentions.size() > buckets.size()) return rebuild_buckets();
    bucket &home = buckets[hash_mac(bytes.data() + mentions[number].at) & (buckets.size() - 1)];
    if (home.first == none)
        home.first = number;
    else
        mentions[home.last].next = number;
    home.last = number;
    return true;
}

bool backup_lines::rebuild_buckets() noexcept {
    const std::size_t wanted = std::max<std::size_t>(64, 2 * buckets.size());
    if (!buckets.assign(wanted, {none, none})) return false;
    for (std::size_t i = 0; i < mentions.size(); ++i) {
        mentions[i].next = none;
        link_mention(i); // there is room for all: it cannot come back here
    }
    return true;
}

bool backup_lines::is_short(const piece &one) const noexcept {
    return std::strlen(text_of(one)) < backup_line_least;
}

void backup_lines::drop(piece &one, const char *mac, bool too_short, backup_line_told tell) noexcept {
    one.gone = true;
    tell(mac, text_of(one), too_short);
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
    if (!short_ones_gone || length != mac_length || !is_mac(mac)) {
        // Every line has to be looked at: the first time for the short ones, and for a text that is not
        // indexed.
        for (piece &one : pieces) {
            if (one.gone) continue;
            const bool too_short = is_short(one);
            if (too_short || std::strstr(text_of(one), mac)) drop(one, mac, too_short, tell);
        }
        short_ones_gone = true;
    } else if (buckets.size() > 0) {
        const std::size_t home = hash_mac(mac) & (buckets.size() - 1);
        for (std::size_t i = buckets[home].first; i != none; i = mentions[i].next) {
            piece &one = pieces[mentions[i].piece];
            if (!one.gone && std::memcmp(bytes.data() + mentions[i].at, mac, mac_length) == 0)
                drop(one, mac, false, tell);
        }
    }
    // A torn last line ends the file and the reading at once, even when it is dropped; after anything else there
    // is one more, empty, reading.
    if (!torn) tell(mac, "", true);
}

bool backup_lines::append(const char *line, std::size_t length) noexcept {
    if (!ends_torn()) return add_pieces(line, length);
    // The torn last line and the new one become one.
    piece &last = *last_piece();
    sta_array<char> joined;
    if (!joined.append(text_of(last), last.length) || !joined.append(line, length)) return false;
    last.gone = true;
    return add_pieces(joined.data(), joined.size());
}

bool backup_lines::write(std::FILE *file) const noexcept {
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const piece &one = pieces[i];
        if (!one.gone && std::fwrite(text_of(one), 1, one.length, file) != one.length) return false;
    }
    return true;
}
