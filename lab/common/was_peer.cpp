#include "common/was_peer.h"

#include "was/was_wire.h"

#include <cstring>

std::optional<was_question> take_question(stream_server::peer &from) {
    if (from.in.size() < was_request_header) return std::nullopt;
    const auto *header = reinterpret_cast<const std::uint8_t *>(from.in.data());
    const auto size = wire::get<std::uint32_t>(header + was_request_size);
    if (size > was_size_max) {
        from.close = true;
        return std::nullopt;
    }
    if (from.in.size() < was_request_header + size) return std::nullopt;
    const auto *ifname = reinterpret_cast<const char *>(header + was_request_ifname);
    const std::uint8_t *payload = header + was_request_header;
    was_question question{wire::get<std::int32_t>(header + was_request_cmd),
                          wire::get<std::int32_t>(header + was_request_arg),
                          {ifname, strnlen(ifname, was_ifname_size)},
                          {payload, payload + size}};
    from.in.clear();
    from.close = true;
    return question;
}

void send_answer(stream_server::peer &to, std::int32_t result, std::span<const std::uint8_t> bytes) {
    if (result != 0) bytes = {};
    std::uint8_t header[was_answer_header];
    wire::put<std::int32_t>(header + was_answer_result, result);
    wire::put<std::uint32_t>(header + was_answer_size, static_cast<std::uint32_t>(bytes.size()));
    to.out.append(reinterpret_cast<const char *>(header), sizeof(header));
    to.out.append(reinterpret_cast<const char *>(bytes.data()), bytes.size());
}
