#include "outputs/backup_known.h"

#include "outputs/backup_lines.h"
#include "tools/file.h"
#include "tools/mac_index.h"

#include <cstring>

static_assert(backup_line_max < 1U << 15, "a length has room beside its mark");

backup_known::mac_number backup_known::number_of(std::string_view mac) noexcept {
    if (mac.size() != sta_mac_index::mac_length) return no_mac;
    const auto digit = [](char c) { // above 15 for what is none
        const unsigned decimal = static_cast<unsigned char>(c) - unsigned{'0'};
        const unsigned letter = static_cast<unsigned char>(c) - unsigned{'a'};
        return decimal < 10 ? decimal : letter < 6 ? letter + 10 : 16U;
    };
    mac_number number = 0;
    const char *at = mac.data();
    for (int octet = 0; octet < 6; ++octet, at += 3) {
        const unsigned high = digit(at[0]), low = digit(at[1]);
        if ((high | low) > 15 || (octet < 5 && at[2] != ':')) return no_mac;
        number = number << 8 | high << 4 | low;
    }
    return number;
}

std::string_view backup_known::mac_of_line(std::string_view line) noexcept {
    if (line.size() <= backup_line_least || line.size() >= backup_line_max || line.back() != '\n' ||
        std::memchr(line.data(), '\0', line.size()))
        return {};
    std::string_view found;
    const bool one = sta_mac_index::for_each(line.data(), line.size(), [&](std::size_t at) {
        const bool first = found.empty();
        found = {line.data() + at, sta_mac_index::mac_length}; // substr would need the C++ runtime library
        return first;
    });
    return one ? found : std::string_view{};
}

bool backup_known::is_line_of(std::string_view line, std::string_view mac) noexcept {
    // As a rule the colons of the line are those of one MAC.
    const auto *first = static_cast<const char *>(std::memchr(line.data(), ':', line.size()));
    const char *const end = line.data() + line.size();
    if (first && first - line.data() >= 2 && end - first > static_cast<std::ptrdiff_t>(mac.size()) &&
        line.size() > backup_line_least && line.size() < backup_line_max && line.back() == '\n' &&
        std::memcmp(first - 2, mac.data(), mac.size()) == 0) {
        const char *behind = first - 2 + mac.size();
        const auto rest = static_cast<std::size_t>(end - behind);
        if (!std::memchr(behind, ':', rest) && !std::memchr(line.data(), '\0', line.size())) return true;
    }
    return mac_of_line(line) == mac;
}

bool backup_known::is_same(const struct stat &now) const noexcept {
    return known_ && S_ISREG(now.st_mode) && sta_same_file(status_, now);
}

bool backup_known::is_still(const char *path) const noexcept {
    struct stat now {};
    return known_ && lstat(path, &now) == 0 && is_same(now);
}

bool backup_known::is_still(int file) const noexcept {
    struct stat now {};
    return fstat(file, &now) == 0 && is_same(now);
}

void backup_known::is_written(const char *path) noexcept {
    known_ = lstat(path, &status_) == 0 && static_cast<std::uintmax_t>(status_.st_size) == length_of_all();
}

std::size_t backup_known::place(std::size_t i) const noexcept {
    std::size_t place = 0;
    for (std::size_t before = 0; before < i; ++before) place += length(before);
    return place;
}

void backup_known::pack() noexcept {
    std::size_t left = 0;
    for (std::size_t i = 0; i < size(); ++i)
        if (!is_gone(i)) lines_[left++] = lines_[i];
    lines_.cut(left);
}

std::size_t backup_known::find(mac_number mac, std::size_t from) const noexcept {
    const auto within = [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i)
            if (lines_[i] >> 16 == mac && !is_gone(i)) return i;
        return none;
    };
    const std::size_t found = within(from, size());
    return found != none ? found : within(0, std::min(from, size()));
}
