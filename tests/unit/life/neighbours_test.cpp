// The kernel's neighbours become addresses of stations: of which stations, with which origin, and which are only counted.
#include <gmock/gmock.h>

#include "support/bytes.h"
#include "support/house.h"

#include "life/neighbours.h"
#include "model/identity.h"
#include "model/table.h"
#include "tools/health.h"
#include "tools/text.h"

#include <arpa/inet.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using texts = std::vector<std::string>;

constexpr const char *mac = "02:00:00:00:00:0a";
constexpr int lan = 5, ath0 = 9, vlan = 11, guest = 6;

struct neighbours : House {
    neighbours() {
        link(lan, "br-lan");
        link(guest, "br-guest");
        link(ath0, "ath0", lan);
        link(vlan, "br-lan.10", 0, lan);
        sta_put_text(sta->ifname, "ath0");
        sta_put_text(sta->ip, "10.0.0.9");
    }
    sta_info_t *sta = put_station(mac);

    static void add(byte_vector &to, const void *from, std::size_t size) {
        const auto *bytes = static_cast<const std::uint8_t *>(from);
        to.insert(to.end(), bytes, bytes + size);
        to.resize((to.size() + 3) / 4 * 4);
    }
    static void attribute(byte_vector &to, std::uint16_t type, const void *value, std::size_t size) {
        const rtattr header{static_cast<std::uint16_t>(sizeof(header) + size), type};
        byte_vector one;
        add(one, &header, sizeof(header));
        add(one, value, size);
        add(to, one.data(), one.size());
    }
    template <class Header>
    static void told(std::uint16_t type, const Header &header, const byte_vector &attributes) {
        nlmsghdr outer{};
        outer.nlmsg_type = type;
        outer.nlmsg_len = static_cast<std::uint32_t>(sizeof(outer) + sizeof(header) + attributes.size());
        byte_vector message;
        add(message, &outer, sizeof(outer));
        add(message, &header, sizeof(header));
        add(message, attributes.data(), attributes.size());
        sta_neighbours_handle(message);
    }
    static void link(int index, const char *name, int master = 0, int lower = 0,
                     std::uint16_t type = RTM_NEWLINK) {
        ifinfomsg header{};
        header.ifi_index = index;
        byte_vector attributes;
        attribute(attributes, IFLA_IFNAME, name, std::strlen(name) + 1);
        if (master != 0) attribute(attributes, IFLA_MASTER, &master, sizeof(master));
        if (lower != 0) attribute(attributes, IFLA_LINK, &lower, sizeof(lower));
        told(type, header, attributes);
    }
    struct entry {
        const char *address = "192.168.10.50";
        byte_vector octets{2, 0, 0, 0, 0, 10};
        int index = lan;
        std::uint16_t state = NUD_REACHABLE;
        std::uint32_t confirmed_ago = 0, updated_ago = 0;
    };
    static void neighbour(const entry &one) {
        ndmsg header{};
        std::uint8_t address[16];
        const bool six = std::strchr(one.address, ':') != nullptr;
        header.ndm_family = six ? AF_INET6 : AF_INET;
        ASSERT_EQ(inet_pton(header.ndm_family, one.address, address), 1);
        header.ndm_ifindex = one.index;
        header.ndm_state = one.state;
        const nda_cacheinfo times{one.confirmed_ago * 100, 0, one.updated_ago * 100, 0};
        byte_vector attributes;
        attribute(attributes, NDA_DST, address, six ? 16 : 4);
        if (!one.octets.empty()) attribute(attributes, NDA_LLADDR, one.octets.data(), one.octets.size());
        attribute(attributes, NDA_CACHEINFO, &times, sizeof(times));
        told(RTM_NEWNEIGH, header, attributes);
    }
    texts addresses() const {
        texts found;
        for (const station_address &one : sta_identity_addresses(sta)) {
            char text[station_address_text_size];
            sta_address_write(one, text);
            found.push_back(std::string{text} + " " + station_origin_name(one.origin));
        }
        return found;
    }
};

TEST_F(neighbours, of_the_stations_bridge_are_its_addresses) {
    neighbour({});
    neighbour({.address = "fe80::ff:fe00:a"});
    EXPECT_THAT(addresses(), ElementsAre("192.168.10.50 neighbour", "fe80::ff:fe00:a neighbour"));
    EXPECT_STREQ(sta->ip, "10.0.0.9") << "the record's own address stays";
    EXPECT_EQ(sta_health.neighbours_received, 2U);
}

