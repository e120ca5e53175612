#include "outputs/backup_lines.h"

#include "tools/file.h"

#include <algorithm>
#include <cstring>

bool backup_lines::read(std::FILE *file) noexcept {
    constexpr std::size_t most = 8 << 20; // a larger one is not ours
    return sta_read_all(file, bytes, most) && add_pieces(0);
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
    return macs.add(bytes.data(), one.begin, one.text, static_cast<number>(pieces.size() - 1));
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
    const bool torn = ends_torn();
    if (!short_ones_gone || !sta_mac_index::is_mac(mac)) {
        // Every line is looked at: in the first call to find the short ones, and whenever `mac` is a text that the
        // index does not have.
        for (piece &one : pieces) {
            if (one.gone) continue;
            if (one.is_short() || text_of(one).find(mac) != std::string_view::npos) drop(one, mac, tell);
        }
        short_ones_gone = true;
    } else {
        macs.find(bytes.data(), mac, [&](const sta_mac_index::mention &one) {
            if (piece &its = pieces[one.owner]; !its.gone) drop(its, mac, tell);
            return false;
        });
    }
    // The single operation reads once more after the last line and gets an empty text, unless that line has no line
    // feed.
    if (!torn) tell(mac, "", true);
}

bool backup_lines::append(const char *line, std::size_t length) noexcept {
    const std::size_t begin = bytes.size();
    const std::size_t known = pieces.size();
    const piece *last = ends_torn() ? last_piece() : nullptr;
    const auto torn = static_cast<std::size_t>(last ? last - pieces.begin() : 0);
    if (!make_room(length + (last ? last->length : 0))) return false;
    if (last) bytes.append(bytes.data() + last->begin, last->length); // joins it and the new line
    bytes.append(line, length);
    const bool added = add_pieces(begin);
    if (last && added) pieces[torn].gone = true;
    for (std::size_t i = known; i < pieces.size() && !added; ++i)
        pieces[i].gone = true; // a line that was added in part does not count
    return added;
}

bool backup_lines::has_once(const char *mac) const noexcept {
    int mentions = 0;
    macs.find(bytes.data(), mac, [&](const sta_mac_index::mention &one) {
        mentions += pieces[one.owner].gone ? 0 : 1;
        return mentions > 1;
    });
    return mentions == 1;
}

bool backup_lines::write(std::FILE *file) const noexcept {
    for (std::size_t i = 0; i < pieces.size();) {
        const std::size_t begin = pieces[i].begin;
        std::size_t end = begin;
        // Adjacent lines are written together.
        while (i < pieces.size() && !pieces[i].gone && pieces[i].begin == end) end += pieces[i++].length;
        if (end == begin) // this line is gone
            ++i;
        else if (std::fwrite(bytes.data() + begin, 1, end - begin, file) != end - begin)
            return false;
    }
    return true;
}
