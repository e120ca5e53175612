// spool_format.h - the format of the spool's files, which hold messages for a broker.
//
// Format: a file begins with 16 bytes: "wsmspl1\n", and the offset after the last record that the broker has acknowledged.
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
// False: not such a file. `acknowledged` is the value in the file, unchecked.
bool spool_read_head(std::string_view bytes, std::uint64_t &acknowledged);

// Topics of more than 65,535 bytes are cut; the body must not be larger than `spool_most_body`.
std::string spool_record(const letter &one);

enum class spool_verdict {
    whole,   // `size` bytes are a record
    short_,  // incomplete: it has `size` bytes in all, or a number not yet known when that is 0
    damaged, // not a record
};
struct spool_found {
    spool_verdict verdict;
    std::size_t size;
};
// The record that `bytes` begins with.
spool_found spool_read(std::string_view bytes, letter &out);
