#include "support/house.h"

#include "inputs/uci_shell.h"
#include "tools/memory.h"

#include <gmock/gmock.h>

namespace {

using uci_shell = House;
using testing::ElementsAre;

TEST_F(uci_shell, number_that_the_command_prints) {
    EXPECT_EQ(sta_get_uci_int("echo 12", 5), 12);
    EXPECT_EQ(sta_get_uci_int("echo ' -4 '", 5), -4);
    EXPECT_EQ(sta_get_uci_int("echo 7x", 5), 7);
    EXPECT_EQ(mem_total_cnt, 0U);
}

TEST_F(uci_shell, no_output_gives_the_fallback_and_no_number_gives_0) {
    EXPECT_EQ(sta_get_uci_int("true", 5), 5);
    EXPECT_EQ(sta_get_uci_int("echo", 5), 5);
    EXPECT_EQ(sta_get_uci_int("echo zz", 5), 0);
    EXPECT_EQ(sta_get_uci_int("echo '  '", 5), 0);
    EXPECT_EQ(mem_total_cnt, 0U);
}

// Deliberate: the command is a format, the fallback its argument.
TEST_F(uci_shell, fallback_is_the_argument_of_the_command) {
    EXPECT_EQ(sta_get_uci_int("echo %d1", 7), 71);
    EXPECT_EQ(sta_get_uci_int("echo 1%%2", 7), 1);
}

TEST_F(uci_shell, text_is_trimmed_and_cut_to_the_buffer) {
    char text[8] = "before";
    sta_get_uci_str("echo ' abc '", text, 8);
    EXPECT_STREQ(text, "abc");
    sta_get_uci_str("echo ' abc '", text, 3);
    EXPECT_STREQ(text, "ab");
    EXPECT_EQ(mem_total_cnt, 0U);
}

TEST_F(uci_shell, text_stays_without_output_and_is_emptied_by_a_blank_line) {
    char text[8] = "before";
    sta_get_uci_str("true", text, 8);
    EXPECT_STREQ(text, "before");
    sta_get_uci_str("echo '  '", text, 8);
    EXPECT_STREQ(text, "");
}

TEST_F(uci_shell, buffer_is_the_argument_of_the_command) {
    char text[16] = "old";
    sta_get_uci_str("echo %s-new", text, 16);
    EXPECT_STREQ(text, "old-new");
}

TEST_F(uci_shell, only_cpe_is_the_client_role) {
    write_command("uci", "cat /tmp/answer");
    for (const char *client : {"cpe\n", " cpe \n", "cpe"}) {
        write_file("/tmp/answer", client);
        EXPECT_EQ(sta_get_mod_type(), 0) << client;
    }
    for (const char *other : {"ap\n", "", "CPE\n", "cpe2\n", "x\ncpe\n"}) {
        write_file("/tmp/answer", other);
        EXPECT_EQ(sta_get_mod_type(), 1) << other;
    }
    EXPECT_EQ(calls()[0], "uci -q get system.@system[0].mod_type");
    EXPECT_EQ(mem_total_cnt, 0U);
}

TEST_F(uci_shell, only_router_is_the_forwarding_mode_0) {
    write_command("uci", "cat /tmp/answer");
    write_file("/tmp/answer", " ROUTER\n");
    EXPECT_EQ(sta_get_dev_mode(), 0);
    for (const char *other : {"router\n", "AP\n", "ROUTER2\n", ""}) {
        write_file("/tmp/answer", other);
        EXPECT_EQ(sta_get_dev_mode(), 1) << other;
    }
    EXPECT_EQ(calls()[0], "uci -q get sysinfo.@sysinfo[0].forwardMode");
}

TEST_F(uci_shell, role_and_mode_are_read_from_the_configuration_files) {
    write_file("/etc/config/system", "config system\n\toption mod_type 'cpe'\n");
    write_file("/etc/config/sysinfo", "config sysinfo\n\toption forwardMode 'ROUTER'\n");
    EXPECT_EQ(sta_get_mod_type(), 0);
    EXPECT_EQ(sta_get_dev_mode(), 0);
}

TEST_F(uci_shell, first_interface_with_the_network_name_decides) {
    write_command("uci", R"(case "$3" in
        *[[]0].ssid) echo other ;;
        *[[]2].ssid | *[[]3].ssid) echo ' net ' ;;
        *[[]2].transmode) echo 'bridge ' ;;
        esac)");
    EXPECT_EQ(sta_ssid_is_bridge("net"), 1);
    EXPECT_THAT(calls(), ElementsAre("uci -q get wireless.@wifi-iface[0].ssid",
                                     "uci -q get wireless.@wifi-iface[1].ssid",
                                     "uci -q get wireless.@wifi-iface[2].ssid",
                                     "uci -q get wireless.@wifi-iface[2].transmode"));
    EXPECT_EQ(mem_total_cnt, 0U);
}

TEST_F(uci_shell, first_match_that_is_no_bridge_ends_the_search) {
    write_command("uci", R"(case "$3" in
        *.ssid) echo net ;;
        *[[]0].transmode) echo nat ;;
        *) echo bridge ;;
        esac)");
    EXPECT_EQ(sta_ssid_is_bridge("net"), 0);
    EXPECT_EQ(calls().size(), 2U);
}

TEST_F(uci_shell, without_a_match_64_interfaces_are_looked_at) {
    write_command("uci", "echo other");
    EXPECT_EQ(sta_ssid_is_bridge("net"), 0);
    EXPECT_EQ(calls().size(), 64U);
    EXPECT_EQ(calls().back(), "uci -q get wireless.@wifi-iface[63].ssid");
    EXPECT_EQ(sta_ssid_is_bridge(nullptr), 0);
    EXPECT_EQ(mem_total_cnt, 0U);
}

} // namespace
