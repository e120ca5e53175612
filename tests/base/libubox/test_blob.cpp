#include <gtest/gtest.h>
#include <libubox/blob.h>

#include <cstring>
#include <string>
#include <vector>

#include "message.h"

namespace {

using std::string_literals::operator""s;

// A buffer with the grow callback of a program that has little memory.
struct tight_message : message {
    explicit tight_message(int capacity) {
        limit = capacity;
        buf.grow = [](blob_buf *b, int minlen) {
            ++calls;
            if (b->buflen + minlen > limit) return false;
            void *memory = std::realloc(b->buf, static_cast<std::size_t>(limit));
            std::memset(static_cast<char *>(memory) + b->buflen, 0,
                        static_cast<std::size_t>(limit - b->buflen));
            b->buf = memory;
            b->buflen = limit;
            return true;
        };
        calls = 0;
    }
    static inline int limit;
    static inline int calls;
};

TEST(blob_writing, puts_a_header_with_id_and_length_and_a_zero_gap) {
    message m;
    ASSERT_EQ(blob_buf_init(m, 3), 0);
    ASSERT_NE(blob_put_string(m, 1, "ab"), nullptr);
    ASSERT_NE(blob_put_u8(m, 2, 0xfe), nullptr);
    EXPECT_EQ(m.bytes(), "\x03\0\0\x14"
                         "\x01\0\0\x07"
                         "ab\0\0"
                         "\x02\0\0\x05"
                         "\xfe\0\0\0"s);
}

TEST(blob_writing, integers_are_big_endian) {
    message m;
    blob_buf_init(m, 0);
    blob_put_u16(m, 1, 0x0102);
    blob_put_u32(m, 1, 0x01020304);
    blob_put_u64(m, 1, 0x0102030405060708);
    EXPECT_EQ(m.bytes(), "\0\0\0\x20"
                         "\x01\0\0\x06\x01\x02\0\0"
                         "\x01\0\0\x08\x01\x02\x03\x04"
                         "\x01\0\0\x0c\x01\x02\x03\x04\x05\x06\x07\x08"s);
}

TEST(blob_writing, containers_count_their_padded_children) {
    message m;
    blob_buf_init(m, 0);
    void *outer = blob_nest_start(m, 5);
    void *inner = blob_nest_start(m, 6);
    blob_put_u8(m, 1, 7);
    blob_nest_end(m, inner);
    blob_nest_end(m, outer);
    EXPECT_EQ(m.bytes(), "\0\0\0\x14"
                         "\x05\0\0\x10"
                         "\x06\0\0\x0c"
                         "\x01\0\0\x05\x07\0\0\0"s);
}

TEST(blob_writing, a_reused_buffer_shows_nothing_of_its_past) {
    message m;
    blob_buf_init(m, 0);
    blob_put_string(m, 1, "xxxxxxxxxxxxxxxx");
    const void *memory = m.buf.buf;
    blob_buf_init(m, 0);
    EXPECT_EQ(m.buf.buf, memory);
    blob_put_u8(m, 1, 0);
    EXPECT_EQ(m.bytes(), "\0\0\0\x0c\x01\0\0\x05\0\0\0\0"s);
}

TEST(blob_writing, a_freed_buffer_can_be_initialised_again) {
    message m;
    blob_buf_init(m, 0);
    blob_buf_free(m);
    EXPECT_EQ(m.buf.buf, nullptr);
    EXPECT_EQ(m.buf.head, nullptr);
    EXPECT_EQ(m.buf.buflen, 0);
    EXPECT_EQ(blob_buf_init(m, 0), 0);
    EXPECT_EQ(m.buf.buflen, 256);
}

TEST(blob_writing, capacity_grows_by_256_and_once_more_for_an_exact_fit) {
    message m;
    blob_buf_init(m, 0);
    blob_new(m, 1, 256 - 8);
    EXPECT_EQ(m.buf.buflen, 256) << "exactly full";
    blob_new(m, 1, 1);
    EXPECT_EQ(m.buf.buflen, 512) << "short of 5 bytes";
    blob_buf_free(m);
    blob_buf_init(m, 0);
    blob_new(m, 1, 256 - 8 + 256);
    EXPECT_EQ(m.buf.buflen, 768) << "short of exactly 256 bytes";
}

TEST(blob_writing, a_raw_attribute_is_taken_byte_for_byte_and_padded_by_the_next) {
    message m;
    blob_buf_init(m, 0);
    EXPECT_EQ(blob_put_raw(m, nullptr, 8), nullptr);
    EXPECT_EQ(blob_put_raw(m, "\x01\0\0", 3), nullptr);
    ASSERT_NE(blob_put_raw(m, "\x01\0\0\x05x", 5), nullptr);
    EXPECT_EQ(m.bytes(), "\0\0\0\x09\x01\0\0\x05x"s);
    blob_put_u8(m, 2, 1);
    EXPECT_EQ(m.bytes(), "\0\0\0\x14\x01\0\0\x05x\0\0\0\x02\0\0\x05\x01\0\0\0"s);
}

TEST(blob_writing, the_gap_after_a_raw_attribute_is_zero_in_a_used_buffer) {
    message m;
    blob_buf_init(m, 0);
    blob_put_string(m, 1, "xxxxxxxxxxxxxxxx");
    blob_buf_init(m, 0);
    blob_put_raw(m, "\x01\0\0\x05y", 5);
    blob_put_u8(m, 2, 1);
    EXPECT_EQ(m.bytes(), "\0\0\0\x14\x01\0\0\x05y\0\0\0\x02\0\0\x05\x01\0\0\0"s);

    blob_buf_init(m, 0);
    blob_put_string(m, 1, "xxxxxxxxxxxxxxxx");
    blob_buf_init(m, 0);
    void *cookie = blob_nest_start(m, 3);
    blob_put_raw(m, "\x01\0\0\x05y", 5);
    blob_nest_end(m, cookie);
    EXPECT_EQ(m.bytes(), "\0\0\0\x10\x03\0\0\x09\x01\0\0\x05y\0\0\0"s);
}

TEST(blob_writing, without_memory_an_append_fails_and_the_message_stays) {
    tight_message m{64};
    ASSERT_EQ(blob_buf_init(m, 0), 0);
    ASSERT_NE(blob_put_u32(m, 1, 1), nullptr);
    const std::string before = m.bytes();
    EXPECT_EQ(blob_new(m, 1, 100), nullptr);
    EXPECT_EQ(blob_put(m, 1, "x", 1000), nullptr);
    EXPECT_EQ(blob_put_raw(m, before.data(), 1000), nullptr);
    EXPECT_EQ(m.bytes(), before);
    EXPECT_NE(blob_new(m, 1, 64 - 12 - 4), nullptr) << "what fits still goes in";
    EXPECT_EQ(blob_nest_start(m, 2), nullptr);
    EXPECT_EQ(blob_raw_len(m.buf.head), 64u);
    blob_nest_end(m, nullptr); // of the container that could not be opened
    EXPECT_EQ(blob_raw_len(m.buf.head), 64u);
    EXPECT_EQ(tight_message::calls, 5);
}

TEST(blob_writing, without_any_memory_init_says_so_and_appends_are_refused) {
    tight_message m{0};
    EXPECT_EQ(blob_buf_init(m, 0), -ENOMEM);
    EXPECT_EQ(blob_put_u8(m, 1, 1), nullptr);
    EXPECT_EQ(blob_put_raw(m, "\x01\0\0\x04", 4), nullptr);
    EXPECT_EQ(blob_nest_start(m, 1), nullptr);
}

TEST(blob_writing, a_grow_callback_that_gives_too_little_is_not_believed) {
    message m;
    m.buf.grow = [](blob_buf *, int) { return true; };
    EXPECT_EQ(blob_buf_init(m, 0), -ENOMEM);
}

TEST(blob_writing, sizes_beyond_the_length_field_are_refused) {
    message m;
    blob_buf_init(m, 0);
    EXPECT_EQ(blob_new(m, 1, -1), nullptr);
    EXPECT_EQ(blob_new(m, 1, INT32_MAX), nullptr);
    EXPECT_EQ(blob_put(m, 1, nullptr, UINT32_MAX), nullptr);
    EXPECT_EQ(blob_new(m, 1, 0xffffff), nullptr);
    EXPECT_FALSE(blob_buf_grow(m, -1));
    EXPECT_FALSE(blob_buf_grow(m, 0xffffff));
    EXPECT_EQ(m.bytes(), "\0\0\0\x04"s);
    ASSERT_NE(blob_new(m, 1, 0xffff00 - 9), nullptr) << "the greatest capacity";
    EXPECT_EQ(m.buf.buflen, 0xffff00);
    EXPECT_EQ(blob_new(m, 1, 0), nullptr) << "full";
    EXPECT_EQ(blob_raw_len(m.buf.head), 0xffff00u);
}

TEST(blob_writing, grow_adds_room_and_keeps_the_message) {
    message m;
    blob_buf_init(m, 0);
    blob_put_u8(m, 1, 9);
    const std::string before = m.bytes();
    EXPECT_TRUE(blob_buf_grow(m, 1000));
    EXPECT_EQ(m.buf.buflen, 256 + 1024);
    EXPECT_EQ(m.bytes(), before);
}

TEST(blob_reading, takes_apart_what_was_written) {
    message m;
    blob_buf_init(m, 0);
    blob_put_u8(m, 1, 0xff);
    blob_put_u16(m, 2, 0xfffe);
    blob_put_u32(m, 3, 0xfffffffd);
    blob_put_u64(m, 4, 0xfffffffffffffffc);
    blob_put_string(m, 5, "text");

    blob_attr *tb[6];
    ASSERT_EQ(blob_parse(m.buf.head, tb, nullptr, 6), 5);
    EXPECT_EQ(tb[0], nullptr);
    EXPECT_EQ(blob_get_u8(tb[1]), 0xff);
    EXPECT_EQ(blob_get_int8(tb[1]), -1);
    EXPECT_EQ(blob_get_u16(tb[2]), 0xfffe);
    EXPECT_EQ(blob_get_int16(tb[2]), -2);
    EXPECT_EQ(blob_get_u32(tb[3]), 0xfffffffd);
    EXPECT_EQ(blob_get_int32(tb[3]), -3);
    EXPECT_EQ(blob_get_u64(tb[4]), 0xfffffffffffffffc);
    EXPECT_EQ(blob_get_int64(tb[4]), -4);
    EXPECT_STREQ(blob_get_string(tb[5]), "text");
    EXPECT_EQ(blob_id(tb[5]), 5u);
    EXPECT_EQ(blob_len(tb[5]), 5u);
    EXPECT_EQ(blob_raw_len(tb[5]), 9u);
    EXPECT_EQ(blob_pad_len(tb[5]), 12u);
    EXPECT_FALSE(blob_is_extended(tb[5]));
}

TEST(blob_reading, of_equal_ids_the_last_one_stays_and_they_count_once) {
    message m;
    blob_buf_init(m, 0);
    blob_put_u8(m, 1, 1);
    blob_put_u8(m, 1, 2);
    blob_attr *tb[2];
    EXPECT_EQ(blob_parse(m.buf.head, tb, nullptr, 2), 1);
    EXPECT_EQ(blob_get_u8(tb[1]), 2);
}

TEST(blob_reading, expectations_pass_over_what_does_not_meet_them) {
    message m;
    blob_buf_init(m, 0);
    blob_put_u8(m, 0, 1);
    blob_put_string(m, 1, "too long");
    blob_put_string(m, 2, "");
    blob_put_u8(m, 3, 13);
    static const blob_attr_info info[] = {
        {BLOB_ATTR_INT16, 0, 0, nullptr},
        {BLOB_ATTR_STRING, 0, 12, nullptr},
        {BLOB_ATTR_STRING, 6, 0, nullptr},
        {BLOB_ATTR_INT8, 0, 0, [](const blob_attr_info *i, blob_attr *attr) {
             return i->type == BLOB_ATTR_INT8 && blob_get_u8(attr) != 13;
         }}};
    blob_attr *tb[4];
    EXPECT_EQ(blob_parse(m.buf.head, tb, info, 4), 0);
    blob_buf_init(m, 0);
    blob_put_u8(m, 3, 12);
    EXPECT_EQ(blob_parse(m.buf.head, tb, info, 4), 1);
}

TEST(blob_reading, untrusted_bytes_that_are_too_short_leave_the_result_alone) {
    message m;
    blob_buf_init(m, 0);
    blob_put_u8(m, 1, 1);
    blob_attr *const marker = m.buf.head;
    blob_attr *tb[2] = {marker, marker};
    EXPECT_EQ(blob_parse_untrusted(nullptr, 100, tb, nullptr, 2), 0);
    EXPECT_EQ(blob_parse_untrusted(m.buf.head, 3, tb, nullptr, 2), 0);
    EXPECT_EQ(blob_parse_untrusted(m.buf.head, 11, tb, nullptr, 2), 0);
    EXPECT_EQ(tb[1], marker);
    EXPECT_EQ(blob_parse_untrusted(m.buf.head, 12, tb, nullptr, 2), 1);
    EXPECT_EQ(tb[0], nullptr);
}

TEST(blob_reading, no_attribute_has_no_children) {
    blob_attr *tb[1];
    EXPECT_EQ(blob_parse(nullptr, tb, nullptr, 1), 0);
    const blob_attr *none = nullptr;
    blob_attr *pos;
    int rem;
    blob_for_each_attr (pos, none, rem) ADD_FAILURE();
}

TEST(blob_reading, a_walk_over_a_part_ends_with_its_last_attribute) {
    message m;
    blob_buf_init(m, 0);
    for (std::uint8_t i = 1; i <= 3; ++i) blob_put_u8(m, i, i);
    std::string seen;
    blob_attr *pos;
    std::size_t rem;
    blob_for_each_attr (pos, m.buf.head, rem)
        seen += std::to_string(blob_id(pos)) + "@" + std::to_string(rem) + " ";
    EXPECT_EQ(seen, "1@24 2@16 3@8 ");

    seen.clear();
    int part = 15; // the second one lacks a byte of its gap
    __blob_for_each_attr (pos, blob_data(m.buf.head), part) seen += std::to_string(blob_id(pos));
    EXPECT_EQ(seen, "1");

    seen.clear();
    blob_for_each_attr_len(pos, m.buf.head, 25, rem) seen += std::to_string(blob_id(pos));
    EXPECT_EQ(seen, "123");
    blob_for_each_attr_len(pos, m.buf.head, 24, rem) ADD_FAILURE()
        << "what is left must be below the given length";
}

TEST(blob_reading, a_walk_does_not_believe_a_negative_rest) {
    const char bytes[8] = {};
    blob_attr *pos;
    int rem = -1;
    __blob_for_each_attr (pos, bytes, rem) ADD_FAILURE();
}

TEST(blob_attributes, are_equal_by_their_padded_bytes) {
    message a, b;
    for (message *m : {&a, &b}) {
        blob_buf_init(*m, 1);
        blob_put_u8(*m, 2, 3);
    }
    EXPECT_TRUE(blob_attr_equal(a.buf.head, b.buf.head));
    blob_put_u8(b, 2, 3);
    EXPECT_FALSE(blob_attr_equal(a.buf.head, b.buf.head));
    EXPECT_FALSE(blob_attr_equal(a.buf.head, nullptr));
    EXPECT_FALSE(blob_attr_equal(nullptr, a.buf.head));
    EXPECT_TRUE(blob_attr_equal(nullptr, nullptr));
}

TEST(blob_attributes, are_copied_with_their_gap) {
    message m;
    blob_buf_init(m, 0);
    const blob_attr *attr = blob_put_string(m, 1, "abcd");
    blob_attr *copy = blob_memdup(attr);
    ASSERT_NE(copy, nullptr);
    EXPECT_TRUE(blob_attr_equal(attr, copy));
    std::free(copy);
}

TEST(blob_attributes, length_is_set_without_touching_id_and_name_bit) {
    alignas(4) unsigned char bytes[] = {0x85, 0, 0, 8, 1, 2, 3, 4};
    auto *attr = reinterpret_cast<blob_attr *>(bytes);
    blob_set_raw_len(attr, 6);
    EXPECT_EQ(blob_id(attr), 5u);
    EXPECT_TRUE(blob_is_extended(attr));
    EXPECT_EQ(blob_raw_len(attr), 6u);
    blob_fill_pad(attr);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(bytes), 8), "\x85\0\0\x06\x01\x02\0\0"s);
}

