#include "support/house.h"

#include "core/capability.h"
#include "inputs/network.h"
#include "model/table.h"
#include "tools/memory.h"

#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

// As at start: nothing has been read yet.
struct capability : House {
    capability() {
        sta_max_num = 0;
        std::snprintf(g_path, sizeof(g_path), "unset");
    }
};

constexpr const char *path = "/tmp/tk_device/tk_device.json";

int read_table(const std::string &text) {
    write_file(path, text);
    return dev_cap_table_init();
}

TEST_F(capability, limit_is_the_sum_of_the_radios) {
    EXPECT_EQ(read_table(R"({"wireless":{"radiolist":[{"sta_limit_max":64},{"sta_limit_max":128}],
                             "wireless_path":"/tmp/cfg"}})"),
              0);
    EXPECT_EQ(sta_max_num, 192);
    EXPECT_STREQ(g_path, "/tmp/cfg/wireless");
    EXPECT_THAT(log_lines(), ElementsAre("file: radio_json len = 2!\n",
                                         "file: g_path = /tmp/cfg/wireless w_path=/tmp/cfg\n"));
    EXPECT_EQ(mem_total_cnt, 0U);
}

TEST_F(capability, sum_below_1_is_512) {
    for (const char *radios : {"", R"({"sta_limit_max":0},{"sta_limit_max":0})",
                               R"({"sta_limit_max":-5},{"sta_limit_max":3})", "{}"}) {
        sta_max_num = 0;
        EXPECT_EQ(read_table(std::string(R"({"wireless":{"radiolist":[)") + radios + "]}}"), 0);
        EXPECT_EQ(sta_max_num, 512) << radios;
    }
}

TEST_F(capability, sum_of_1_is_1) {
    EXPECT_EQ(read_table(R"({"wireless":{"radiolist":[{"sta_limit_max":1}]}})"), 0);
    EXPECT_EQ(sta_max_num, 1);
}

TEST_F(capability, radio_without_a_limit_adds_nothing) {
    EXPECT_EQ(read_table(R"({"wireless":{"radiolist":[{},{"sta_limit_max":30},7,null,"x",[1]]}})"), 0);
    EXPECT_EQ(sta_max_num, 30);
    EXPECT_TRUE(filed("radio_json len = 6!\n"));
}

TEST_F(capability, sum_beyond_32_bits_stays_the_largest_number) {
    EXPECT_EQ(
        read_table(
            R"({"wireless":{"radiolist":[{"sta_limit_max":2147483647},{"sta_limit_max":2147483647}]}})"),
        0);
    EXPECT_EQ(sta_max_num, 2147483647);
}

TEST_F(capability, missing_radio_list_leaves_the_limit_at_0_and_the_path_at_its_default) {
    for (const char *text :
         {R"({"wireless":{"wireless_path":"/tmp/cfg"}})", "{}", "[]", "7", R"({"wireless":null})",
          R"({"wireless":[]})", R"({"wireless":"x"})", R"({"wireless":{"radiolist":null}})",
          R"({"wireless":{"radiolist":{}}})", R"({"wireless":{"radiolist":"x"}})"}) {
        forget_log();
        EXPECT_EQ(read_table(text), 0) << text;
        EXPECT_EQ(sta_max_num, 0) << text;
        EXPECT_STREQ(g_path, "/etc/config/wireless") << text;
        EXPECT_THAT(
            log_lines(),
            ElementsAre("dev_cap_table_init: wireless get fail!\n",
                        "level 3 NOTICE: the capability file has no radios: no station can be kept\n"))
            << text;
    }
}

// Deliberate: only an unreadable file ends the start.
TEST_F(capability, file_that_is_no_json_is_not_fatal) {
    for (const char *text : {"hello", "", "null", "{\"wireless\":", "\xff\xfe"}) {
        forget_log();
        EXPECT_EQ(read_table(text), 0) << text;
        EXPECT_EQ(sta_max_num, 0) << text;
        EXPECT_THAT(
            log_lines(),
            ElementsAre("dev_cap_table_init: (err)Fail to get device capacity table json string!\n",
                        "level 3 NOTICE: the capability file has no radios: no station can be kept\n"));
    }
}

TEST_F(capability, missing_file_is_fatal) {
    EXPECT_EQ(dev_cap_table_init(), -1);
    EXPECT_EQ(sta_max_num, 0);
    EXPECT_STREQ(g_path, "/etc/config/wireless");
    EXPECT_THAT(log_lines(),
                ElementsAre("ReadFile: (err)fopen [/tmp/tk_device/tk_device.json] fail!\n",
                            "dev_cap_table_init: (err)Open file[/tmp/tk_device/tk_device.json] fail!\n",
                            "dev_cap_table_init: dev cap table init FAIL!!!\n",
                            "level 3 NOTICE: no capability file /tmp/tk_device/tk_device.json\n"));
}

