// member_writer.h - members of bus messages out of station records, written from heads that the compiler has made ready.
//
// Hundreds of stations with fifty members each are one answer. The library measures and copies a name for each of them; here the
// bytes in front of a value (length, type, name, gap) are copied as they are, and many members go into the message at once.
//
// Format: as blobmsg_add_string, _u16, _u32 and _u64 write the same, byte for byte.
// Memory: none of its own. What the message has no memory for is left out.
#pragma once

#include "base/cxx/ubus.h"
#include "model/record.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <string_view>
#include <type_traits>

enum class sta_bus_type : std::uint8_t { text, i16, i32, i64 };

// How a record keeps a value. Sign and width come from the field: a signed field is extended by its sign, an unsigned one by zeros.
enum class sta_kept : std::uint8_t { s8, u8, s16, u16, s32, u32, u64, text, pointer, text_or_none };

struct sta_member {
    std::string_view key;
    sta_bus_type type;
    sta_kept kept; // a null pointer leaves the member out, and so does an empty text_or_none
    std::uint16_t offset;
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
    explicit sta_member_writer(blob_buf *to) noexcept : to_(to) {}
    ~sta_member_writer() { flush(); }
    sta_member_writer(const sta_member_writer &) = delete;
    sta_member_writer &operator=(const sta_member_writer &) = delete;

    // Appends the members of `group`, an array of sta_member.
    template <const auto &group> void add(const sta_info_t &sta) noexcept {
        static constexpr auto places = places_of<group>();
        static constexpr auto heads = heads_of<group>();
        static_assert(
            std::ranges::all_of(places, [](const place &its) { return its.head_size <= head_most; }));
        add(sta, places, heads.data());
    }

private:
    struct place { // what is left of a member once its head is ready
        std::uint16_t offset;
        std::uint8_t head_size;
        sta_bus_type type;
        sta_kept kept;
    };
    static constexpr std::size_t head_most = 32; // copied at once; no head is longer
    static constexpr std::size_t id_and_length = 4, name_length = 2;

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
    static constexpr std::uint32_t id_of(sta_bus_type type) {
        const int id = type == sta_bus_type::text  ? BLOBMSG_TYPE_STRING
                       : type == sta_bus_type::i16 ? BLOBMSG_TYPE_INT16
                       : type == sta_bus_type::i32 ? BLOBMSG_TYPE_INT32
                                                   : BLOBMSG_TYPE_INT64;
        return BLOB_ATTR_EXTENDED | static_cast<std::uint32_t>(id) << BLOB_ATTR_ID_SHIFT;
    }

    template <const auto &group> static consteval auto places_of() {
        std::array<place, std::size(group)> places{};
        for (std::size_t i = 0; i < places.size(); ++i)
            places[i] = {group[i].offset, static_cast<std::uint8_t>(head_size(group[i])), group[i].type,
                         group[i].kept};
        return places;
    }

    template <const auto &group> static consteval std::size_t size_of_heads() {
        std::size_t size = 0;
        for (const sta_member &member : group) size += head_size(member);
        return size;
    }

    template <const auto &group> static consteval auto heads_of() {
        std::array<char, size_of_heads<group>() + head_most> heads{};
        std::size_t at = 0;
        const auto put = [&](std::uint32_t value, std::size_t bytes) {
            while (bytes-- > 0) heads[at++] = static_cast<char>(value >> (8 * bytes) & 0xff);
        };
        for (const sta_member &member : group) {
            const std::size_t end = at + head_size(member);
            put(id_of(member.type) | static_cast<std::uint32_t>(head_size(member) + value_size(member.type)),
                id_and_length);
            put(static_cast<std::uint32_t>(member.key.size()), name_length);
            for (const char c : member.key) heads[at++] = c;
            at = end;
        }
        return heads;
    }

    void add(const sta_info_t &sta, std::span<const place> places, const char *heads) noexcept;
    void add_text(const char *text, const char *head, std::size_t head_size) noexcept;
    void flush() noexcept;

    blob_buf *to_;
    std::size_t used_ = 0;
    alignas(4) char image_[2048];
};
