// Bytes from outside, sound and unsound. They are in memory of exactly their length, so that the address
// sanitizer reports a read of even one byte too many.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "golden.h"
#include "message.h"

namespace {

class malformed : public testing::TestWithParam<golden_case> {
protected:
    malformed() : len(digits.size() / 2), bytes(new char[len]) {
        std::memcpy(bytes.get(), unhex(digits).data(), len);
        head = reinterpret_cast<blob_attr *>(bytes.get());
        // What follows the header: for the functions that take a length.
        rest = len < 4 ? nullptr : bytes.get() + 4;
        rest_len = len < 4 ? 0 : static_cast<unsigned>(len - 4);
    }

    // {"ret": ret, "tb": {slot: position, ...}} as in the golden column.
    template <std::size_t N>
    std::string found(int ret, blob_attr *(&tb)[N], std::string (*slot)(std::size_t)) const {
        std::string s = "{\"ret\":" + std::to_string(ret) + ",\"tb\":{";
        const char *comma = "";
        for (std::size_t i = 0; i < N; ++i) {
            if (!tb[i]) continue;
            s += comma + ("\"" + slot(i)) +
                 "\":" + std::to_string(reinterpret_cast<char *>(tb[i]) - bytes.get());
            comma = ",";
        }
        return s + "}}";
    }

    const golden_case &c = GetParam();
    const std::string digits = *c.text("hex");
    const std::size_t len;
    const std::unique_ptr<char[]> bytes;
    blob_attr *head;
    char *rest;
    unsigned rest_len;
};

INSTANTIATE_TEST_SUITE_P(golden, malformed, testing::ValuesIn(golden_cases("blobmsg/malformed.jsonl")),
                         golden_name<testing::TestParamInfo<golden_case>>);

const blobmsg_policy policy[] = {{"i", BLOBMSG_TYPE_INT32},  {"s", BLOBMSG_TYPE_STRING},
                                 {"t", BLOBMSG_TYPE_TABLE},  {"l", BLOBMSG_TYPE_ARRAY},
                                 {"b", BLOBMSG_TYPE_BOOL},   {"d", BLOBMSG_TYPE_DOUBLE},
                                 {"q", BLOBMSG_TYPE_INT64},  {"h", BLOBMSG_TYPE_INT16},
                                 {"u", BLOBMSG_TYPE_UNSPEC}, {"c", BLOBMSG_CAST_INT64}};
const blobmsg_policy elements[] = {{nullptr, BLOBMSG_TYPE_UNSPEC},
                                   {nullptr, BLOBMSG_TYPE_STRING},
                                   {nullptr, BLOBMSG_TYPE_INT32},
                                   {nullptr, BLOBMSG_TYPE_UNSPEC}};
const blob_attr_info info[] = {
    {BLOB_ATTR_UNSPEC, 0, 0, nullptr}, {BLOB_ATTR_INT32, 0, 0, nullptr},  {BLOB_ATTR_STRING, 0, 0, nullptr},
    {BLOB_ATTR_STRING, 6, 9, nullptr}, {BLOB_ATTR_INT8, 0, 0, nullptr},   {BLOB_ATTR_INT16, 0, 0, nullptr},
    {BLOB_ATTR_INT64, 0, 0, nullptr},  {BLOB_ATTR_NESTED, 0, 0, nullptr}, {BLOB_ATTR_DOUBLE, 0, 0, nullptr}};
constexpr int ids = 9;
constexpr int types[] = {BLOBMSG_TYPE_UNSPEC, BLOBMSG_TYPE_STRING, BLOBMSG_TYPE_INT32};

std::string by_name(std::size_t i) { return policy[i].name; }
std::string by_index(std::size_t i) { return std::to_string(i); }
std::string word(bool b) { return b ? "true" : "false"; }

TEST_P(malformed, functions_that_are_told_a_length_answer_this) {
    EXPECT_EQ("[" + word(blobmsg_check_attr_len(head, false, len)) + "," +
                  word(blobmsg_check_attr_len(head, true, len)) + "]",
              plain(c["check_attr_len"]));
    for (std::size_t i = 0; i < std::size(types); ++i) {
        EXPECT_EQ(word(blobmsg_check_attr_list_len(head, types[i], len)),
                  plain(item(c["check_attr_list_len"], i)));
        EXPECT_EQ(blobmsg_check_array_len(head, types[i], len), number(item(c["check_array_len"], i)));
    }

    blob_attr *tb[std::size(policy)] = {};
    int ret = blobmsg_parse(policy, std::size(policy), tb, rest, rest_len);
    EXPECT_EQ(found(ret, tb, by_name), plain(c["parse"]));

    blob_attr *slots[std::size(elements)] = {};
    ret = blobmsg_parse_array(elements, std::size(elements), slots, rest, rest_len);
    EXPECT_EQ(found(ret, slots, by_index), plain(c["parse_array"]));

    blob_attr *by_id[ids] = {};
    ret = blob_parse_untrusted(head, len, by_id, nullptr, ids);
    EXPECT_EQ(found(ret, by_id, by_index), plain(c["blob_parse_untrusted"]));

    std::string children = "[";
    blob_attr *pos;
    unsigned rem = rest_len;
    __blob_for_each_attr (pos, rest, rem) {
        children +=
            (children.size() > 1 ? ",[" : "[") + std::to_string(reinterpret_cast<char *>(pos) - bytes.get());
        children += "," + word(blobmsg_check_attr_len(pos, false, rem));
        children += "," + word(blobmsg_check_attr_len(pos, true, rem)) + "]";
    }
    EXPECT_EQ(children + "]", plain(c["children"]));
}

TEST_P(malformed, functions_that_trust_a_sound_head_answer_this) {
    if (!blobmsg_check_attr_len(head, false, len)) return; // the other functions may not be called on it

    EXPECT_EQ("[" + word(blobmsg_check_attr(head, false)) + "," + word(blobmsg_check_attr(head, true)) + "]",
              plain(c["check_attr"]));
    for (std::size_t i = 0; i < std::size(types); ++i) {
        EXPECT_EQ(word(blobmsg_check_attr_list(head, types[i])), plain(item(c["check_attr_list"], i)));
        EXPECT_EQ(blobmsg_check_array(head, types[i]), number(item(c["check_array"], i)));
    }

    blob_attr *tb[std::size(policy)] = {};
    int ret = blobmsg_parse_attr(policy, std::size(policy), tb, head);
    EXPECT_EQ(found(ret, tb, by_name), plain(c["parse_attr"]));

    blob_attr *by_id[ids] = {};
    ret = blob_parse(head, by_id, nullptr, ids);
    EXPECT_EQ(found(ret, by_id, by_index), plain(c["blob_parse"]));
    ret = blob_parse(head, by_id, info, ids);
    EXPECT_EQ(found(ret, by_id, by_index), plain(c["blob_parse_info"]));

    if (c.has("format")) {
        EXPECT_EQ(take_text(blobmsg_format_json(head, true)), c.text("format"));
    }
}

} // namespace
