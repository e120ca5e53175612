#include "inputs/snoop_copy.h"

#include "tools/file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr std::size_t none = SIZE_MAX;

// What grep and awk of any kind take as a character of text, a blank or the end of a line.
bool is_plain(char c) { return (c >= ' ' && c <= '~') || c == '\t' || c == '\n'; }

char fold(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool is_word_character(char folded) {
    return (folded >= 'a' && folded <= 'z') || (folded >= '0' && folded <= '9') || folded == '_';
}

bool is_blank(char c) { return c == ' ' || c == '\t'; }

} // namespace

const sta_snoop_copy *sta_snoop_copy::current = nullptr;

sta_snoop_copy::sta_snoop_copy() noexcept : outer(current) {
    constexpr std::size_t most = 8 << 20;
    current = this;
    const sta_file file{std::fopen(path, "re")};
    if (!file) {
        if (errno == ENOENT) state = outcome::missing;
        return;
    }
    if (!sta_read_all(file.get(), bytes, most) || !std::all_of(bytes.begin(), bytes.end(), is_plain) ||
        !folded.append(bytes.data(), bytes.size()))
        return;
    std::transform(folded.begin(), folded.end(), folded.begin(), fold);
    indexed = macs.add(folded.data(), 0, folded.size(), 0); // without memory, each look-up searches the text
    state = outcome::found;
}

sta_snoop_copy::~sta_snoop_copy() { current = outer; }

bool sta_snoop_copy::is_word(std::size_t at, std::size_t length) const noexcept {
    const std::size_t behind = at + length;
    return (at == 0 || !is_word_character(folded[at - 1])) &&
           (behind == folded.size() || !is_word_character(folded[behind]));
}

// Where the MAC is in it; `none` if it is in no line.
std::size_t sta_snoop_copy::first_line_with(const char *mac) const noexcept {
    const std::size_t length = std::strlen(mac);
    if (indexed && sta_mac_index::is_mac(mac)) {
        std::size_t first = none;
        macs.find(folded.data(), mac, [&](const sta_mac_index::mention &one) {
            if (is_word(one.at, length)) first = one.at;
            return first != none;
        });
        return first;
    }
    for (std::size_t from = 0; from < folded.size();) {
        const void *found = memmem(folded.data() + from, folded.size() - from, mac, length);
        if (!found) return none;
        const auto at = static_cast<std::size_t>(static_cast<const char *>(found) - folded.data());
        if (is_word(at, length)) return at;
        from = at + 1;
    }
    return none;
}

sta_snoop_copy::outcome sta_snoop_copy::find(const char *mac, char (&address)[16]) const noexcept {
    if (state != outcome::found) return state;
    char wanted[32];
    const std::size_t length = std::strlen(mac);
    if (length >= sizeof(wanted) || std::strchr(mac, '.')) return outcome::unknown; // '.' is any character
    std::transform(mac, mac + length + 1, wanted, fold);
    const std::size_t at = first_line_with(wanted);
    if (at == none) return outcome::absent;

    const char *text = bytes.data(), *end = text + bytes.size();
    const void *feed = memrchr(text, '\n', at);
    const char *word = feed ? static_cast<const char *>(feed) + 1 : text;
    end = std::find(word, end, '\n');
    for (int number = 1;; ++number) {
        word = std::find_if_not(word, end, is_blank);
        const char *behind = std::find_if(word, end, is_blank);
        if (word == behind) return outcome::absent;
        if (number == 3) {
            std::memset(address, 0, sizeof(address));
            std::copy_n(word,
                        std::min<std::size_t>(static_cast<std::size_t>(behind - word), sizeof(address) - 1),
                        address);
            return outcome::found;
        }
        word = behind;
    }
}
