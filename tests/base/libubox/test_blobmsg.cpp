#include <gtest/gtest.h>
#include <libubox/blobmsg.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "message.h"

namespace {

using std::string_literals::operator""s;

TEST(blobmsg_writing, a_member_has_its_name_header_even_without_a_name) {
    message m;
    blob_buf_init(m, 0);
    EXPECT_EQ(blobmsg_add_u32(m, "a", 1), 0);
    EXPECT_EQ(blobmsg_add_u8(m, nullptr, 2), 0);
    EXPECT_EQ(m.bytes(), "\0\0\0\x1c"
                         "\x85\0\0\x0c\0\x01"
                         "a\0\0\0\0\x01"
                         "\x87\0\0\x09\0\0\0\0\x02\0\0\0"s);
}

TEST(blobmsg_writing, tables_and_arrays_nest) {
    message m;
    blobmsg_buf_init(m);
    void *table = blobmsg_open_table(m, "t");
    void *array = blobmsg_open_array(m, "l");
    blobmsg_add_string(m, nullptr, "x");
    blobmsg_close_array(m, array);
    blobmsg_close_table(m, table);
    EXPECT_EQ(m.bytes(), "\x02\0\0\x20"
                         "\x82\0\0\x1c\0\x01t\0"
                         "\x81\0\0\x14\0\x01l\0"
                         "\x83\0\0\x0a\0\0\0\0x\0\0\0"s);
}

TEST(blobmsg_writing, name_gaps_are_zero_in_a_used_buffer) {
    message m;
    blob_buf_init(m, 0);
    blobmsg_add_string(m, "xxxxxxxx", "xxxxxxxxxxxxxxxxxxxxx");
    blob_buf_init(m, 0);
    blobmsg_add_u8(m, "ab", 1);
    EXPECT_EQ(m.bytes(), "\0\0\0\x14\x87\0\0\x0d\0\x02"
                         "ab\0\0\0\0\x01\0\0\0"s);
}

TEST(blobmsg_writing, names_of_64_kib_are_refused) {
    message m;
    blob_buf_init(m, 0);
    const std::string longest(65535, 'n');
    EXPECT_EQ(blobmsg_add_u8(m, (longest + "n").c_str(), 1), -1);
    EXPECT_EQ(blobmsg_open_table(m, (longest + "n").c_str()), nullptr);
    EXPECT_EQ(m.bytes(), "\0\0\0\x04"s);
    EXPECT_EQ(blobmsg_add_u8(m, longest.c_str(), 1), 0);
    EXPECT_TRUE(blobmsg_check_array(m.buf.head, BLOBMSG_TYPE_UNSPEC) < 0) << "a head of id 0 is no table";
    blob_attr *member = static_cast<blob_attr *>(blob_data(m.buf.head));
    EXPECT_TRUE(blobmsg_check_attr(member, true));
    EXPECT_EQ(blobmsg_name(member), longest);
}

TEST(blobmsg_writing, without_memory_members_are_refused_and_the_message_stays) {
    message m;
    m.buf.grow = [](blob_buf *b, int) {
        if (b->buf) return false;
        b->buf = std::calloc(1, 64);
        b->buflen = 64;
        return true;
    };
    blobmsg_buf_init(m);
    blobmsg_add_u32(m, "a", 1);
    const std::string before = m.bytes();
    EXPECT_EQ(blobmsg_add_string(m, "b", std::string(100, 'x').c_str()), -1);
    EXPECT_EQ(blobmsg_add_field(m, BLOBMSG_TYPE_UNSPEC, "b", nullptr, UINT32_MAX), -1);
    EXPECT_EQ(blobmsg_open_table(m, std::string(60, 'n').c_str()), nullptr);
    EXPECT_EQ(blobmsg_alloc_string_buffer(m, "b", 60), nullptr);
    EXPECT_EQ(blobmsg_alloc_string_buffer(m, "b", UINT32_MAX), nullptr);
    EXPECT_EQ(blobmsg_printf(m, "b", "%060d", 1), -1);
    EXPECT_EQ(m.bytes(), before);
    EXPECT_EQ(blobmsg_add_u32(m, "b", 1), 0) << "what fits still goes in";
}

TEST(blobmsg_writing, a_string_in_place_belongs_to_the_message_only_when_added) {
    message m;
    blob_buf_init(m, 0);
    auto *text = static_cast<char *>(blobmsg_alloc_string_buffer(m, "s", 100));
    std::strcpy(text, "abandoned");
    EXPECT_EQ(blob_raw_len(m.buf.head), 4u);

    text = static_cast<char *>(blobmsg_alloc_string_buffer(m, "s", 4));
    std::strcpy(text, "abcd");
    text = static_cast<char *>(blobmsg_realloc_string_buffer(m, 2000));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "abcd");
    EXPECT_EQ(blobmsg_realloc_string_buffer(m, 1u << 24), nullptr);
    blobmsg_add_string_buffer(m);
    EXPECT_EQ(m.bytes(), "\0\0\0\x14\x83\0\0\x0d\0\x01s\0"
                         "abcd\0\0\0\0"s);
}

