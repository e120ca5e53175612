#include "collector/names.h"

#include "collector/report_writer.h"
#include "collector/sessions.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {
constexpr std::size_t longest = 64;
constexpr std::string_view blanks = " \t,\r";

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(blanks);
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}
} // namespace

station_names station_names::parse(std::string_view text) {
    station_names all;
    while (!text.empty()) {
        const auto end = text.find('\n');
        const std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.empty() || line.front() == '#') continue;
        const auto gap = line.find_first_of(blanks);
        const std::string mac = normal_mac(line.substr(0, gap));
        std::string_view rest =
            gap == std::string_view::npos ? std::string_view() : trimmed(line.substr(gap));
        if (mac.empty() || rest.empty()) {
            ++all.wrong;
            continue;
        }
        if (rest.size() > longest) { // cut it, but not within a character
            std::size_t length = longest;
            while (length > 0 && (static_cast<unsigned char>(rest[length]) & 0xc0) == 0x80) --length;
            rest = rest.substr(0, length);
        }
        all.names_[mac] = escaped(rest);
    }
    return all;
}

station_names station_names::read(const std::string &path) {
    if (path.empty()) return {};
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file) throw std::runtime_error("cannot read " + path);
    return parse(text);
}

std::string station_names::of(const std::string &mac) const {
    const std::lock_guard hold(lock_);
    const auto at = names_.find(mac);
    return at == names_.end() ? std::string() : at->second;
}

void station_names::replace(station_names by) {
    const std::lock_guard hold(lock_);
    names_.swap(by.names_);
    wrong = by.wrong;
}