TEST_F(capability, configuration_path_is_cut_with_its_ending) {
    const std::string radio = R"({"wireless":{"radiolist":[{"sta_limit_max":1}],"wireless_path":")";
    EXPECT_EQ(read_table(radio + "/abcdefghijklmnopqrstu" + "\"}}"), 0); // 22: the whole has 31
    EXPECT_STREQ(g_path, "/abcdefghijklmnopqrstu/wireless");
    EXPECT_EQ(read_table(radio + "/abcdefghijklmnopqrstuvwx" + "\"}}"), 0); // 25
    EXPECT_STREQ(g_path, "/abcdefghijklmnopqrstuvwx/wirel");
    EXPECT_TRUE(filed("g_path = /abcdefghijklmnopqrstuvwx/wirel w_path=/abcdefghijklmnopqrstuvwx\n"));
    EXPECT_EQ(read_table(radio + times(300, 'x') + "\"}}"), 0);
    EXPECT_EQ(std::string(g_path), times(31, 'x'));
}

TEST_F(capability, missing_configuration_path_keeps_the_default) {
    EXPECT_EQ(read_table(R"({"wireless":{"radiolist":[{"sta_limit_max":1}]}})"), 0);
    EXPECT_STREQ(g_path, "/etc/config/wireless");
    EXPECT_THAT(lines_of("dev_cap_table_init"), ElementsAre("wireless_path get fail!\n"));
}

TEST_F(capability, configuration_path_of_null_cannot_be_converted) {
    EXPECT_EQ(read_table(R"({"wireless":{"radiolist":[{"sta_limit_max":1}],"wireless_path":null}})"), 0);
    EXPECT_STREQ(g_path, "/etc/config/wireless");
    EXPECT_THAT(lines_of("dev_cap_table_init"), ElementsAre("w_path convert fail!\n"));
}

// Deliberate: it is called once.
TEST_F(capability, second_reading_adds_to_the_first) {
    const char *text = R"({"wireless":{"radiolist":[{"sta_limit_max":64},{"sta_limit_max":128}]}})";
    read_table(text);
    read_table(text);
    EXPECT_EQ(sta_max_num, 384);
}

TEST_F(capability, everything_but_file_lines_and_notices_is_of_level_7) {
    dev_cap_table_init();
    read_table("hello");
    read_table("{}");
    for (const log_record &one : log_records())
        EXPECT_EQ(one.level, one.text.starts_with("NOTICE: ") ? 3 : 7) << one.text;
}

TEST_F(capability, whole_file_is_read_and_terminated) {
    write_file("/tmp/ten", "0123456789");
    long length = 0;
    char *text = ReadFile("/tmp/ten", &length);
    ASSERT_TRUE(text);
    EXPECT_EQ(length, 10);
    EXPECT_STREQ(text, "0123456789");
    EXPECT_EQ(mem_total_cnt, 0U) << "not of the counting allocator";
    std::free(text);
}

TEST_F(capability, empty_file_is_an_empty_text) {
    write_file("/tmp/none", "");
    long length = -1;
    char *text = ReadFile("/tmp/none", &length);
    ASSERT_TRUE(text);
    EXPECT_EQ(length, 0);
    EXPECT_STREQ(text, "");
    std::free(text);
}

TEST_F(capability, file_cannot_be_read_without_memory) {
    write_file("/tmp/ten", "0123456789");
    long length = 0;
    fail_allocation(1);
    EXPECT_EQ(ReadFile("/tmp/ten", &length), nullptr);
    EXPECT_TRUE(logged("ReadFile", "(err)ReadFile[ /tmp/ten ]malloc fail!\n"));
    write_file(path, "{}");
    fail_allocation(1);
    EXPECT_EQ(dev_cap_table_init(), -1);
}

// A folder opens, and reports the largest possible length.
TEST_F(capability, folder_is_no_file) {
    std::filesystem::create_directories(path);
    EXPECT_EQ(dev_cap_table_init(), -1);
    EXPECT_THAT(lines_of("ReadFile"), Not(IsEmpty()));
}

TEST_F(capability, pipe_has_no_length) {
    ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
    const int both = open("/tmp/pipe", O_RDWR); // so that opening it to read does not wait
    long length = 0;
    EXPECT_EQ(ReadFile("/tmp/pipe", &length), nullptr);
    close(both);
    EXPECT_THAT(log_lines(), ElementsAre("ReadFile: (err)fseek fail!\n"));
}

} // namespace
