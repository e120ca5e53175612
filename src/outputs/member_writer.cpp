#include "outputs/member_writer.h"

char *sta_member_writer::begin(blob_buf *to, std::size_t most, const sta_info_t &sta) noexcept {
    if (!to->head) return nullptr;
    const auto *used = reinterpret_cast<const char *>(blob_next(to->head));
    const auto room = static_cast<std::size_t>(static_cast<const char *>(to->buf) + to->buflen - used);
    if (sta.name) most += padded(std::strlen(sta.name) + 1);
    if (room < most && !blob_buf_grow(to, static_cast<int>(most))) return nullptr;
    blob_fill_pad(to->head);
    return reinterpret_cast<char *>(blob_next(to->head));
}

void sta_member_writer::end(blob_buf *to, char *at) noexcept {
    blob_set_raw_len(to->head, static_cast<unsigned>(at - reinterpret_cast<char *>(to->head)));
}

char *sta_member_writer::put_long_text(char *to, std::size_t head_size, const char *text) noexcept {
    char *head = to - head_size;
    const std::size_t length = std::strlen(text) + 1, room = padded(length);
    std::uint32_t id_len = 0; // that of a member without a text
    std::memcpy(&id_len, head, sizeof(id_len));
    put_word(head, cpu_to_be32(be32_to_cpu(id_len) + static_cast<std::uint32_t>(length)));
    put_word(to + room - sizeof(std::uint32_t), std::uint32_t{0}); // for the gap
    std::memcpy(to, text, length);
    return to + room;
}

// The C library's copy is twice as fast as the loop that a compiler writes where it knows a large size.
void sta_member_writer::copy(char *to, const char *from, std::size_t bytes) noexcept {
    std::memcpy(to, from, bytes);
}
