// A whole life of the daemon, repeated once for each of its allocations, which fails: only what the allocation was for is lost.
#include "support/bus_house.h"
#include "support/driver_tables.h"
#include "support/events.h"

#include "core/init.h"
#include "life/address.h"
#include "life/listen.h"
#include "life/timers.h"
#include "model/table.h"

#include <gmock/gmock.h>
#include <linux/netlink.h>
#include <sys/socket.h>

namespace {

constexpr const char *restored_mac = "aa:bb:cc:dd:ee:ff";
constexpr const char *leaving_mac = "02:00:00:00:00:0c";
constexpr const char *failure_file = "/tmp/an_allocation_failed";

// One life, in a process of its own.
class one_life {
public:
    explicit one_life(unsigned nth) {
        uloop_done(); // the parent's
        uloop_init();
        std::atexit(note_failure);
        fail_allocation(nth);
        start();
        stations_come();
        passes_go_by();
        bus_asks();
        leases_change();
        deliver(disassociation({{at::ifname, text_bytes("ath1", 20)}, leaving}));
        driver_lists({{"ath1", {table_entry(restored_mac), table_entry(event_mac)}}});
        if (nth == 0 || allocation_failed()) expect_the_truth();
        if (testing::Test::HasFailure()) std::exit(2);
        sta_deinit();
    }

private:
    static void note_failure() {
        if (allocation_failed()) write_file(failure_file, "");
    }

    void start() {
        sta_init();
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends), 0);
        ASSERT_GE(dup2(ends[0], sta_nl.socket), 0);
        sta_nl.family = driver_family;
        driver = ends[1];
    }

    void deliver(byte_vector message) const {
        nlmsghdr header{}; // in the machine's own order
        header.nlmsg_len = static_cast<std::uint32_t>(message.size());
        header.nlmsg_type = driver_family;
        std::memcpy(message.data(), &header, sizeof(header));
        ASSERT_EQ(send(driver, message.data(), message.size(), 0), static_cast<ssize_t>(message.size()));
        g_sta_recv_msg(&sta_netlink_watcher, ULOOP_READ);
    }

    void associate(const byte_vector &mac) const {
        deliver(association({{at::ifname, text_bytes("ath1", 20)}, {at::mac_bytes, mac}}));
    }

    void stations_come() const {
        associate({0, 0x11, 0x22, 0x33, 0x44, 0xab});
        associate(leaving.bytes);
    }

    static void passes_go_by() {
        sta_flow_count_timer(&sta_flow_count_timeout);
        for (int second = 0; second < 3; ++second) sta_single_log_up_timer(&sta_single_log_up_timeout);
        sta_sta_log_up_timer(&sta_log_up_timeout);
    }

    static void bus_asks() {
        peer other;
        EXPECT_EQ(other.call("sta", "get", R"({"get_all_sta_status":"online"})").status, 0);
        EXPECT_NE(bus_count(other), "none");
        EXPECT_EQ(other.call("sta", "set", R"({"set_update_log_period":90})").status, 0);
    }

    // The whole answer to the request for the number of stations online.
    static std::string bus_count(peer &other) {
        const bus_call answer =
            other.call("sta", "get", R"({"get_all_sta_status":"online","get_sta_count":"all"})");
        return answer.status == 0 && answer.reply && answer.reply->size() == 1 ? answer.reply->front()
                                                                               : "none";
    }

    static void leases_change() {
        write_file("/tmp/dhcp.leases", "1 aa:bb:cc:dd:ee:ff 10.0.0.5 phone *\n"
                                       "1 00:11:22:33:44:ab 10.0.0.7 laptop *\n");
        sta_sta_update_name_by_dhcp();
    }

    static std::vector<std::string> table() {
        std::vector<std::string> all;
        for (const sta_info_t *sta : stations())
            all.push_back(std::string(sta->mac) + " " + sta->ip + " " + (sta->name ? sta->name : "(none)") +
                          (sta->status == sta_status_online ? " on line" : " off line"));
        return all;
    }

    // A station without memory for its record is back with its next event; the others keep theirs.
    void take_up_who_was_not(const char *mac, const byte_vector &bytes) const {
        if (sta_sta_peek(mac)) return;
        EXPECT_FALSE(logged("sta_sta_add_usr", std::string("sta add user, mac=") + mac + ". ifname=ath1\n"));
        associate(bytes);
    }

    // After one more pass.
    void expect_the_truth() const {
        note_failure();
        fail_allocation(0);
        take_up_who_was_not(restored_mac, {0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff});
        take_up_who_was_not(event_mac, {0, 0x11, 0x22, 0x33, 0x44, 0xab});
        sta_flow_count_timer(&sta_flow_count_timeout);
        sta_sta_update_name_by_dhcp();
        EXPECT_THAT(table(), testing::UnorderedElementsAre("aa:bb:cc:dd:ee:ff 10.0.0.5 phone on line",
                                                           "00:11:22:33:44:ab 10.0.0.7 laptop on line"));
        EXPECT_EQ(g_sta_sta_master.online, 2);
        const std::string lines = read_file("/tmp/sta_sta.info");
        EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 2) << lines;
        for (const char *known : {"phone aa:bb:cc:dd:ee:ff 10.0.0.5 ", "laptop 00:11:22:33:44:ab 10.0.0.7 "})
            EXPECT_THAT(lines, testing::HasSubstr(known));
        EXPECT_EQ(unowned_blocks(), 0);
        peer other;
        EXPECT_EQ(bus_count(other), "count INT32 2");
    }

    change leaving = {at::mac_bytes, {2, 0, 0, 0, 0, 0x0c}};
    int driver = -1;
};

struct life : BusHouse {
    life() {
        write_command("iptables", "true");
        write_file("/proc/tk_sys/sys_mac", "02:00:00:00:00:99\n");
        write_file("/tmp/tk_device/tk_device.json", R"({"wireless":{"radiolist":[{"sta_limit_max":64}]}})");
        write_file("/etc/config/wifiinfo", "config global 'global'\n\toption sdk 'mtk'\n");
    }
    static void before_it() {
        write_file("/tmp/sta_sta.info",
                   "phone aa:bb:cc:dd:ee:ff 10.0.0.5 1700000000 12 0 0 net 0 1 55 36 0M 0M 0 0 0 0 ath1 1 "
                   "0 0 0 866M\n");
        write_file("/tmp/dhcp.leases", "1 aa:bb:cc:dd:ee:ff 10.0.0.5 phone *\n"
                                       "1 00:11:22:33:44:ab 10.0.0.6 tablet *\n");
        std::remove(failure_file);
        forget_log();
        driver_lists(
            {{"ath1", {table_entry(restored_mac), table_entry(event_mac), table_entry(leaving_mac)}}});
    }
};

TEST_F(life, survives_the_failure_of_every_allocation_in_it) {
    collector box;
    unsigned nth = 0; // in the first life no allocation fails
    do {
        before_it();
        const child_end end = run_in_child([&] { const one_life whole{nth}; });
        // The first line of a failed check says which; a second life would inherit the failure.
        ASSERT_TRUE(end.exited && end.status == 1) << "allocation " << nth << "\n" << end.output;
        const bool started = !filed("wifi_services cap table init failed, exit now!\n");
        EXPECT_EQ(!box.reports().empty(), started) << "allocation " << nth;
        EXPECT_EQ(bool(logged("sta_deinit", "MAIN")), started) << "allocation " << nth;
    } while (nth++ == 0 || file_exists(failure_file));
    EXPECT_GT(nth, 50U);
}

} // namespace
