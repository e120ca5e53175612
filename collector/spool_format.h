// spool_format.h - messages for a broker, as they lie in a file of the spool.
//
// Format: a file begins with 16 bytes: "wsmspl1\n", and the offset behind the last record that the broker has acknowledged.
//         Records follow: the length of the body (4), its CRC-32 (4), and the body: 1 when retained, else 0 (1), the length of
//         the topic (2), topic, payload. Numbers are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

struct letter {
    std::string topic;
    std::string payload;
    bool retain = false;
    bool operator==(const letter &) const = default;
};

inline constexpr std::size_t spool_head_size = 16;
inline constexpr std::size_t spool_record_head = 8;
inline constexpr std::size_t spool_most_body = 1 << 20; // more than any message of ours

std::string spool_head(std::uint64_t acknowledged);
// False: it is none. `acknowledged` is as it stands there.
bool spool_read_head(std::string_view bytes, std::uint64_t &acknowledged);

// Topics of more than 65,535 bytes are cut; the body must not be larger than `spool_most_body`.
std::string spool_record(const letter &one);

enum class spool_verdict {
    whole,   // `size` bytes are a record
    short_,  // it goes on for `size` bytes in all, or for some more when that is 0
    damaged, // no record
};
struct spool_found {
    spool_verdict verdict;
    std::size_t size;
};
// The record that `bytes` begins with.
spool_found spool_read(std::string_view bytes, letter &out);