TEST_F(neighbours, on_a_vlan_of_the_bridge_and_on_the_interface_itself_count_too) {
    neighbour({.address = "10.0.0.1", .index = vlan});
    neighbour({.address = "10.0.0.2", .index = ath0});
    EXPECT_THAT(addresses(), ElementsAre("10.0.0.1 neighbour", "10.0.0.2 neighbour"));
}

TEST_F(neighbours, of_another_bridge_are_counted_only) {
    neighbour({.index = guest});
    neighbour({.index = 77});
    EXPECT_THAT(addresses(), IsEmpty());
    EXPECT_EQ(sta_health.neighbours_foreign, 2U);
}

TEST_F(neighbours, are_where_the_interface_is_now) {
    link(ath0, "ath0", guest);
    neighbour({.address = "10.0.0.1"});
    neighbour({.address = "10.0.0.2", .index = guest});
    EXPECT_THAT(addresses(), ElementsAre("10.0.0.2 neighbour"));
    link(ath0, "ath0", 0, 0, RTM_DELLINK);
    neighbour({.address = "10.0.0.3", .index = guest});
    EXPECT_THAT(addresses(), ElementsAre("10.0.0.2 neighbour"));
    EXPECT_EQ(sta_health.neighbours_foreign, 2U);
}

TEST_F(neighbours, that_are_no_stations_are_counted_only) {
    neighbour({.octets = {2, 0, 0, 0, 0, 11}});
    EXPECT_THAT(addresses(), IsEmpty());
    EXPECT_EQ(sta_health.neighbours_unknown, 1U);
}

TEST_F(neighbours, of_groups_and_zero_addresses_are_counted_only) {
    neighbour({.octets = {0, 0, 0, 0, 0, 0}});
    neighbour({.octets = {0x33, 0x33, 0, 0, 0, 1}});
    neighbour({.octets = {}});
    neighbour({.address = "0.0.0.0"});
    neighbour({.address = "239.1.1.1"});
    neighbour({.address = "::"});
    neighbour({.address = "ff02::1", .state = NUD_NOARP});
    EXPECT_THAT(addresses(), IsEmpty());
    EXPECT_EQ(sta_health.neighbours_unusable, 7U);
}

TEST_F(neighbours, that_do_not_answer_are_not_there) {
    neighbour({.octets = {}, .state = NUD_INCOMPLETE});
    neighbour({.state = NUD_FAILED});
    neighbour({.state = NUD_NONE});
    EXPECT_THAT(addresses(), IsEmpty());
    EXPECT_EQ(sta_health.neighbours_unusable, 0U);
}

TEST_F(neighbours, were_seen_when_the_kernel_last_knew_them) {
    neighbour({.state = NUD_STALE, .confirmed_ago = 90, .updated_ago = 30});
    const std::int32_t now = sta_monotonic_seconds();
    EXPECT_NEAR(sta_identity_addresses(sta)[0].since, now - 30, 2);
    neighbour({.state = NUD_STALE, .confirmed_ago = 10, .updated_ago = 0});
    EXPECT_NEAR(sta_identity_addresses(sta)[0].seen, now - 10, 2);
    neighbour({.state = NUD_REACHABLE, .confirmed_ago = 10});
    EXPECT_NEAR(sta_identity_addresses(sta)[0].seen, now, 2);
    EXPECT_NEAR(sta_identity_addresses(sta)[0].since, now - 30, 2);
}

TEST_F(neighbours, that_the_kernel_claims_to_be_older_than_itself_are_of_its_start) {
    neighbour({.state = NUD_STALE, .confirmed_ago = 40000000, .updated_ago = 40000000});
    EXPECT_EQ(sta_identity_addresses(sta)[0].seen, 0);
}

TEST_F(neighbours, that_are_broken_are_counted) {
    sta_neighbours_handle(byte_vector(7));
    EXPECT_EQ(sta_health.neighbours_malformed, 1U);
}

TEST_F(neighbours, are_not_asked_for_without_a_socket) {
    sta_neighbours_ask();
    EXPECT_FALSE(sta_neighbour_timer.pending);
}

} // namespace
