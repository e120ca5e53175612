// What the configuration says of a station's network.
#include <gmock/gmock.h>

#include "support/house.h"

#include "inputs/network.h"
#include "tools/text.h"

namespace {

using testing::IsEmpty;
using lines = std::vector<std::string>;

class configuration : public House {
protected:
    void chip(const std::string &family) {
        write_file("/etc/config/wifiinfo", "config wifiinfo 'global'\n\toption sdk '" + family + "'\n");
    }
    void wireless(std::string_view text) { write_file("/etc/config/wireless", text); }
    void forward_mode(const std::string &mode) {
        write_file("/etc/config/sysinfo", "config sysinfo\n\toption forwardMode '" + mode + "'\n");
    }
    // A station on `ifname` of network `ssid`.
    sta_info_t *on(const char *ifname, const char *ssid) {
        sta_put_text(sta.ifname, ifname);
        sta_put_text(sta.ssid, ssid);
        return &sta;
    }

    sta_info_t sta{};
    char value[64] = "";
};

constexpr const char *two_radios = "config wifi-device 'wifi0'\n"
                                   "\toption ifname 'ra0'\n" // no interface: skipped
                                   "\toption vlanid '99'\n"
                                   "config wifi-iface\n"
                                   "\toption device 'wifi0'\n"
                                   "\toption ifname 'ra0'\n"
                                   "\toption ssid 'lobby'\n"
                                   "\toption vlanid '30'\n"
                                   "\toption network 'guest'\n"
                                   "config wifi-iface\n"
                                   "\toption device 'wifi1'\n"
                                   "\toption ifname 'ra1'\n"
                                   "\toption ssid 'lobby'\n"
                                   "\toption vlanid '7'\n"
                                   "\toption network 'lan'\n"
                                   "config wifi-iface\n"
                                   "\toption device 'wifi1'\n"
                                   "\toption ifname 'ra2'\n"
                                   "\toption ssid 'bare'\n";

using vlan = configuration;

TEST_F(vlan, of_an_mtk_device_is_found_by_interface) {
    chip("mtk");
    wireless(two_radios);
    EXPECT_EQ(sta_sta_get_vlanid(on("ra0", "whatever")), 30);
    EXPECT_EQ(log_lines(),
              (lines{"sta_uci_get_wireless_element: sta_uci_get_wireless_element:/etc/config/wireless\n",
                     "sta_uci_get_wireless_element: value=ra0 name=ra0\n",
                     "sta_sta_get_vlanid: uci get vlanid=30\n"}));
    EXPECT_EQ(sta_sta_get_vlanid(on("ra1", "whatever")), 7);
}

TEST_F(vlan, of_a_qca_device_is_found_by_network_and_radio) {
    chip("qca");
    wireless(two_radios);
    EXPECT_EQ(sta_sta_get_vlanid(on("ath0", "lobby")), 30);
    EXPECT_EQ(sta_sta_get_vlanid(on("ath01", "lobby")), 30);
    EXPECT_EQ(sta_sta_get_vlanid(on("ath0x", "lobby")), 30);
    EXPECT_EQ(sta_sta_get_vlanid(on("ath1", "lobby")), 7);
    EXPECT_EQ(sta_sta_get_vlanid(on("ath10", "lobby")), 7);
    EXPECT_EQ(sta_sta_get_vlanid(on("wlan0", "lobby")), 7);
}

TEST_F(vlan, of_an_unknown_chip_is_refused) {
    wireless(two_radios);
    EXPECT_EQ(sta_sta_get_vlanid(on("ra0", "lobby")), -1);
    EXPECT_TRUE(logged("sta_uci_get_param", "uci no found!\n"));
    EXPECT_TRUE(logged("sta_sta_get_vlanid", "uci unrecognize.\n"));
    for (const char *family : {"bcm", "MTK", "", "mtk ", "qcaa"}) {
        chip(family);
        forget_log();
        EXPECT_EQ(sta_sta_get_vlanid(on("ra0", "lobby")), -1) << family;
        EXPECT_TRUE(logged("sta_sta_get_vlanid", "uci unrecognize.\n")) << family;
    }
}

TEST_F(vlan, of_a_section_without_one_is_a_failure_and_without_a_section_is_0) {
    chip("mtk");
    wireless(two_radios);
    EXPECT_EQ(sta_sta_get_vlanid(on("ra2", "bare")), -1);
    EXPECT_EQ(sta_sta_get_vlanid(on("ra9", "bare")), 0);
    EXPECT_TRUE(logged("sta_sta_get_vlanid", "uci get vlanid=0\n"));
}

TEST_F(vlan, is_the_number_that_the_text_begins_with) {
    chip("mtk");
    for (const auto &[text, number] :
         std::vector<std::pair<std::string, int>>{{"abc", 0}, {"12x", 12}, {"-4", -4}, {" 5", 5}, {"", 0}}) {
        wireless("config wifi-iface\n\toption ifname 'ra0'\n\toption vlanid '" + text + "'\n");
        // An empty value is no option at all.
        EXPECT_EQ(sta_sta_get_vlanid(on("ra0", "n")), text.empty() ? -1 : number) << text;
    }
}

TEST_F(vlan, of_a_station_without_place_is_refused_before_anything_is_read) {
    chip("mtk");
    wireless(two_radios);
    EXPECT_EQ(sta_sta_get_vlanid(nullptr), -1);
    EXPECT_EQ(sta_sta_get_vlanid(on("", "lobby")), -1);
    EXPECT_EQ(sta_sta_get_vlanid(on("ra0", "")), -1);
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(vlan, of_the_first_of_two_matching_sections_counts) {
    chip("qca");
    wireless("config wifi-iface\n\toption device 'wifi0'\n\toption ssid 'twin'\n\toption vlanid '1'\n"
             "config wifi-iface\n\toption device 'wifi0'\n\toption ssid 'twin'\n\toption vlanid '2'\n");
    EXPECT_EQ(sta_sta_get_vlanid(on("ath0", "twin")), 1);
}

TEST_F(vlan, of_a_list_option_is_a_failure) {
    chip("mtk");
    wireless("config wifi-iface\n\toption ifname 'ra0'\n\tlist vlanid '3'\n\tlist vlanid '4'\n");
    EXPECT_EQ(sta_sta_get_vlanid(on("ra0", "n")), -1);
    wireless("config wifi-iface\n\tlist ifname 'ra0'\n\toption vlanid '3'\n");
    EXPECT_EQ(sta_sta_get_vlanid(on("ra0", "n")), 0); // no section has this interface
}

TEST_F(vlan, is_read_from_the_file_of_the_capability_table) {
    chip("mtk");
    wireless(two_radios);
    write_file("/tmp/cfg/wireless", "config wifi-iface\n\toption ifname 'ra0'\n\toption vlanid '41'\n");
    std::snprintf(g_path, sizeof(g_path), "/tmp/cfg/wireless");
    EXPECT_EQ(sta_sta_get_vlanid(on("ra0", "n")), 41);
    EXPECT_TRUE(logged("sta_uci_get_wireless_element", "sta_uci_get_wireless_element:/tmp/cfg/wireless\n"));
}

TEST_F(vlan, without_a_wireless_file_or_with_a_broken_one_is_a_failure) {
    chip("mtk");
    EXPECT_EQ(sta_sta_get_vlanid(on("ra0", "n")), -1);
    EXPECT_TRUE(logged("sta_uci_get_wireless_element", "Not wireless file\n"));
    wireless("config wifi-iface\n\toption ifname 'ra0\n");
    EXPECT_EQ(sta_sta_get_vlanid(on("ra0", "n")), -1);
    EXPECT_TRUE(logged("sta_uci_get_wireless_element", "wireless config no found!\n"));
}

TEST_F(vlan, changed_in_the_file_counts_at_the_next_look) {
    chip("mtk");
    wireless("config wifi-iface\n\toption ifname 'ra0'\n\toption vlanid '5'\n");
    EXPECT_EQ(sta_sta_get_vlanid(on("ra0", "n")), 5);
    wireless("config wifi-iface\n\toption ifname 'ra0'\n\toption vlanid '6'\n");
    EXPECT_EQ(sta_sta_get_vlanid(on("ra0", "n")), 6);
}

using bridge_mode = configuration;

TEST_F(bridge_mode, is_1_on_an_ap_device_outside_the_lan_only) {
    chip("mtk");
    wireless(two_radios);
    forward_mode("AP");
    EXPECT_EQ(sta_sta_get_brmode(on("ra0", "lobby")), 1);
    EXPECT_EQ(log_lines(),
              (lines{"sta_sta_get_brmode: sysinfo: AP\n",
                     "sta_uci_get_wireless_element: sta_uci_get_wireless_element:/etc/config/wireless\n",
                     "sta_uci_get_wireless_element: value=ra0 name=ra0\n",
                     "sta_sta_get_brmode: uci get brmode=guest\n"}));
    EXPECT_EQ(sta_sta_get_brmode(on("ra1", "lobby")), -1); // lan
    EXPECT_EQ(sta_sta_get_brmode(on("ra2", "bare")), -1);  // a section without "network"
    EXPECT_EQ(sta_sta_get_brmode(on("ra9", "none")), 1);   // no section: the empty text is not "lan"
}

TEST_F(bridge_mode, of_a_qca_device_looks_at_network_and_radio) {
    chip("qca");
    wireless(two_radios);
    forward_mode("AP");
    EXPECT_EQ(sta_sta_get_brmode(on("ath0", "lobby")), 1);
    EXPECT_EQ(sta_sta_get_brmode(on("ath1", "lobby")), -1);
}

TEST_F(bridge_mode, of_several_networks_is_compared_as_one_text) {
    chip("mtk");
    forward_mode("AP");
    wireless("config wifi-iface\n\toption ifname 'ra0'\n\toption network 'lan guest'\n");
    EXPECT_EQ(sta_sta_get_brmode(on("ra0", "n")), 1);
}

TEST_F(bridge_mode, in_any_other_forwarding_mode_is_not_looked_up) {
    chip("mtk");
    wireless(two_radios);
    for (const char *mode : {"ROUTER", "ap", "AP "}) {
        forward_mode(mode);
        forget_log();
        EXPECT_EQ(sta_sta_get_brmode(on("ra0", "lobby")), -1) << mode;
        EXPECT_EQ(log_lines(), lines{"sta_sta_get_brmode: sysinfo: " + std::string(mode) + "\n"});
    }
}

TEST_F(bridge_mode, of_an_unknown_chip_is_refused) {
    chip("bcm");
    wireless(two_radios);
    forward_mode("AP");
    EXPECT_EQ(sta_sta_get_brmode(on("ra0", "lobby")), -1);
    EXPECT_TRUE(logged("sta_sta_get_brmode", "uci unrecognize.\n"));
}

TEST_F(bridge_mode, of_a_station_without_place_is_refused_before_anything_is_read) {
    forward_mode("AP");
    EXPECT_EQ(sta_sta_get_brmode(nullptr), -1);
    EXPECT_EQ(sta_sta_get_brmode(on("", "lobby")), -1);
    EXPECT_EQ(sta_sta_get_brmode(on("ra0", "")), -1);
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(bridge_mode, without_a_forwarding_mode_is_refused) {
    EXPECT_EQ(sta_sta_get_brmode(on("ra0", "lobby")), -1);
    EXPECT_TRUE(logged("sta_uci_get_sysinfo_element", "Not sysinfo file\n"));
    write_file("/etc/config/sysinfo", "config sysinfo\n\toption forwardMode 'AP\n");
    EXPECT_EQ(sta_sta_get_brmode(on("ra0", "lobby")), -1);
    EXPECT_TRUE(logged("sta_uci_get_sysinfo_element", "wireless config no found!\n"));
    write_file("/etc/config/sysinfo", "config sysinfo\n\toption other 'AP'\n");
    EXPECT_EQ(sta_sta_get_brmode(on("ra0", "lobby")), -1);
}

TEST_F(configuration, forwarding_mode_is_that_of_the_first_section_of_the_type) {
    write_file("/etc/config/sysinfo", "config other\n\toption forwardMode 'X'\n"
                                      "config sysinfo\n\toption forwardMode 'AP'\n"
                                      "config sysinfo\n\toption forwardMode 'ROUTER'\n");
    EXPECT_EQ(sta_uci_get_sysinfo_element(value, 63), 0);
    EXPECT_STREQ(value, "AP");
}

TEST_F(configuration, forwarding_mode_without_a_section_is_a_success_that_changes_nothing) {
    write_file("/etc/config/sysinfo", "config other\n\toption forwardMode 'X'\n");
    sta_put_text(value, "as before");
    EXPECT_EQ(sta_uci_get_sysinfo_element(value, 63), 0);
    EXPECT_STREQ(value, "as before");
    EXPECT_EQ(sta_uci_get_sysinfo_element(nullptr, 63), -1);
    EXPECT_TRUE(logged("sta_uci_get_sysinfo_element", "param is NULL!\n"));
}

TEST_F(configuration, parameter_fills_the_size_with_text_or_with_zeros_behind_it) {
    chip("0123456789");
    std::memset(value, '.', sizeof(value));
    sta_uci_get_param("wifiinfo.global.sdk", value, 4);
    EXPECT_EQ(std::string(value, 6), "0123..");
    std::memset(value, '.', sizeof(value));
    sta_uci_get_param("wifiinfo.global.sdk", value, 63);
    EXPECT_EQ(std::string(value, 64), "0123456789" + std::string(53, '\0') + ".");
}

TEST_F(configuration, parameter_may_be_named_by_the_extended_path) {
    write_file("/etc/config/system", "config system\n\toption mod_type 'ap'\n");
    sta_uci_get_param("system.@system[0].mod_type", value, 63);
    EXPECT_STREQ(value, "ap");
}

TEST_F(configuration, parameter_that_is_missing_leaves_the_destination_untouched) {
    write_file("/etc/config/wifiinfo", "config wifiinfo 'global'\n\tlist sdk 'mtk'\n");
    sta_put_text(value, "as before");
    sta_uci_get_param("wifiinfo.global.none", value, 63);
    EXPECT_TRUE(logged("sta_uci_get_param", "param wifiinfo.global.none not found\n"));
    sta_uci_get_param("wifiinfo.global.sdk", value, 63); // a list has no single value
    EXPECT_TRUE(logged("sta_uci_get_param", "param wifiinfo.global.sdk not found\n"));
    sta_uci_get_param("wifiinfo.global", value, 63); // a section
    EXPECT_TRUE(logged("sta_uci_get_param", "param wifiinfo.global not found\n"));
    sta_uci_get_param("nowhere.global.sdk", value, 63);
    EXPECT_TRUE(logged("sta_uci_get_param", "uci no found!\n"));
    EXPECT_STREQ(value, "as before");
}

TEST_F(configuration, parameter_of_no_path_or_destination_is_refused) {
    sta_uci_get_param(nullptr, value, 63);
    sta_uci_get_param("wifiinfo.global.sdk", nullptr, 63);
    EXPECT_EQ(log_lines(), (lines{"sta_uci_get_param: pointer is not valid\n",
                                  "sta_uci_get_param: pointer is not valid\n"}));
}

TEST_F(configuration, element_without_its_arguments_is_refused) {
    wireless(two_radios);
    EXPECT_EQ(sta_uci_get_wireless_element(nullptr, "ifname", nullptr, "vlanid", value, 63), -1);
    EXPECT_EQ(sta_uci_get_wireless_element("ra0", nullptr, nullptr, "vlanid", value, 63), -1);
    EXPECT_EQ(sta_uci_get_wireless_element("ra0", "ifname", nullptr, nullptr, value, 63), -1);
    EXPECT_EQ(sta_uci_get_wireless_element("ra0", "ifname", nullptr, "vlanid", nullptr, 63), -1);
    EXPECT_EQ(log_lines(), lines(4, "sta_uci_get_wireless_element: param is NULL!\n"));
}

TEST_F(configuration, value_longer_than_the_buffer_is_cut) {
    wireless("config wifi-iface\n\toption ifname 'ra0'\n\toption network '" + times(200, 'n') + "'\n");
    EXPECT_EQ(sta_uci_get_wireless_element("ra0", "ifname", nullptr, "network", value, 63), 0);
    EXPECT_EQ(std::string(value), times(63, 'n'));
}

TEST_F(configuration, lack_of_memory_for_the_path_is_told) {
    chip("mtk");
    fail_allocation(1);
    sta_uci_get_param("wifiinfo.global.sdk", value, 63);
    EXPECT_TRUE(logged("sta_uci_get_param", "pointer is not valid\n"));
    EXPECT_STREQ(value, "");
}

class walk : public configuration {
protected:
    walk() {
        chip("mtk");
        wireless(two_radios);
        forward_mode("AP");
    }
    // The answers to both questions for some stations, and what was said meanwhile.
    template <class Vlan, class Bridged>
    std::pair<std::vector<int>, lines> asked(Vlan vlan_of, Bridged is_bridged) {
        forget_log();
        std::vector<int> answers;
        for (const char *ifname : {"ra0", "ra1", "ra2", "ra9", ""}) {
            answers.push_back(vlan_of(on(ifname, "lobby")));
            answers.push_back(is_bridged(on(ifname, "lobby")));
        }
        return {answers, log_lines()};
    }
    auto asked() { return asked(sta_sta_get_vlanid, sta_sta_get_brmode); }
    auto asked_in_one() {
        sta_configuration one;
        return asked([&](const sta_info_t *who) { return one.vlan_of(who); },
                     [&](const sta_info_t *who) { return one.is_bridged(who) ? 1 : -1; });
    }
};

TEST_F(walk, gives_the_same_answers_and_lines_as_single_looks) {
    EXPECT_EQ(asked_in_one(), asked());
    EXPECT_EQ(asked().first, (std::vector<int>{30, 1, 7, -1, -1, -1, 0, 1, -1, -1}));
    chip("bcm");
    EXPECT_EQ(asked_in_one(), asked());
    chip("qca");
    EXPECT_EQ(asked_in_one(), asked());
}

TEST_F(walk, of_missing_and_broken_files_gives_the_same_lines_each_time) {
    remove("/etc/config/wireless");
    EXPECT_EQ(asked_in_one(), asked());
    wireless("config wifi-iface\n\toption ifname 'ra0\n");
    EXPECT_EQ(asked_in_one(), asked());
    remove("/etc/config/wifiinfo");
    EXPECT_EQ(asked_in_one(), asked());
    remove("/etc/config/sysinfo");
    EXPECT_EQ(asked_in_one(), asked());
}

TEST_F(walk, does_not_see_a_change_while_it_lives) {
    sta_configuration one;
    EXPECT_EQ(one.vlan_of(on("ra0", "n")), 30);
    wireless("config wifi-iface\n\toption ifname 'ra0'\n\toption vlanid '31'\n");
    EXPECT_EQ(one.vlan_of(on("ra0", "n")), 30);
    EXPECT_EQ(sta_sta_get_vlanid(on("ra0", "n")), 31);
}

TEST_F(walk, keeps_no_failure) {
    sta_configuration one;
    wireless("config wifi-iface\n\toption ifname 'ra0\n"); // being written
    EXPECT_EQ(one.vlan_of(on("ra0", "n")), -1);
    wireless(two_radios);
    EXPECT_EQ(one.vlan_of(on("ra0", "n")), 30);
}

TEST_F(walk, lack_of_memory_costs_one_look) {
    auto expected = asked().first;
    fail_allocation(1); // for the path of the chip family
    expected[0] = -1;
    EXPECT_EQ(asked_in_one().first, expected);
    EXPECT_TRUE(allocation_failed());
}

} // namespace
