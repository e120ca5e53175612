// member_writer.h - members of bus messages out of station records, written into an image that the compiler has made ready.
//
// Hundreds of stations with fifty members each are one answer. The library measures and copies a name for each of them; here
// everything in front of a text (lengths, types, names, gaps, places of numbers) is copied at once, and then the numbers are put into
// their places.
//
// Format: as blobmsg_add_string, _u16, _u32 and _u64 write the same, byte for byte.
// Memory: that of the message. Without memory for all of the members none is written.
#pragma once

#include "base/cxx/ubus.h"
#include "model/record.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>
#include <type_traits>

enum class sta_bus_type : std::uint8_t { text, i16, i32, i64 };

// How a record keeps a value. Sign and width come from the field: a signed field is extended by its sign, an unsigned one by zeros.
enum class sta_kept : std::uint8_t { s8, u8, s16, u16, s32, u32, u64, text, pointer, text_or_none };

struct sta_member {
    std::string_view key;
    sta_bus_type type;
    sta_kept kept;              // a null pointer leaves the member out, and so does an empty text_or_none
    std::uint16_t offset, size; // of the field
};

template <class Field> consteval sta_kept sta_kept_as() {
    if constexpr (std::is_pointer_v<Field>)
        return sta_kept::pointer;
    else if constexpr (std::is_array_v<Field>)
        return sta_kept::text;
    else if constexpr (sizeof(Field) == 1)
        return std::is_signed_v<Field> ? sta_kept::s8 : sta_kept::u8;
    else if constexpr (sizeof(Field) == 2)
        return std::is_signed_v<Field> ? sta_kept::s16 : sta_kept::u16;
    else if constexpr (sizeof(Field) == 4)
        return std::is_signed_v<Field> ? sta_kept::s32 : sta_kept::u32;
    else {
        static_assert(std::is_same_v<Field, std::uint64_t>);
        return sta_kept::u64;
    }
}

class sta_member_writer {
public:
    // Appends the members of `groups`, arrays of sta_member, to the open table.
    template <const auto &...groups> static void write(blob_buf *to, const sta_info_t &sta) noexcept {
        static_assert((only_the_name_is_outside<groups>() && ...));
        char *at = begin(to, (most_of<groups>() + ...) + gap, sta);
        if (!at) return;
        ((at = put<groups>(at, sta)), ...);
        end(to, at);
    }

private:
    static constexpr std::size_t id_and_length = 4, name_length = 2, gap = 4;
    static constexpr std::size_t most_moved = 32; // bytes, for which a call would take longer than the copy

    static constexpr std::size_t padded(std::size_t bytes) { return (bytes + 3) & ~std::size_t{3}; }
    static constexpr std::size_t head_size(const sta_member &member) {
        return id_and_length + padded(name_length + member.key.size() + 1);
    }
    static constexpr std::size_t value_size(sta_bus_type type) {
        return type == sta_bus_type::i16   ? 2
               : type == sta_bus_type::i32 ? 4
               : type == sta_bus_type::i64 ? 8
                                           : 0;
    }
    // A member without its text.
    static constexpr std::size_t image_size(const sta_member &member) {
        return head_size(member) + padded(value_size(member.type));
    }
    static constexpr std::uint32_t id_of(sta_bus_type type) {
        const int id = type == sta_bus_type::text  ? BLOBMSG_TYPE_STRING
                       : type == sta_bus_type::i16 ? BLOBMSG_TYPE_INT16
                       : type == sta_bus_type::i32 ? BLOBMSG_TYPE_INT32
                                                   : BLOBMSG_TYPE_INT64;
        return BLOB_ATTR_EXTENDED | static_cast<std::uint32_t>(id) << BLOB_ATTR_ID_SHIFT;
    }

    // Where member `index` of the group begins in the image.
    template <const auto &group> static consteval std::size_t place_of(std::size_t index) {
        std::size_t size = 0;
        for (std::size_t i = 0; i < index; ++i) size += image_size(group[i]);
        return size;
    }
    template <const auto &group> static consteval std::size_t next_text(std::size_t index) {
        while (index < std::size(group) && group[index].type != sta_bus_type::text) ++index;
        return index;
    }
    // Of the group in a message, without the name.
    template <const auto &group> static consteval std::size_t most_of() {
        std::size_t size = place_of<group>(std::size(group));
        for (const sta_member &member : group)
            if (member.type == sta_bus_type::text && member.kept != sta_kept::pointer)
                size += padded(member.size);
        return size;
    }

