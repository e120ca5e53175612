#include "support/house.h"

#include "inputs/leases.h"
#include "tools/memory.h"

#include <gmock/gmock.h>
#include <memory>

namespace {

using lease = House;
using snoop = House;
using testing::ElementsAre;
using testing::Pair;

constexpr const char *mac = "aa:bb:cc:dd:ee:ff";

void leases(const std::string &text) { write_file("/tmp/dhcp.leases", text); }

// The leased address, or "none"; checks that the buffer is untouched then.
std::string address_of(const char *wanted) {
    char ip[18];
    std::memset(ip, 'z', sizeof(ip));
    const int result = sta_get_ipaddr_by_dhcp_mac(ip, wanted);
    if (result == 0) {
        EXPECT_EQ(ip[16], '\0');
        EXPECT_EQ(ip[17], 'z');
        return ip;
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(std::string_view(ip, 18), times(18, 'z'));
    return "none";
}

std::string name_of(const char *wanted) {
    const std::unique_ptr<char, void (*)(void *)> name{sta_get_name_by_dhcp_mac(wanted), sta_free};
    return name ? name.get() : "(null)";
}

TEST_F(lease, address_of_a_known_mac_is_found) {
    leases("1700000000 aa:bb:cc:dd:ee:ff 192.168.1.20 phone *\n");
    EXPECT_EQ(address_of(mac), "192.168.1.20");
    EXPECT_THAT(log_lines(), ElementsAre("sta_get_ipaddr_by_dhcp_mac: 192.168.1.20 ipaddr found!\n"));
}

TEST_F(lease, search_minds_the_case) {
    leases("1700000000 aa:bb:cc:dd:ee:ff 192.168.1.20 phone *\n");
    EXPECT_EQ(address_of("AA:BB:CC:DD:EE:FF"), "none");
    EXPECT_EQ(name_of("AA:BB:CC:DD:EE:FF"), "(null)");
    EXPECT_TRUE(log_records().empty());
}

TEST_F(lease, missing_file_is_logged_by_both_lookups) {
    EXPECT_EQ(address_of(mac), "none");
    EXPECT_EQ(name_of(mac), "(null)");
    EXPECT_THAT(log_lines(), ElementsAre("sta_get_ipaddr_by_dhcp_mac: /tmp/dhcp.leases open fail.\n",
                                         "sta_get_name_by_dhcp_mac: /tmp/dhcp.leases open fail.\n"));
}

TEST_F(lease, address_of_15_characters_is_whole_and_a_longer_word_is_cut) {
    leases("1 aa:bb:cc:dd:ee:ff 192.168.100.100 phone *\n");
    EXPECT_EQ(address_of(mac), "192.168.100.100");
    leases("1 aa:bb:cc:dd:ee:ff 192.168.100.100.200.201 phone *\n");
    EXPECT_EQ(address_of(mac), "192.168.100.100");
}

TEST_F(lease, address_lookup_refuses_null_and_empty_arguments_silently) {
    leases("1 aa:bb:cc:dd:ee:ff 192.168.1.20 phone *\n");
    EXPECT_EQ(address_of(nullptr), "none");
    EXPECT_EQ(address_of(""), "none");
    EXPECT_EQ(sta_get_ipaddr_by_dhcp_mac(nullptr, mac), -1);
    EXPECT_TRUE(log_records().empty());
}

TEST_F(lease, first_line_with_the_mac_counts) {
    leases("1 11:11:11:11:11:11 10.0.0.1 a *\n1 aa:bb:cc:dd:ee:ff 10.0.0.2 b *\n1 aa:bb:cc:dd:ee:ff 10.0.0.3 "
           "c *\n");
    EXPECT_EQ(address_of(mac), "10.0.0.2");
    EXPECT_EQ(name_of(mac), "b");
}

TEST_F(lease, mac_is_found_anywhere_in_a_line) {
    leases(
        "1 11:11:11:11:11:11 10.0.0.1 a 01:aa:bb:cc:dd:ee:ff 10.9.9.9 x\n1 aa:bb:cc:dd:ee:ff 10.0.0.2 b *\n");
    EXPECT_EQ(address_of(mac), "10.9.9.9");
}

TEST_F(lease, address_ends_at_any_white_space) {
    for (const char *end : {"\n", "\r\n", "\t x\n", ""}) {
        leases(std::string("1 aa:bb:cc:dd:ee:ff 10.0.0.2") + end);
        EXPECT_EQ(address_of(mac), "10.0.0.2");
    }
}

TEST_F(lease, line_that_ends_with_the_mac_gives_no_address_and_the_search_goes_on) {
    leases("1 aa:bb:cc:dd:ee:ff\n1 aa:bb:cc:dd:ee:ff \n1 aa:bb:cc:dd:ee:ff 10.0.0.2 b *\n");
    EXPECT_EQ(address_of(mac), "10.0.0.2");
    leases("1 aa:bb:cc:dd:ee:ff");
    EXPECT_EQ(address_of(mac), "none");
}

// Lines are read in pieces of 63 characters for the address.
TEST_F(lease, mac_at_the_very_end_of_a_piece_gives_no_address) {
    leases(times(46, 'x') + "aa:bb:cc:dd:ee:ff 10.0.0.9 b *\n1 aa:bb:cc:dd:ee:ff 10.0.0.2 b *\n");
    EXPECT_EQ(address_of(mac), "10.0.0.2");
}

TEST_F(lease, mac_that_is_split_over_two_pieces_is_not_found) {
    leases(times(55, 'x') + "aa:bb:cc:dd:ee:ff 10.0.0.9 b *\n");
    EXPECT_EQ(address_of(mac), "none");
}

TEST_F(lease, second_piece_of_a_line_is_searched_by_itself) {
    leases(times(63, 'x') + "aa:bb:cc:dd:ee:ff 10.0.0.9 b *\n");
    EXPECT_EQ(address_of(mac), "10.0.0.9");
}

TEST_F(lease, address_that_a_piece_cuts_is_taken_as_far_as_it_goes) {
    leases(times(38, 'x') + "aa:bb:cc:dd:ee:ff 10.0.0.99 b *\n"); // 63 characters end after "10.0.0."
    EXPECT_EQ(address_of(mac), "10.0.0.");
}

TEST_F(lease, host_name_follows_the_address) {
    leases("1700000000 aa:bb:cc:dd:ee:ff 192.168.1.20 phone 01:aa\n");
    char *name = sta_get_name_by_dhcp_mac(mac);
    EXPECT_STREQ(name, "phone");
    EXPECT_EQ(mem_total_cnt, 1U);
    sta_free(name);
    EXPECT_THAT(log_lines(),
                ElementsAre("sta_get_name_by_dhcp_mac: hostname found.[phone 01:aa\n]------->[phone]\n"));
}

TEST_F(lease, name_lookup_refuses_null_and_empty_at_level_3) {
    EXPECT_EQ(name_of(""), "(null)");
    EXPECT_EQ(name_of(nullptr), "(null)");
    EXPECT_THAT(log_lines(),
                ElementsAre("ERROR in sta_tools: mac is NULL!\n", "ERROR in sta_tools: mac is NULL!\n"));
}

TEST_F(lease, line_without_a_host_name_is_a_data_error_and_ends_the_search) {
    for (const char *line :
         {"1 aa:bb:cc:dd:ee:ff 192.168.1.20\n", "1 aa:bb:cc:dd:ee:ff\n", "1 aa:bb:cc:dd:ee:ff"}) {
        forget_log();
        leases(std::string(line) +
               (std::string_view(line).ends_with('\n') ? "1 aa:bb:cc:dd:ee:ff 10.0.0.2 b *\n" : ""));
        EXPECT_EQ(name_of(mac), "(null)") << line;
        EXPECT_THAT(log_lines(), ElementsAre("sta_get_name_by_dhcp_mac: data error!\n"));
    }
}

TEST_F(lease, unknown_host_name_is_a_star) {
    leases("1 aa:bb:cc:dd:ee:ff 192.168.1.20 * *\n");
    EXPECT_EQ(name_of(mac), "*");
}

TEST_F(lease, empty_host_name_is_an_empty_text) {
    leases("1 aa:bb:cc:dd:ee:ff 192.168.1.20  *\n");
    EXPECT_EQ(name_of(mac), "");
    leases("1 aa:bb:cc:dd:ee:ff 192.168.1.20 \n");
    EXPECT_EQ(name_of(mac), "");
}

TEST_F(lease, host_name_ends_at_the_line_and_is_cut_at_64_characters) {
    leases("1 aa:bb:cc:dd:ee:ff 192.168.1.20 phone\r\n");
    EXPECT_EQ(name_of(mac), "phone");
    leases("1 aa:bb:cc:dd:ee:ff 192.168.1.20 " + times(64, 'n') + " *\n");
    EXPECT_EQ(name_of(mac), times(64, 'n'));
    leases("1 aa:bb:cc:dd:ee:ff 192.168.1.20 " + times(80, 'n') + " *\n");
    EXPECT_EQ(name_of(mac), times(64, 'n'));
}

TEST_F(lease, name_lookup_reads_lines_of_1023_characters) {
    leases(times(200, 'x') + " aa:bb:cc:dd:ee:ff 192.168.1.20 phone *\n");
    EXPECT_EQ(name_of(mac), "phone");
    leases(times(1010, 'x') + "aa:bb:cc:dd:ee:ff 192.168.1.20 phone *\n");
    EXPECT_EQ(name_of(mac), "(null)");
}

TEST_F(lease, name_is_null_without_memory) {
    leases("1 aa:bb:cc:dd:ee:ff 192.168.1.20 phone *\n");
    fail_allocation(1);
    EXPECT_EQ(name_of(mac), "(null)");
}

TEST_F(lease, file_of_anything_is_survived) {
    std::string all;
    for (int i = 0; i < 5000; ++i) all += static_cast<char>(i * 7 + i / 256);
    leases(all + std::string("\0aa:bb:cc:dd:ee:ff 1", 20));
    address_of(mac);
    name_of(mac);
    write_file("/tmp/snoop_ip_bak", all);
    sta_snoop_foreach_lan([](const char *, const char *) {});
}

// A folder opens for reading and cannot be read.
TEST_F(lease, folder_in_the_file_s_place_is_survived) {
    write_file("/tmp/dhcp.leases/x", "");
    EXPECT_EQ(address_of(mac), "none");
    EXPECT_EQ(name_of(mac), "(null)");
}

TEST_F(lease, default_name_is_a_dash_in_32_bytes) {
    char *name = sta_get_default_name();
    ASSERT_TRUE(name);
    EXPECT_EQ(std::string_view(name, 32), "-" + times(31, '\0'));
    EXPECT_EQ(mem_total_cnt, 1U);
    sta_free(name);
    fail_allocation(1);
    EXPECT_EQ(sta_get_default_name(), nullptr);
}

void snooped(const std::string &text) { write_file("/tmp/snoop_ip_bak", text); }

std::string snooped_address_of(const char *wanted) {
    char ip[17];
    std::memset(ip, 'z', sizeof(ip));
    if (sta_get_ipaddr_by_snoop_mac(wanted, ip) == 0) {
        EXPECT_EQ(ip[16], 'z') << "16 bytes at most";
        EXPECT_EQ(std::string_view(ip, 16).find_first_not_of('\0', std::strlen(ip)), std::string_view::npos);
        return ip;
    }
    EXPECT_EQ(std::string_view(ip, 17), times(17, 'z'));
    return "none";
}

TEST_F(snoop, mac_is_found_in_either_case) {
    snooped("1 11:22:33:44:55:66 10.0.0.8 br-lan\n1 AA:BB:CC:DD:EE:FF 10.0.0.9 br-lan\n");
    EXPECT_EQ(snooped_address_of(mac), "10.0.0.9");
    EXPECT_TRUE(log_records().empty());
}

TEST_F(snoop, missing_table_is_logged) {
    EXPECT_EQ(snooped_address_of(mac), "none");
    EXPECT_THAT(log_lines(), ElementsAre("sta_get_ipaddr_by_snoop_mac: /tmp/snoop_ip_bak file no exist!\n"));
}

TEST_F(snoop, unknown_mac_and_refused_arguments_give_no_address) {
    snooped("1 AA:BB:CC:DD:EE:FF 10.0.0.9 br-lan\n");
    EXPECT_EQ(snooped_address_of("11:22:33:44:55:66"), "none");
    EXPECT_EQ(snooped_address_of(nullptr), "none");
    EXPECT_EQ(snooped_address_of(""), "none");
    EXPECT_EQ(sta_get_ipaddr_by_snoop_mac(mac, nullptr), -1);
}

TEST_F(snoop, mac_is_a_whole_word) {
    snooped("1 AA:BB:CC:DD:EE:FF 10.0.0.9 br-lan\n");
    EXPECT_EQ(snooped_address_of("aa:bb:cc:dd:ee:f"), "none");
    EXPECT_EQ(snooped_address_of("aa:bb"), "10.0.0.9"); // a colon ends a word
}

TEST_F(snoop, first_line_counts_and_a_missing_address_is_none) {
    snooped("1 aa:bb:cc:dd:ee:ff 10.0.0.1 br-lan\n1 aa:bb:cc:dd:ee:ff 10.0.0.2 br-lan\n");
    EXPECT_EQ(snooped_address_of(mac), "10.0.0.1");
    snooped("1 aa:bb:cc:dd:ee:ff\n1 aa:bb:cc:dd:ee:ff 10.0.0.2 br-lan\n");
    EXPECT_EQ(snooped_address_of(mac), "none");
}

TEST_F(snoop, address_is_cut_at_15_characters) {
    snooped("1 aa:bb:cc:dd:ee:ff 192.168.100.100.200 br-lan\n");
    EXPECT_EQ(snooped_address_of(mac), "192.168.100.100");
}

TEST_F(snoop, mac_that_would_be_a_command_runs_nothing) {
    snooped("1 aa:bb:cc:dd:ee:ff 192.168.100.100 br-lan\n");
    for (const char *evil :
         {";touch /tmp/x;", "$(touch /tmp/x)", "-e", "aa|touch /tmp/x", "aa\ntouch /tmp/x"})
        EXPECT_EQ(snooped_address_of(evil), "none") << evil;
    EXPECT_FALSE(file_exists("/tmp/x"));
}

std::vector<std::pair<std::string, std::string>> g_visited;
void visit(const char *one_mac, const char *ip) { g_visited.emplace_back(one_mac, ip); }

TEST_F(snoop, walk_visits_the_lines_of_the_bridge_in_order) {
    g_visited.clear();
    snooped("1 m1 10.0.0.1 br-lan\n2 m2 10.0.0.2 eth0\nshort line br-lan\n\n3 m3 10.0.0.3 br-lan more\n4 m4 "
            "10.0.0.4 br-lan2\n");
    sta_snoop_foreach_lan(visit);
    EXPECT_THAT(g_visited, ElementsAre(Pair("m1", "10.0.0.1"), Pair("m3", "10.0.0.3")));
}

TEST_F(snoop, walk_needs_a_table_and_a_visitor) {
    g_visited.clear();
    sta_snoop_foreach_lan(visit);
    snooped("1 m1 10.0.0.1 br-lan\n");
    sta_snoop_foreach_lan(nullptr);
    EXPECT_TRUE(g_visited.empty());
}

TEST_F(snoop, walk_reads_lines_in_pieces_of_254_characters) {
    g_visited.clear();
    snooped("1 " + times(252, 'm') + "2 m2 10.0.0.2 br-lan\n");
    sta_snoop_foreach_lan(visit);
    EXPECT_THAT(g_visited, ElementsAre(Pair("m2", "10.0.0.2")));
}

} // namespace