TEST(blobmsg_writing, a_string_in_place_without_nul_is_cut_at_the_buffers_end) {
    message m;
    blob_buf_init(m, 0);
    auto *text = static_cast<char *>(blobmsg_alloc_string_buffer(m, "s", 100));
    const auto room = static_cast<std::size_t>(static_cast<char *>(m.buf.buf) + m.buf.buflen - text);
    std::memset(text, 'x', room);
    blobmsg_add_string_buffer(m);
    EXPECT_EQ(blob_raw_len(m.buf.head), 256u);
    const auto *member = static_cast<const blob_attr *>(blob_data(m.buf.head));
    EXPECT_TRUE(blobmsg_check_attr(member, true));
}

TEST(blobmsg_writing, a_formatted_string_returns_its_length) {
    message m;
    blob_buf_init(m, 0);
    EXPECT_EQ(blobmsg_printf(m, "s", "%s-%03d", "ap", 7), 6);
    EXPECT_EQ(blobmsg_printf(m, "e", "%s", ""), 0);
    EXPECT_EQ(take_text(blobmsg_format_json(m.buf.head, true)), "{\"s\":\"ap-007\",\"e\":\"\"}");
}

TEST(blobmsg_writing, a_copied_member_keeps_type_name_and_value) {
    message from, to;
    blob_buf_init(from, 0);
    blobmsg_add_double(from, "d", -2.5);
    blob_buf_init(to, 0);
    EXPECT_EQ(blobmsg_add_blob(to, static_cast<blob_attr *>(blob_data(from.buf.head))), 0);
    EXPECT_EQ(to.bytes(), from.bytes());
}

TEST(blobmsg_writing, a_copied_attribute_without_a_name_gets_an_empty_one) {
    alignas(4) char null_value[] = "\0\0\0\x04";
    // Nothing behind the header that could be a name: the copy has just these four bytes.
    const std::unique_ptr<blob_attr, void (*)(void *)> alone{
        blob_memdup(reinterpret_cast<blob_attr *>(null_value)), std::free};
    message m;
    blob_buf_init(m, 0);
    EXPECT_EQ(blobmsg_add_blob(m, alone.get()), 0);
    EXPECT_EQ(m.bytes(), "\0\0\0\x0c\x80\0\0\x08\0\0\0\0"s);
}

class blobmsg_members : public testing::Test {
protected:
    blobmsg_members() { blobmsg_buf_init(m); }
    blob_attr *first() { return static_cast<blob_attr *>(blob_data(m.buf.head)); }
    message m;
};

TEST_F(blobmsg_members, integers_widen_with_and_without_sign) {
    blobmsg_add_u8(m, "a", 0xff);
    blobmsg_add_u16(m, "b", 0xfffe);
    blobmsg_add_u32(m, "c", 0xfffffffd);
    blobmsg_add_u64(m, "d", 0xfffffffffffffffc);
    blobmsg_add_string(m, "e", "5");
    const std::int64_t with_sign[] = {-1, -2, -3, -4, 0};
    const std::uint64_t without[] = {0xff, 0xfffe, 0xfffffffd, 0xfffffffffffffffc, 0};
    int i = 0;
    blob_attr *pos;
    int rem;
    blobmsg_for_each_attr (pos, m.buf.head, rem) {
        EXPECT_EQ(blobmsg_cast_s64(pos), with_sign[i]);
        EXPECT_EQ(blobmsg_cast_u64(pos), without[i]);
        ++i;
    }
    EXPECT_EQ(i, 5);
}

TEST_F(blobmsg_members, values_come_back_as_written) {
    blobmsg_add_double(m, "d", -0.1);
    EXPECT_EQ(blobmsg_get_double(first()), -0.1);
    EXPECT_EQ(blobmsg_type(first()), BLOBMSG_TYPE_DOUBLE);
    blobmsg_buf_init(m);
    blobmsg_add_u8(m, "b", 2);
    EXPECT_TRUE(blobmsg_get_bool(first()));
    EXPECT_EQ(blobmsg_get_u8(first()), 2);
    blobmsg_buf_init(m);
    blobmsg_add_string(m, "s", "text");
    EXPECT_STREQ(blobmsg_get_string(first()), "text");
    EXPECT_EQ(blobmsg_len(first()), 5u);
    EXPECT_STREQ(blobmsg_name(first()), "s");
    blobmsg_clear_name(first());
    EXPECT_STREQ(blobmsg_name(first()), "");
}