    // The group's members one after the other, numbers 0, texts left out.
    template <const auto &group> static consteval auto image_of() {
        std::array<char, place_of<group>(std::size(group))> image{};
        std::size_t at = 0;
        const auto put = [&](std::uint32_t value, std::size_t bytes) {
            while (bytes-- > 0) image[at++] = static_cast<char>(value >> (8 * bytes) & 0xff);
        };
        for (const sta_member &member : group) {
            const std::size_t end = at + image_size(member);
            put(id_of(member.type) | static_cast<std::uint32_t>(head_size(member) + value_size(member.type)),
                id_and_length);
            put(static_cast<std::uint32_t>(member.key.size()), name_length);
            for (const char c : member.key) image[at++] = c;
            at = end;
        }
        return image;
    }
    template <const auto &group> static constexpr auto image = image_of<group>();
    // begin() makes room for no other text outside the record.
    template <const auto &group> static consteval bool only_the_name_is_outside() {
        for (const sta_member &member : group)
            if (member.kept == sta_kept::pointer && member.offset != offsetof(sta_info_t, name)) return false;
        return true;
    }

    // Writes the group, or what is left of it from member `first` on. Returns its end.
    template <const auto &group> [[gnu::noinline]] static char *put(char *to, const sta_info_t &sta) {
        return put_from<group, 0>(to, reinterpret_cast<const char *>(&sta));
    }
    template <const auto &group, std::size_t first>
    [[gnu::always_inline]] static char *put_from(char *to, const char *sta) {
        constexpr std::size_t text = next_text<group>(first), begin = place_of<group>(first),
                              last = std::size(group);
        constexpr std::size_t size = place_of<group>(text < last ? text + 1 : last) - begin;
        if constexpr (size <= most_moved)
            std::memcpy(to, image<group>.data() + begin, size);
        else
            copy(to, image<group>.data() + begin, size);
        put_numbers<group, first>(to - begin, sta, std::make_index_sequence<text - first>{});
        to += size;
        if constexpr (text < last) {
            to = put_text<group, text>(to, sta + group[text].offset);
            if constexpr (text + 1 < last) to = put_from<group, text + 1>(to, sta);
        }
        return to;
    }
    template <const auto &group, std::size_t first, std::size_t... i>
    [[gnu::always_inline]] static void
    put_numbers([[maybe_unused]] char *to, [[maybe_unused]] const char *sta, std::index_sequence<i...> /**/) {
        (put_number<group[first + i].type>(to + place_of<group>(first + i) + head_size(group[first + i]),
                                           number_at<group[first + i].kept>(sta + group[first + i].offset)),
         ...);
    }

    template <class Field> [[gnu::always_inline]] static std::int64_t value_at(const char *at) {
        Field value{};
        std::memcpy(&value, at, sizeof(value));
        return static_cast<std::int64_t>(value);
    }
    template <sta_kept kept> [[gnu::always_inline]] static std::int64_t number_at(const char *at) {
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
    template <class Word> [[gnu::always_inline]] static void put_word(char *to, Word word) {
        std::memcpy(to, &word, sizeof(word));
    }
    // The value and its gap.
    template <sta_bus_type type>
    [[gnu::always_inline]] static void put_number(char *to, std::int64_t number) {
        const auto bits = static_cast<std::uint64_t>(number);
        if constexpr (type == sta_bus_type::i16)
            put_word(to, cpu_to_be32(static_cast<std::uint32_t>(bits << 16)));
        else if constexpr (type == sta_bus_type::i32)
            put_word(to, cpu_to_be32(static_cast<std::uint32_t>(bits)));
        else
            put_word(to, cpu_to_be64(bits));
    }

    // Completes member `index` by its text, for which its head is in front of `to` already, or takes the head back if there is no
    // text. Returns the end.
    template <const auto &group, std::size_t index>
    [[gnu::always_inline]] static char *put_text(char *to, const char *field) {
        constexpr const sta_member &member = group[index];
        constexpr std::size_t head = head_size(member);
        if constexpr (member.kept == sta_kept::pointer) {
            const char *text = nullptr;
            std::memcpy(&text, field, sizeof(text));
            return text ? put_long_text(to, head, text) : to - head;
        } else {
            if (member.kept == sta_kept::text_or_none && *field == '\0') return to - head;
            if constexpr (member.size > most_moved) return put_long_text(to, head, field);
            const std::size_t length = std::strlen(field) + 1;
            put_word(to - head, cpu_to_be32(id_of(member.type) | static_cast<std::uint32_t>(head + length)));
            std::memcpy(to, field, member.size);     // whatever is behind the text
            put_word(to + length, std::uint32_t{0}); // the gap, and what the next member begins with
            return to + padded(length);
        }
    }

    // Where the members begin; null without room for them.
    static char *begin(blob_buf *to, std::size_t most, const sta_info_t &sta) noexcept;
    static void end(blob_buf *to, char *at) noexcept;
    static char *put_long_text(char *to, std::size_t head_size, const char *text) noexcept; // of any length
    static void copy(char *to, const char *from, std::size_t bytes) noexcept;
};
