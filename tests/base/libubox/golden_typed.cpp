// Calls that write, and what they leave in the buffer.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <functional>
#include <map>

#include "golden.h"
#include "message.h"

namespace {

class typed : public testing::TestWithParam<golden_case> {};
INSTANTIATE_TEST_SUITE_P(golden, typed, testing::ValuesIn(golden_cases("blobmsg/typed.jsonl")),
                         golden_name<testing::TestParamInfo<golden_case>>);

// Carries out the calls of one case.
class writer {
public:
    explicit writer(blob_buf *buf) : buf_(buf) {}

    void call(json_object *op) {
        op_ = op;
        const auto found = calls.find(text_of(item(op, 0)));
        ASSERT_NE(found, calls.end()) << plain(op);
        (this->*found->second)();
    }

    std::vector<int> returns;

private:
    const char *name() const { return json_object_get_string(item(op_, 1)); } // null stays null
    int num(std::size_t i) const { return number(item(op_, i)); }
    unsigned unum(std::size_t i) const { return static_cast<unsigned>(json_object_get_int64(item(op_, i))); }
    std::string text(std::size_t i) const { return text_of(item(op_, i)); }
    std::uint64_t decimal(std::size_t i) const { return std::stoull(text(i)); }
    void ret(int value) { returns.push_back(value); }

    void init() { ret(blob_buf_init(buf_, num(1))); }
    void blobmsg_init() { ret(blobmsg_buf_init(buf_)); }
    void u8() { ret(blobmsg_add_u8(buf_, name(), static_cast<std::uint8_t>(unum(2)))); }
    void u16() { ret(blobmsg_add_u16(buf_, name(), static_cast<std::uint16_t>(unum(2)))); }
    void u32() { ret(blobmsg_add_u32(buf_, name(), unum(2))); }
    void u64() { ret(blobmsg_add_u64(buf_, name(), decimal(2))); }
    void number_double() {
        ret(blobmsg_add_double(buf_, name(), std::bit_cast<double>(std::stoull(text(2), nullptr, 16))));
    }
    void string() { ret(blobmsg_add_string(buf_, name(), text(2).c_str())); }
    void field() {
        const std::string value = unhex(text(3));
        ret(blobmsg_add_field(buf_, num(1), json_object_get_string(item(op_, 2)), value.data(),
                              static_cast<unsigned>(value.size())));
    }
    void open_table() { cookies_.push_back(blobmsg_open_table(buf_, name())); }
    void open_array() { cookies_.push_back(blobmsg_open_array(buf_, name())); }
    void nest() { cookies_.push_back(blob_nest_start(buf_, num(1))); }
    void close() {
        blob_nest_end(buf_, cookies_.back());
        cookies_.pop_back();
    }
    void string_buffer() {
        auto *at = static_cast<char *>(blobmsg_alloc_string_buffer(buf_, name(), unum(2)));
        ASSERT_NE(at, nullptr);
        std::strcpy(at, text(3).c_str());
        blobmsg_add_string_buffer(buf_);
    }
    void string_buffer_realloc() {
        auto *at = static_cast<char *>(blobmsg_alloc_string_buffer(buf_, name(), unum(2)));
        ASSERT_NE(at, nullptr);
        std::strcpy(at, text(3).c_str());
        at = static_cast<char *>(blobmsg_realloc_string_buffer(buf_, unum(4)));
        ASSERT_NE(at, nullptr);
        std::strcat(at, text(5).c_str());
        blobmsg_add_string_buffer(buf_);
    }
    void printf_s() { ret(blobmsg_printf(buf_, name(), "%s", text(2).c_str())); }
    void printf_d02x() { ret(blobmsg_printf(buf_, name(), "%d:%02x", num(2), unum(3))); }
    void add_blob() {
        std::string attr = unhex(text(1));
        ret(blobmsg_add_blob(buf_, reinterpret_cast<blob_attr *>(attr.data())));
    }

    void put() {
        const std::string value = unhex(text(2));
        EXPECT_NE(blob_put(buf_, num(1), value.data(), static_cast<unsigned>(value.size())), nullptr);
    }
    void put_string() { EXPECT_NE(blob_put_string(buf_, num(1), text(2).c_str()), nullptr); }
    void put_u8() { EXPECT_NE(blob_put_u8(buf_, num(1), static_cast<std::uint8_t>(unum(2))), nullptr); }
    void put_u16() { EXPECT_NE(blob_put_u16(buf_, num(1), static_cast<std::uint16_t>(unum(2))), nullptr); }
    void put_u32() { EXPECT_NE(blob_put_u32(buf_, num(1), unum(2)), nullptr); }
    void put_u64() { EXPECT_NE(blob_put_u64(buf_, num(1), decimal(2)), nullptr); }
    void put_raw() {
        const std::string attr = unhex(text(1));
        ret(blob_put_raw(buf_, attr.data(), static_cast<unsigned>(attr.size())) ? 0 : -1);
    }

    static const std::map<std::string, void (writer::*)()> calls;

    blob_buf *buf_;
    json_object *op_ = nullptr;
    std::vector<void *> cookies_;
};

// clang-format off
const std::map<std::string, void (writer::*)()> writer::calls = {
    {"init", &writer::init}, {"blobmsg_buf_init", &writer::blobmsg_init},
    {"u8", &writer::u8}, {"u16", &writer::u16}, {"u32", &writer::u32}, {"u64", &writer::u64},
    {"double", &writer::number_double}, {"string", &writer::string}, {"field", &writer::field},
    {"open_table", &writer::open_table}, {"open_array", &writer::open_array}, {"close", &writer::close},
    {"string_buffer", &writer::string_buffer}, {"string_buffer_realloc", &writer::string_buffer_realloc},
    {"printf_s", &writer::printf_s}, {"printf_d02x", &writer::printf_d02x}, {"add_blob", &writer::add_blob},
    {"put", &writer::put}, {"put_string", &writer::put_string}, {"put_u8", &writer::put_u8},
    {"put_u16", &writer::put_u16}, {"put_u32", &writer::put_u32}, {"put_u64", &writer::put_u64},
    {"put_raw", &writer::put_raw}, {"nest", &writer::nest}, {"nest_end", &writer::close},
};
// clang-format on

TEST_P(typed, calls_leave_these_bytes_and_this_capacity) {
    const golden_case &c = GetParam();
    message m;
    writer w{m};
    for (std::size_t i = 0; i < items(c["ops"]); ++i) ASSERT_NO_FATAL_FAILURE(w.call(item(c["ops"], i)));

    std::vector<int> returns;
    for (std::size_t i = 0; i < items(c["returns"]); ++i) returns.push_back(number(item(c["returns"], i)));
    EXPECT_EQ(w.returns, returns);
    EXPECT_EQ(hex(m.buf.head, blob_raw_len(m.buf.head)), c.text("hex"));
    EXPECT_EQ(m.buf.buflen, number(c["buflen"]));
    if (c.has("format")) {
        EXPECT_EQ(take_text(blobmsg_format_json(m.buf.head, true)), c.text("format"));
        EXPECT_EQ(take_text(blobmsg_format_json_indent(m.buf.head, true, 0)), c.text("format_indent"));
        EXPECT_EQ(take_text(blobmsg_format_json_value(m.buf.head)), c.text("format_value"));
    }
}

} // namespace
