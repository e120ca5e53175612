// was_peer.h - the driver's end of a request on its socket, laid out as platform/was/was_wire.h says.
#pragma once

#include "common/stream_server.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

struct was_question {
    int command;
    int argument;
    std::string ifname;
    std::vector<std::uint8_t> bytes; // the caller's whole buffer, at most was_size_max
};

// The peer's request, once all of it has come; the peer is hung up on after its answer, since a connection
// carries one. Nothing before that, nor when it is larger than any may be: then the peer is hung up on at once.
std::optional<was_question> take_question(stream_server::peer &from);

// Answers it. `bytes` go only with result 0, no more than were asked with; other results are negative errno
// values or the driver's own.
void send_answer(stream_server::peer &to, std::int32_t result, std::span<const std::uint8_t> bytes);
