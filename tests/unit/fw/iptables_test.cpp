#include "support/house.h"

#include "fw/iptables.h"
#include "tools/memory.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *mac = "aa:bb:cc:dd:ee:ff";
constexpr const char *list_outgoing = "iptables -t mangle -nvxL PREROUTING-outgoing -w";
constexpr const char *list_incoming = "iptables -t mangle -nvxL POSTROUTING-incoming -w";

// Listings as iptables prints them, one file per chain. A test can make a command fail with a status of its choice.
struct firewall : House {
    firewall() { iptables(""); }
    // `failing`: lines of a shell's case, such as "*'-A x'*) exit 2 ;;".
    static void iptables(const std::string &failing) {
        write_command("iptables", R"(case "$*" in
            *'-nvxL PREROUTING-outgoing'*) cat /tmp/outgoing 2>/dev/null ;;
            *'-nvxL POSTROUTING-incoming'*) cat /tmp/incoming 2>/dev/null ;;
            *'-nvxL prerouting_lan'*) cat /tmp/nat 2>/dev/null ;;
            *'-nvxL PREROUTING '*) cat /tmp/prerouting 2>/dev/null ;;
            *'-nvxL POSTROUTING '*) cat /tmp/postrouting 2>/dev/null ;;
            )" + failing + "\nesac");
    }
    ~firewall() override { EXPECT_EQ(mem_total_cnt, 0U); }
};

std::string outgoing_rule(const std::string &ip, const std::string &rule_mac = "AA:BB:CC:DD:EE:FF",
                          const std::string &bytes = "840") {
    return "      10 " + bytes + " RETURN     all  --  *      *       " + ip +
           "             0.0.0.0/0            MAC " + rule_mac + "\n";
}

std::string incoming_rule(const std::string &ip, const std::string &bytes = "1680") {
    return "      20 " + bytes + " RETURN     all  --  *      *       0.0.0.0/0            " + ip + "\n";
}

TEST_F(firewall, command_gets_its_name_in_front_and_the_wait_behind) {
    EXPECT_EQ(sta_fw_cmd("-t mangle -N %s", "X"), 0);
    EXPECT_THAT(calls(), ElementsAre("iptables -t mangle -N X -w"));
    EXPECT_THAT(log_records(), IsEmpty());
}

TEST_F(firewall, failing_command_is_logged_with_its_status) {
    iptables("*'-N X'*) exit 2 ;;");
    EXPECT_EQ(sta_fw_cmd("-t mangle -N %s", "X"), 2);
    EXPECT_THAT(log_lines(),
                ElementsAre("sta_fw_cmd: iptables command failed(2): iptables -t mangle -N X -w\n"));
    EXPECT_EQ(log_records()[0].level, 7);
}

TEST_F(firewall, without_iptables_every_command_fails_with_127) {
    forget_calls();
    EXPECT_EQ(sta_fw_init(), 127);
}

TEST_F(firewall, command_of_more_than_255_characters_is_cut_and_loses_the_wait) {
    sta_fw_cmd("-t nat -A %s", times(300, 'x').c_str());
    EXPECT_THAT(calls(), ElementsAre("iptables -t nat -A " + times(255 - 19, 'x')));
    forget_calls();
    firewall::iptables("");
    sta_fw_cmd("%s", times(245, 'x').c_str()); // 254 with the name: one byte of " -w" fits
    EXPECT_THAT(calls(), ElementsAre("iptables " + times(245, 'x')));
}

TEST_F(firewall, per_cent_signs_of_an_argument_are_text) {
    sta_fw_cmd("-N %s", "%s%d%n");
    EXPECT_THAT(calls(), ElementsAre("iptables -N %s%d%n -w"));
}

TEST_F(firewall, clean_up_is_seven_commands_in_order_and_its_result_is_the_last_one_s) {
    iptables("*'-t mangle'*) exit 1 ;;");
    EXPECT_EQ(sta_fw_clean_all(), 0);
    EXPECT_THAT(calls(), ElementsAre("iptables -t mangle -D PREROUTING -j PREROUTING-outgoing -w",
                                     "iptables -t mangle -F PREROUTING-outgoing -w",
                                     "iptables -t mangle -X PREROUTING-outgoing -w",
                                     "iptables -t mangle -D POSTROUTING -j POSTROUTING-incoming -w",
                                     "iptables -t mangle -F POSTROUTING-incoming -w",
                                     "iptables -t mangle -X POSTROUTING-incoming -w",
                                     "iptables -t nat -F prerouting_lan -w"));
    EXPECT_EQ(log_records().size(), 6U);
    iptables("*'-t nat'*) exit 3 ;;");
    EXPECT_EQ(sta_fw_clean_all(), 3);
}

