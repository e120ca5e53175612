// JSON text to message and back.
#include <gtest/gtest.h>

#include "golden.h"
#include "message.h"

namespace {

class encode : public testing::TestWithParam<golden_case> {};
INSTANTIATE_TEST_SUITE_P(golden, encode, testing::ValuesIn(golden_cases("blobmsg/encode.jsonl")),
                         golden_name<testing::TestParamInfo<golden_case>>);

TEST_P(encode, text_gives_these_bytes_and_they_give_this_text) {
    const golden_case &c = GetParam();
#ifdef __mips__
    if (c.name == "nan_infinity") GTEST_SKIP() << "this processor's NaN has other bits";
#endif
    message m;
    ASSERT_EQ(blob_buf_init(m, 0), 0);
    EXPECT_EQ(blobmsg_add_json_from_string(m, c.text("json")->c_str()),
              json_object_get_boolean(c["ok"]) != 0);
    EXPECT_EQ(hex(m.buf.head, blob_raw_len(m.buf.head)), c.text("hex"));
    EXPECT_EQ(take_text(blobmsg_format_json(m.buf.head, true)), c.text("format"));
    EXPECT_EQ(take_text(blobmsg_format_json_indent(m.buf.head, true, 0)), c.text("format_indent"));
}

} // namespace