TEST(blob_types, judge_sizes_and_final_nul) {
    const char text[] = "ab";
    const auto ok = [&](unsigned len, int type) { return blob_check_type(text, len, type); };
    EXPECT_TRUE(ok(1, BLOB_ATTR_INT8) && ok(2, BLOB_ATTR_INT16) && ok(3, BLOB_ATTR_STRING));
    EXPECT_FALSE(ok(0, BLOB_ATTR_INT8) || ok(2, BLOB_ATTR_INT8) || ok(1, BLOB_ATTR_INT16));
    EXPECT_FALSE(ok(3, BLOB_ATTR_INT32) || ok(7, BLOB_ATTR_INT64) || ok(7, BLOB_ATTR_DOUBLE));
    EXPECT_TRUE(ok(4, BLOB_ATTR_INT32) && ok(8, BLOB_ATTR_INT64) && ok(8, BLOB_ATTR_DOUBLE) &&
                ok(9, BLOB_ATTR_DOUBLE));
    EXPECT_FALSE(ok(0, BLOB_ATTR_STRING) || ok(2, BLOB_ATTR_STRING));
    EXPECT_TRUE(ok(0, BLOB_ATTR_UNSPEC) && ok(3, BLOB_ATTR_NESTED) && ok(3, BLOB_ATTR_BINARY));
    EXPECT_FALSE(ok(3, BLOB_ATTR_LAST) || ok(3, 127));
}

} // namespace