TEST_F(firewall, chains_are_made_after_cleaning_up) {
    iptables("*' -[DFX] '*) exit 1 ;;");
    EXPECT_EQ(sta_fw_init(), 0);
    std::vector<std::string> made = calls();
    ASSERT_EQ(made.size(), 11U);
    EXPECT_EQ(made[6], "iptables -t nat -F prerouting_lan -w");
    made.erase(made.begin(), made.begin() + 7);
    EXPECT_THAT(made, ElementsAre("iptables -t mangle -N PREROUTING-outgoing -w",
                                  "iptables -t mangle -A PREROUTING -j PREROUTING-outgoing -w",
                                  "iptables -t mangle -N POSTROUTING-incoming -w",
                                  "iptables -t mangle -A POSTROUTING -j POSTROUTING-incoming -w"));
}

TEST_F(firewall, first_failure_ends_the_making) {
    const std::vector<std::string> patterns = {
        "*'-N PREROUTING-outgoing'*) exit 3 ;;", "*'-A PREROUTING '*) exit 3 ;;",
        "*'-N POSTROUTING-incoming'*) exit 3 ;;", "*'-A POSTROUTING '*) exit 3 ;;"};
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        forget_calls();
        iptables(patterns[i]);
        EXPECT_EQ(sta_fw_init(), 3);
        EXPECT_EQ(calls().size(), 7 + i + 1) << patterns[i];
    }
}

TEST_F(firewall, host_is_added_to_three_chains_after_looking_for_it) {
    EXPECT_EQ(sta_fw_flow_host("10.0.0.5", mac, 1), 0);
    EXPECT_THAT(
        calls(),
        ElementsAre(list_outgoing,
                    "iptables -t mangle -A PREROUTING-outgoing -s 10.0.0.5 -m mac --mac-source "
                    "aa:bb:cc:dd:ee:ff -j RETURN -w",
                    "iptables -t mangle -A POSTROUTING-incoming -d 10.0.0.5 -j RETURN -w",
                    "iptables -t nat -A prerouting_lan -s 10.0.0.5 -m mac --mac-source aa:bb:cc:dd:ee:ff "
                    "-j RETURN -w"));
}

TEST_F(firewall, host_with_one_of_the_rules_is_added) {
    write_file("/tmp/outgoing", outgoing_rule("10.0.0.5"));
    EXPECT_EQ(sta_fw_flow_host("10.0.0.5", mac, 1), 0);
    ASSERT_EQ(calls().size(), 5U);
    EXPECT_EQ(calls()[0], list_outgoing);
    EXPECT_EQ(calls()[1], list_incoming);
}

TEST_F(firewall, host_with_both_rules_is_not_added_again) {
    write_file("/tmp/outgoing", outgoing_rule("10.0.0.5"));
    write_file("/tmp/incoming", incoming_rule("10.0.0.5"));
    EXPECT_EQ(sta_fw_flow_host("10.0.0.5", mac, 1), 0);
    EXPECT_THAT(calls(), ElementsAre(list_outgoing, list_incoming)) << "the nat rule is not looked for";
    EXPECT_THAT(log_lines(),
                ElementsAre("sta_fw_flow_host_exist: host 10.0.0.5 aa:bb:cc:dd:ee:ff is already added.\n"));
}

TEST_F(firewall, first_failure_ends_the_adding_and_leaves_what_was_added) {
    iptables("*'-A POSTROUTING-incoming'*) exit 2 ;;");
    EXPECT_EQ(sta_fw_flow_host("10.0.0.5", mac, 1), 2);
    EXPECT_EQ(calls().size(), 3U) << "the listing, the added rule and the failing one";
    iptables("*'-A PREROUTING-outgoing'*) exit 4 ;;");
    EXPECT_EQ(sta_fw_flow_host("10.0.0.5", mac, 1), 4);
    iptables("*'-A prerouting_lan'*) exit 5 ;;");
    EXPECT_EQ(sta_fw_flow_host("10.0.0.5", mac, 1), 5);
}

TEST_F(firewall, host_is_deleted_from_nat_before_the_incoming_chain_without_a_look) {
    EXPECT_EQ(sta_fw_flow_host("10.0.0.5", mac, 0), 0);
    EXPECT_THAT(
        calls(),
        ElementsAre("iptables -t mangle -D PREROUTING-outgoing -s 10.0.0.5 -m mac --mac-source "
                    "aa:bb:cc:dd:ee:ff -j RETURN -w",
                    "iptables -t nat -D prerouting_lan -s 10.0.0.5 -m mac --mac-source aa:bb:cc:dd:ee:ff "
                    "-j RETURN -w",
                    "iptables -t mangle -D POSTROUTING-incoming -d 10.0.0.5 -j RETURN -w"));
}

TEST_F(firewall, first_failure_ends_the_deleting) {
    iptables("*'-D PREROUTING-outgoing'*) exit 1 ;;");
    EXPECT_EQ(sta_fw_flow_host("10.0.0.5", mac, 0), 1);
    EXPECT_EQ(calls().size(), 1U);
    iptables("*'-D prerouting_lan'*) exit 6 ;;");
    EXPECT_EQ(sta_fw_flow_host("10.0.0.5", mac, 0), 6);
    EXPECT_EQ(calls().size(), 3U);
}