TEST_F(blobmsg_members, null_has_no_value) {
    EXPECT_EQ(blobmsg_data(nullptr), nullptr);
    EXPECT_EQ(blobmsg_data_len(nullptr), 0u);
    EXPECT_EQ(blobmsg_get_string(nullptr), nullptr);
    const blob_attr *none = nullptr;
    blob_attr *pos;
    std::size_t rem;
    blobmsg_for_each_attr (pos, none, rem) ADD_FAILURE();
}

TEST_F(blobmsg_members, a_walk_with_a_preset_rest_sees_as_much_as_that) {
    for (const char *name : {"a", "b", "c"}) blobmsg_add_u32(m, name, 1);
    std::string seen;
    blob_attr *pos;
    int rem = 24;
    __blobmsg_for_each_attr(pos, m.buf.head, rem) seen += blobmsg_name(pos);
    EXPECT_EQ(seen, "ab");
}

enum { NUMBER, TEXT, ANY, CAST, members };
const blobmsg_policy policy[members] = {{"n", BLOBMSG_TYPE_INT32},
                                        {"s", BLOBMSG_TYPE_STRING},
                                        {"any", BLOBMSG_TYPE_UNSPEC},
                                        {"c", BLOBMSG_CAST_INT64}};

class blobmsg_parsing : public blobmsg_members {
protected:
    int parse() { return blobmsg_parse_attr(policy, members, tb, m.buf.head); }
    blob_attr *tb[members];
};

TEST_F(blobmsg_parsing, the_first_member_of_the_right_type_wins_others_are_absent) {
    blobmsg_add_string(m, "n", "no number");
    blobmsg_add_u32(m, "n", 1);
    blobmsg_add_u32(m, "n", 2);
    blobmsg_add_u32(m, "s", 3);
    EXPECT_EQ(parse(), 0);
    ASSERT_NE(tb[NUMBER], nullptr);
    EXPECT_EQ(blobmsg_get_u32(tb[NUMBER]), 1u);
    EXPECT_EQ(tb[TEXT], nullptr);
    EXPECT_EQ(tb[ANY], nullptr);
}

TEST_F(blobmsg_parsing, a_cast_takes_any_integer_and_unspec_anything) {
    blobmsg_add_double(m, "c", 1);
    blobmsg_add_u16(m, "c", 5);
    blobmsg_add_field(m, BLOBMSG_TYPE_UNSPEC, "any", nullptr, 0);
    EXPECT_EQ(parse(), 0);
    ASSERT_NE(tb[CAST], nullptr);
    EXPECT_EQ(blobmsg_cast_s64(tb[CAST]), 5);
    ASSERT_NE(tb[ANY], nullptr);
}

TEST_F(blobmsg_parsing, entries_of_one_name_and_different_types_can_share_a_member) {
    const blobmsg_policy same[] = {
        {"v", BLOBMSG_TYPE_STRING}, {"v", BLOBMSG_TYPE_INT32}, {"v", BLOBMSG_TYPE_UNSPEC}};
    blob_attr *found[3];
    blobmsg_add_u32(m, "v", 1);
    EXPECT_EQ(blobmsg_parse_attr(same, 3, found, m.buf.head), 0);
    EXPECT_EQ(found[0], nullptr);
    EXPECT_EQ(found[1], first());
    EXPECT_EQ(found[2], first());
}

TEST_F(blobmsg_parsing, an_unsound_member_ends_it_and_what_was_found_stays) {
    blobmsg_add_u32(m, "n", 1);
    blobmsg_add_field(m, BLOBMSG_TYPE_INT32, "x", "abc", 3);
    blobmsg_add_string(m, "s", "late");
    EXPECT_EQ(parse(), -1);
    EXPECT_NE(tb[NUMBER], nullptr);
    EXPECT_EQ(tb[TEXT], nullptr);
}

TEST_F(blobmsg_parsing, no_data_is_an_error_and_clears_the_result) {
    tb[NUMBER] = m.buf.head;
    EXPECT_EQ(parse(), -EINVAL);
    EXPECT_EQ(tb[NUMBER], nullptr);
    EXPECT_EQ(blobmsg_parse(policy, members, tb, nullptr, 8), -EINVAL);
    EXPECT_EQ(blobmsg_parse_attr(policy, members, tb, nullptr), -EINVAL);
}

