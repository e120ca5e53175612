// was_wire.h - a driver request on the simulator's Unix stream socket: one request and its answer per
// connection.
//
// Request: 48 bytes of header, then `size` bytes.   Answer: 8 bytes of header, then `size` bytes, never more
// than were sent. Little-endian. Shared by libwas, which sends requests, and the driver simulator, which answers.
#pragma once

#include "protocol/wire.h"

#include <cstdint>

inline constexpr const char *was_socket_path = "/var/run/was.sock";

inline constexpr std::size_t was_request_cmd = 0;  // i32
inline constexpr std::size_t was_request_arg = 4;  // i32
inline constexpr std::size_t was_request_size = 8; // u32
inline constexpr std::size_t was_request_ifname =
    12; // text, ends at the first NUL or at the end of the field
inline constexpr std::size_t was_ifname_size = 36;
inline constexpr std::size_t was_request_header = was_request_ifname + was_ifname_size;

inline constexpr std::size_t was_answer_result = 0; // i32, 0 for success
inline constexpr std::size_t was_answer_size = 4;   // u32
inline constexpr std::size_t was_answer_header = 8;

// No request or answer is larger: 512 stations in both sections are 197 KiB.
inline constexpr std::uint32_t was_size_max = 16u << 20;
