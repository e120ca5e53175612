#include "support/bytes.h"

#include "support/files.h"

#include <sstream>
#include <stdexcept>

namespace {

std::uint8_t byte_of(const std::string &digits) {
    std::size_t used = 0;
    const unsigned long value = digits.size() == 2 ? std::stoul(digits, &used, 16) : 0;
    if (used != 2) throw std::runtime_error("no byte: " + digits);
    return static_cast<std::uint8_t>(value);
}

void add_word(byte_vector &bytes, const std::string &word) {
    if (word.back() == ':') {
        if (std::stoul(word) != bytes.size())
            throw std::runtime_error(word + " stands behind " + std::to_string(bytes.size()) + " bytes");
    } else if (word.size() > 3 && word[2] == '*') {
        bytes.insert(bytes.end(), std::stoul(word.substr(3)), byte_of(word.substr(0, 2)));
    } else {
        for (std::size_t i = 0; i < word.size(); i += 2) bytes.push_back(byte_of(word.substr(i, 2)));
    }
}

} // namespace

byte_vector from_hex(const std::string &text) {
    byte_vector bytes;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        for (std::string word; words >> word;) add_word(bytes, word);
    }
    return bytes;
}

byte_vector golden(const std::string &name) {
    const std::string path = std::string(WSMD_GOLDEN_DIR "/") + name;
    if (!file_exists(path)) throw std::runtime_error("no golden file " + path);
    return from_hex(read_file(path));
}