TEST_F(blobmsg_parsing, names_count_in_full_length) {
    blobmsg_add_u32(m, "nn", 1);
    blobmsg_add_u32(m, "", 2);
    const char inner_nul[] = "\x85\0\0\x10\0\x03n\0x\0\0\0\0\0\0\x01"; // name "n", NUL, "x"
    blob_put_raw(m, inner_nul, 16);
    EXPECT_EQ(parse(), 0);
    EXPECT_EQ(tb[NUMBER], nullptr);
}

TEST_F(blobmsg_parsing, policy_entries_with_no_name_or_256_bytes_find_nothing) {
    const std::string just(255, 'n'), over(256, 'n');
    const blobmsg_policy odd[] = {{nullptr, BLOBMSG_TYPE_UNSPEC},
                                  {just.c_str(), BLOBMSG_TYPE_UNSPEC},
                                  {over.c_str(), BLOBMSG_TYPE_UNSPEC}};
    blob_attr *found[3];
    blobmsg_add_u8(m, over.c_str(), 1);
    blobmsg_add_u8(m, just.c_str(), 1);
    blobmsg_add_u8(m, "", 1);
    EXPECT_EQ(blobmsg_parse_attr(odd, 3, found, m.buf.head), 0);
    EXPECT_EQ(found[0], nullptr);
    EXPECT_NE(found[1], nullptr);
    EXPECT_EQ(found[2], nullptr);
}

TEST_F(blobmsg_parsing, elements_are_given_out_in_order_by_type) {
    blobmsg_add_string(m, nullptr, "a");
    blobmsg_add_u32(m, nullptr, 1);
    blobmsg_add_string(m, nullptr, "b");
    const blobmsg_policy slots[] = {{nullptr, BLOBMSG_TYPE_STRING}, {nullptr, BLOBMSG_TYPE_STRING}};
    blob_attr *found[2];
    EXPECT_EQ(blobmsg_parse_array_attr(slots, 2, found, m.buf.head), 0);
    EXPECT_STREQ(blobmsg_get_string(found[0]), "a");
    EXPECT_STREQ(blobmsg_get_string(found[1]), "b");
    EXPECT_EQ(blobmsg_parse_array(slots, 2, found, nullptr, 0), 0);
    EXPECT_EQ(found[0], nullptr);
}

TEST_F(blobmsg_parsing, elements_after_the_last_slot_are_not_looked_at) {
    blobmsg_add_string(m, nullptr, "a");
    blobmsg_add_field(m, BLOBMSG_TYPE_STRING, nullptr, "x", 1); // no NUL
    const blobmsg_policy one[] = {{nullptr, BLOBMSG_TYPE_UNSPEC}};
    blob_attr *found[2];
    EXPECT_EQ(blobmsg_parse_array_attr(one, 1, found, m.buf.head), 0);
    const blobmsg_policy two[] = {{nullptr, BLOBMSG_TYPE_UNSPEC}, {nullptr, BLOBMSG_TYPE_STRING}};
    EXPECT_EQ(blobmsg_parse_array_attr(two, 2, found, m.buf.head), -1);
    EXPECT_NE(found[0], nullptr);
    const blobmsg_policy cast[] = {{nullptr, BLOBMSG_CAST_INT64}};
    EXPECT_EQ(blobmsg_parse_array_attr(cast, 1, found, m.buf.head), 0);
    EXPECT_EQ(found[0], nullptr);
}

TEST_F(blobmsg_members, lists_are_checked_by_type_and_count) {
    blobmsg_add_u32(m, "a", 1);
    blobmsg_add_u32(m, "b", 1);
    EXPECT_EQ(blobmsg_check_array(m.buf.head, BLOBMSG_TYPE_INT32), 2);
    EXPECT_EQ(blobmsg_check_array(m.buf.head, BLOBMSG_TYPE_UNSPEC), 2);
    EXPECT_EQ(blobmsg_check_array(m.buf.head, BLOBMSG_TYPE_STRING), -1);
    EXPECT_EQ(blobmsg_check_array(m.buf.head, BLOBMSG_CAST_INT64), -1);
    EXPECT_TRUE(blobmsg_check_attr_list(m.buf.head, BLOBMSG_TYPE_INT32));
    EXPECT_EQ(blobmsg_check_array(first(), BLOBMSG_TYPE_UNSPEC), -1) << "an integer is no list";
    blobmsg_add_u32(m, "", 1);
    EXPECT_EQ(blobmsg_check_array(m.buf.head, BLOBMSG_TYPE_INT32), -1) << "members of a table have names";
}

} // namespace
