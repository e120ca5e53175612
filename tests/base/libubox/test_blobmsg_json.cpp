#include <gtest/gtest.h>
#include <json-c/json.h>
#include <libubox/blobmsg_json.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <string>

#include "message.h"

namespace {

using json = std::unique_ptr<json_object, decltype([](json_object *o) { json_object_put(o); })>;

class json_text : public testing::Test {
protected:
    json_text() { blobmsg_buf_init(m); }
    std::string text() { return take_text(blobmsg_format_json(m.buf.head, true)).value_or("(null)"); }
    blob_attr *first() { return static_cast<blob_attr *>(blob_data(m.buf.head)); }
    message m;
};

TEST_F(json_text, members_are_appended_to_what_is_there_also_inside_an_open_table) {
    blobmsg_add_u32(m, "a", 1);
    void *table = blobmsg_open_table(m, "t");
    EXPECT_TRUE(blobmsg_add_json_from_string(m, "{\"b\":2,\"c\":[true,null]}"));
    blobmsg_close_table(m, table);
    EXPECT_EQ(text(), "{\"a\":1,\"t\":{\"b\":2,\"c\":[true,null]}}");
}

TEST_F(json_text, a_text_that_is_no_object_leaves_the_message_unchanged) {
    blobmsg_add_u32(m, "a", 1);
    const std::string before = m.bytes();
    for (const char *bad : {"", "[1]", "1", "\"s\"", "null", "{\"a\":", "{a:1}"}) {
        EXPECT_FALSE(blobmsg_add_json_from_string(m, bad)) << bad;
        EXPECT_EQ(m.bytes(), before) << bad;
    }
    EXPECT_FALSE(blobmsg_add_object(m, nullptr));
    const json number{json_object_new_int(1)};
    EXPECT_FALSE(blobmsg_add_object(m, number.get()));
    EXPECT_EQ(m.bytes(), before);
}

TEST_F(json_text, elements_of_a_program_keep_their_types) {
    const json big{json_object_new_uint64(std::numeric_limits<std::uint64_t>::max())};
    EXPECT_TRUE(blobmsg_add_json_element(m, "null", nullptr));
    EXPECT_TRUE(blobmsg_add_json_element(m, "big", big.get()));
    EXPECT_EQ(text(), "{\"null\":null,\"big\":9223372036854775807}");
}

TEST_F(json_text, a_file_is_read_like_a_text) {
    const auto path = std::filesystem::temp_directory_path() / ("json_text." + std::to_string(getpid()));
    std::ofstream{path} << "{\"from\":\"file\"}\n";
    EXPECT_TRUE(blobmsg_add_json_from_file(m, path.c_str()));
    EXPECT_EQ(text(), "{\"from\":\"file\"}");
    std::ofstream{path} << "[]";
    EXPECT_FALSE(blobmsg_add_json_from_file(m, path.c_str()));
    std::filesystem::remove(path);
    EXPECT_FALSE(blobmsg_add_json_from_file(m, path.c_str()));
    EXPECT_EQ(text(), "{\"from\":\"file\"}");
}

TEST_F(json_text, adding_stops_and_says_so_when_memory_runs_out) {
    message tight;
    tight.buf.grow = [](blob_buf *b, int) {
        if (b->buf) return false;
        b->buf = std::calloc(1, 64);
        b->buflen = 64;
        return true;
    };
    blobmsg_buf_init(tight);
    EXPECT_TRUE(blobmsg_add_json_from_string(tight, "{\"a\":1}"));
    EXPECT_FALSE(blobmsg_add_json_from_string(tight, "{\"t\":{\"l\":[1,2,3,4,5,6,7,8]},\"z\":1}"));
    EXPECT_TRUE(blobmsg_check_attr_list(tight.buf.head, BLOBMSG_TYPE_UNSPEC)) << "what was added is whole";
}

TEST_F(json_text, integers_of_all_sizes_are_signed_decimals_and_bytes_are_booleans) {
    blobmsg_add_u8(m, "a", 0);
    blobmsg_add_u8(m, "b", 7);
    blobmsg_add_u16(m, "c", 0x8000);
    blobmsg_add_u32(m, "d", 0xffffffff);
    blobmsg_add_u64(m, "e", 0x8000000000000000);
    blobmsg_add_u64(m, "f", 0x7fffffffffffffff);
    blobmsg_add_u64(m, "g", 0);
    EXPECT_EQ(text(), "{\"a\":false,\"b\":true,\"c\":-32768,\"d\":-1,\"e\":-9223372036854775808,"
                      "\"f\":9223372036854775807,\"g\":0}");
}

TEST_F(json_text, only_control_characters_quotes_and_backslashes_are_escaped) {
    blobmsg_add_string(m, "k\"\n", "\b\n\t\r\f\"\\/\x01\x1f\x7f\xff\xc3\xa9");
    EXPECT_EQ(text(), "{\"k\\\"\\n\":\"\\b\\n\\t\\r\\u000c\\\"\\\\/\\u0001\\u001f\x7f\xff\xc3\xa9\"}");
}

TEST_F(json_text, a_long_text_with_many_escapes_is_complete) {
    const std::string value(5000, '"');
    blobmsg_add_string(m, "s", value.c_str());
    std::string expected = "{\"s\":\"";
    for (std::size_t i = 0; i < value.size(); ++i) expected += "\\\"";
    EXPECT_EQ(text(), expected + "\"}");
}

TEST_F(json_text, one_member_is_written_with_its_name_or_as_its_value_alone) {
    void *table = blobmsg_open_table(m, "t");
    blobmsg_add_u32(m, "a", 1);
    blobmsg_close_table(m, table);
    EXPECT_EQ(take_text(blobmsg_format_json(first(), false)), "\"t\":{\"a\":1}");
    EXPECT_EQ(take_text(blobmsg_format_json_value(first())), "{\"a\":1}");
    EXPECT_EQ(take_text(blobmsg_format_json(first(), true)), "{\"a\":1}");
    EXPECT_EQ(take_text(blobmsg_format_json(m.buf.head, false)), "{\"t\":{\"a\":1}}") << "a head has no name";
    blob_buf_init(m, 0);
    EXPECT_EQ(take_text(blobmsg_format_json(m.buf.head, false)), "null") << "id 0 is the type of null";
}

TEST_F(json_text, indentation_starts_at_the_given_level) {
    blobmsg_add_json_from_string(m, "{\"a\":{\"b\":[1]}}");
    EXPECT_EQ(take_text(blobmsg_format_json_indent(m.buf.head, true, 2)),
              "{\n\t\t\t\"a\": {\n\t\t\t\t\"b\": [\n\t\t\t\t\t1\n\t\t\t\t]\n\t\t\t}\n\t\t}");
    EXPECT_EQ(take_text(blobmsg_format_json_value_indent(first(), 0)), "{\n\t\"b\": [\n\t\t1\n\t]\n}");
    const std::string tabs(16, '\t');
    blobmsg_buf_init(m);
    EXPECT_EQ(take_text(blobmsg_format_json_indent(m.buf.head, true, 100)), "{\n" + tabs + "\n" + tabs + "}");
}

TEST_F(json_text, the_hook_replaces_all_values_except_the_outer_brackets) {
    blobmsg_add_json_from_string(m, "{\"n\":1,\"t\":{\"n\":2},\"l\":[3],\"s\":\"x\"}");
    int calls = 0;
    const auto hook = [](void *priv, blob_attr *attr) -> const char * {
        ++*static_cast<int *>(priv);
        return blobmsg_type(attr) == BLOBMSG_TYPE_INT32 ? "<i>" : nullptr;
    };
    EXPECT_EQ(take_text(blobmsg_format_json_with_cb(m.buf.head, true, hook, &calls, -1)),
              "{\"n\":<i>,\"t\":{\"n\":<i>},\"l\":[<i>],\"s\":\"x\"}");
    EXPECT_EQ(calls, 6);
    calls = 0;
    EXPECT_EQ(take_text(blobmsg_format_json_value_with_cb(first(), hook, &calls, -1)), "<i>");
    EXPECT_EQ(calls, 1);
}

TEST_F(json_text, the_hook_may_write_nothing) {
    blobmsg_add_json_from_string(m, "{\"n\":1}");
    const auto hook = [](void *, blob_attr *) -> const char * { return ""; };
    EXPECT_EQ(take_text(blobmsg_format_json_value_with_cb(first(), hook, nullptr, -1)), "");
    EXPECT_EQ(take_text(blobmsg_format_json_with_cb(m.buf.head, true, hook, nullptr, -1)), "{\"n\":}");
}

TEST_F(json_text, an_unsound_member_leaves_its_place_empty) {
    blobmsg_add_field(m, BLOBMSG_TYPE_INT32, "bad", "abc", 3);
    blobmsg_add_u32(m, "ok", 1);
    blobmsg_add_field(m, BLOBMSG_TYPE_STRING, "open", "abc", 3);
    EXPECT_EQ(text(), "{,\"ok\":1,}");
    EXPECT_EQ(take_text(blobmsg_format_json(first(), false)), "");
    blob_buf_init(m, BLOBMSG_TYPE_STRING);
    EXPECT_EQ(blobmsg_format_json(m.buf.head, false), nullptr);
    EXPECT_EQ(blobmsg_format_json_value(m.buf.head), nullptr);
}

TEST_F(json_text, a_message_nested_a_hundred_thousand_levels_deep_needs_no_stack) {
    constexpr int depth = 100000;
    std::vector<void *> cookies;
    for (int i = 0; i < depth; ++i) cookies.push_back(blobmsg_open_array(m, nullptr));
    while (!cookies.empty()) {
        blobmsg_close_array(m, cookies.back());
        cookies.pop_back();
    }
    EXPECT_EQ(text(), "{" + std::string(depth, '[') + std::string(depth, ']') + "}");
}

TEST_F(json_text, doubles_have_six_decimals_and_at_most_316_characters) {
    blobmsg_add_double(m, "a", 1.0 / 3);
    blobmsg_add_double(m, "b", -0.0);
    blobmsg_add_double(m, "c", std::numeric_limits<double>::infinity());
    blobmsg_add_double(m, "d", 1e300);
    const std::string s = text();
    EXPECT_EQ(s.substr(0, 36), "{\"a\":0.333333,\"b\":-0.000000,\"c\":inf,");
    blobmsg_buf_init(m);
    blobmsg_add_double(m, "a", std::numeric_limits<double>::lowest());
    EXPECT_EQ(text().size(), std::string_view{"{\"a\":}"}.size() + 316);
}

} // namespace