TEST_F(firewall, refused_addresses_and_macs_run_nothing) {
    for (const char *ip : {"0.0.0.0", "", "1.2.3", "a.b.c.d", "10.0.0.5;reboot", "10.0.0.5 "})
        for (const std::uint8_t add : {std::uint8_t{0}, std::uint8_t{1}})
            EXPECT_EQ(sta_fw_flow_host(ip, mac, add), -1) << ip;
    for (const char *bad : {"", "$(reboot)", "aa:bb;reboot", "-j"})
        for (const std::uint8_t add : {std::uint8_t{0}, std::uint8_t{1}})
            EXPECT_EQ(sta_fw_flow_host("10.0.0.5", bad, add), -1) << bad;
    EXPECT_EQ(sta_fw_flow_host(nullptr, mac, 1), -1);
    EXPECT_EQ(sta_fw_flow_host("10.0.0.5", nullptr, 1), -1);
    EXPECT_EQ(sta_fw_flow_host_exist(nullptr, mac), 0);
    EXPECT_EQ(sta_fw_flow_host_exist("10.0.0.5", "a b"), 0);
    EXPECT_THAT(calls(), IsEmpty());
}

// Deliberate: values are not checked.
TEST_F(firewall, address_that_only_looks_like_one_is_handed_to_iptables) {
    EXPECT_EQ(sta_fw_flow_host("999.1.1.1", mac, 0), 0);
    EXPECT_EQ(calls().size(), 3U);
}

TEST_F(firewall, existence_is_both_mangle_rules_of_exactly_this_host) {
    write_file("/tmp/outgoing", outgoing_rule("10.0.0.10"));
    write_file("/tmp/incoming", incoming_rule("10.0.0.10"));
    EXPECT_EQ(sta_fw_flow_host_exist("10.0.0.1", mac), 0);
    EXPECT_EQ(sta_fw_flow_host_exist("10.0.0.10", mac), 1) << "iptables prints MACs in upper case";
    EXPECT_EQ(sta_fw_flow_host_exist("10.0.0.10", "aa:bb:cc:dd:ee:00"), 0);
    write_file("/tmp/incoming", incoming_rule("10.0.0.11"));
    EXPECT_EQ(sta_fw_flow_host_exist("10.0.0.10", mac), 0);
}

TEST_F(firewall, host_bytes_are_the_second_column_of_its_rule) {
    write_file("/tmp/outgoing",
               outgoing_rule("10.0.0.50", "AA:BB:CC:DD:EE:00", "1") + outgoing_rule("10.0.0.5", mac, "1234"));
    write_file("/tmp/incoming", incoming_rule("10.0.0.5", "5000000000"));
    write_file("/tmp/nat", outgoing_rule("10.0.0.5", mac, "9223372036854775807"));
    EXPECT_EQ(sta_fw_host_up_bytes("10.0.0.5"), 1234U);
    EXPECT_EQ(sta_fw_host_down_bytes("10.0.0.5"), 5000000000U);
    EXPECT_EQ(sta_fw_host_nat_bytes("10.0.0.5"), 9223372036854775807U);
    EXPECT_THAT(calls(),
                ElementsAre(list_outgoing, list_incoming, "iptables -t nat -nvxL prerouting_lan -w"));
}

TEST_F(firewall, first_of_several_rules_counts_and_none_is_0) {
    write_file("/tmp/outgoing",
               outgoing_rule("10.0.0.5", mac, "111") + outgoing_rule("10.0.0.5", mac, "222"));
    EXPECT_EQ(sta_fw_host_up_bytes("10.0.0.5"), 111U);
    EXPECT_EQ(sta_fw_host_up_bytes("10.0.0.6"), 0U);
    EXPECT_EQ(sta_fw_host_down_bytes("10.0.0.5"), 0U);
}

TEST_F(firewall, refused_addresses_count_0_without_a_command) {
    for (const char *ip : {"0.0.0.0", "", "1.2.3", "x"})
        EXPECT_EQ(sta_fw_host_up_bytes(ip) + sta_fw_host_down_bytes(ip) + sta_fw_host_nat_bytes(ip), 0U)
            << ip;
    EXPECT_EQ(sta_fw_host_up_bytes(nullptr), 0U);
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(firewall, totals_are_the_hook_rules_bytes_in_kib) {
    write_file("/tmp/prerouting",
               "Chain PREROUTING (policy ACCEPT 7 packets, 9999 bytes)\n"
               "      10 5000000000 PREROUTING-outgoing  all  --  *      *       0.0.0.0/0  0.0.0.0/0\n");
    write_file("/tmp/postrouting",
               "      10 2047 POSTROUTING-incoming  all  --  *      *       0.0.0.0/0  0.0.0.0/0\n");
    EXPECT_EQ(sta_fw_total_up_kbytes(), 4882812U);
    EXPECT_EQ(sta_fw_total_down_kbytes(), 1U);
    EXPECT_THAT(calls(), ElementsAre("iptables -t mangle -nvxL PREROUTING -w",
                                     "iptables -t mangle -nvxL POSTROUTING -w"));
    write_file("/tmp/prerouting", "");
    EXPECT_EQ(sta_fw_total_up_kbytes(), 0U);
}

} // namespace
