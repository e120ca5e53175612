// script.h - the input of the bus fuzz targets: steps of
//     byte 0     what to do: bits 0-1 whose connection, bits 2-3 enum step_kind, bits 4-7 the low bits of seq
//     byte 1     message type
//     bytes 2-3  peer, counted from the first id that is given out, big endian
//     bytes 4-5  length of what follows, big endian; cut to what is there
// so that most inputs are well-framed messages, and others remain possible.
#ifndef FUZZ_UBUS_SCRIPT_H
#define FUZZ_UBUS_SCRIPT_H

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include <ubusmsg.h>

enum step_kind {
    STEP_MESSAGE, // content is the attributes of a message
    STEP_BYTES,   // content is sent as it is
    STEP_READ,    // reads what has come back
    STEP_RENEW,   // closes the connection and opens a new one
};

struct step {
    unsigned connection;
    step_kind kind;
    std::vector<std::uint8_t> bytes; // to send
};

inline constexpr std::size_t step_header = 6;

// Takes the first step off the input.
inline step next_step(std::span<const std::uint8_t> &input) {
    const std::uint8_t what = input[0], type = input[1], peer_high = input[2], peer_low = input[3];
    std::size_t len = std::size_t{input[4]} << 8 | input[5];
    input = input.subspan(step_header);
    len = std::min(len, input.size());
    step s{what & 3u, static_cast<step_kind>(what >> 2 & 3), {}};
    if (s.kind == STEP_MESSAGE) {
        const unsigned peer = UBUS_SYSTEM_OBJECT_MAX + (unsigned{peer_high} << 8 | peer_low);
        const std::size_t root = len + sizeof(std::uint32_t);
        s.bytes = {0, type, 0, static_cast<std::uint8_t>(what >> 4)};
        for (const std::size_t word : {std::size_t{peer}, root})
            for (const int shift : {24, 16, 8, 0})
                s.bytes.push_back(static_cast<std::uint8_t>(word >> shift));
    }
    s.bytes.insert(s.bytes.end(), input.begin(), input.begin() + static_cast<std::ptrdiff_t>(len));
    input = input.subspan(len);
    return s;
}

#endif
