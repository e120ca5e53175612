#include "outputs/member_writer.h"

#include <cstring>

namespace {

template <class Field> std::int64_t value_at(const char *at) {
    Field value{};
    std::memcpy(&value, at, sizeof(value));
    return static_cast<std::int64_t>(value);
}

std::int64_t number_at(const char *at, sta_kept kept) {
    switch (kept) {
    case sta_kept::s8: return value_at<std::int8_t>(at);
    case sta_kept::u8: return value_at<std::uint8_t>(at);
    case sta_kept::s16: return value_at<std::int16_t>(at);
    case sta_kept::u16: return value_at<std::uint16_t>(at);
    case sta_kept::s32: return value_at<std::int32_t>(at);
    case sta_kept::u32: return value_at<std::uint32_t>(at);
    default: return value_at<std::int64_t>(at);
    }
}

template <class Word> std::size_t put_word(char *to, Word word) {
    std::memcpy(to, &word, sizeof(word));
    return sizeof(word);
}

// The value and its gap; how many bytes they are.
std::size_t put_number(char *to, sta_bus_type type, std::int64_t number) {
    const auto bits = static_cast<std::uint64_t>(number);
    switch (type) {
    case sta_bus_type::i16: return put_word(to, cpu_to_be32(static_cast<std::uint32_t>(bits << 16)));
    case sta_bus_type::i32: return put_word(to, cpu_to_be32(static_cast<std::uint32_t>(bits)));
    default: return put_word(to, cpu_to_be64(bits));
    }
}

// Null when there is none.
const char *text_at(const char *at, sta_kept kept) {
    if (kept == sta_kept::text_or_none) return *at != '\0' ? at : nullptr;
    if (kept == sta_kept::text) return at;
    const char *text = nullptr;
    std::memcpy(&text, at, sizeof(text));
    return text;
}

} // namespace

void sta_member_writer::add(const sta_info_t &sta, std::span<const place> places,
                            const char *heads) noexcept {
    for (const place &its : places) {
        const char *field = reinterpret_cast<const char *>(&sta) + its.offset;
        if (its.type == sta_bus_type::text) {
            if (const char *text = text_at(field, its.kept)) add_text(text, heads, its.head_size);
        } else {
            if (sizeof(image_) - used_ < head_most + sizeof(std::uint64_t)) flush();
            std::memcpy(image_ + used_, heads, head_most);
            used_ += its.head_size;
            used_ += put_number(image_ + used_, its.type, number_at(field, its.kept));
        }
        heads += its.head_size;
    }
}

void sta_member_writer::add_text(const char *text, const char *head, std::size_t head_size) noexcept {
    const std::size_t length = std::strlen(text) + 1, room = padded(length);
    if (sizeof(image_) - used_ < head_most + room) {
        flush();
        if (sizeof(image_) < head_most + room) {
            blobmsg_add_string(to_, head + id_and_length + name_length, text);
            return;
        }
    }
    char *to = image_ + used_;
    std::memcpy(to, head, head_most);
    std::uint32_t id_len = 0; // that of a member without a value
    std::memcpy(&id_len, head, sizeof(id_len));
    (void)put_word(to, cpu_to_be32(be32_to_cpu(id_len) + static_cast<std::uint32_t>(length)));
    (void)put_word(to + head_size + room - sizeof(std::uint32_t), std::uint32_t{0}); // for the gap
    std::memcpy(to + head_size, text, length);
    used_ += head_size + room;
}

void sta_member_writer::flush() noexcept {
    if (used_ > 0) (void)blob_put_raw(to_, image_, static_cast<unsigned>(used_));
    used_ = 0;
}
