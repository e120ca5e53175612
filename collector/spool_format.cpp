#include "collector/spool_format.h"

#include <array>

namespace {

constexpr std::string_view magic = "wsmspl1\n";
constexpr std::size_t least_body = 3;

constexpr auto crc_table = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) value = (value & 1) != 0 ? value >> 1 ^ 0xedb88320u : value >> 1;
        table[byte] = value;
    }
    return table;
}();

std::uint32_t crc32(std::string_view bytes) {
    std::uint32_t value = ~0u;
    for (const char c : bytes) value = value >> 8 ^ crc_table[(value ^ static_cast<std::uint8_t>(c)) & 255];
    return ~value;
}

void put(std::string &out, std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out += static_cast<char>(value >> 8 * i & 255);
}

std::uint64_t number(std::string_view bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;) value = value << 8 | static_cast<std::uint8_t>(bytes[i]);
    return value;
}

} // namespace

std::string spool_head(std::uint64_t acknowledged) {
    std::string out(magic);
    put(out, acknowledged, 8);
    return out;
}

bool spool_read_head(std::string_view bytes, std::uint64_t &acknowledged) {
    if (bytes.size() < spool_head_size || !bytes.starts_with(magic)) return false;
    acknowledged = number(bytes.substr(magic.size(), 8));
    return true;
}

std::string spool_record(const letter &one) {
    const std::string_view topic = std::string_view(one.topic).substr(0, 0xffff);
    std::string body;
    body.reserve(least_body + topic.size() + one.payload.size());
    body += one.retain ? '\1' : '\0';
    put(body, topic.size(), 2);
    body += topic;
    body += one.payload;
    std::string out;
    out.reserve(spool_record_head + body.size());
    put(out, body.size(), 4);
    put(out, crc32(body), 4);
    return out += body;
}

spool_found spool_read(std::string_view bytes, letter &out) {
    if (bytes.size() < spool_record_head) return {spool_verdict::short_, 0};
    const std::uint64_t length = number(bytes.substr(0, 4));
    if (length < least_body || length > spool_most_body) return {spool_verdict::damaged, 0};
    const std::size_t size = spool_record_head + length;
    if (bytes.size() < size) return {spool_verdict::short_, size};
    const std::string_view body = bytes.substr(spool_record_head, length);
    const std::size_t topic = number(body.substr(1, 2));
    if (crc32(body) != number(bytes.substr(4, 4)) || static_cast<std::uint8_t>(body[0]) > 1 ||
        topic > length - least_body)
        return {spool_verdict::damaged, 0};
    out.retain = body[0] == 1;
    out.topic = body.substr(least_body, topic);
    out.payload = body.substr(least_body + topic);
    return {spool_verdict::whole, size};
}
