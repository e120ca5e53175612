// house.h - the surroundings of the daemon's functions while a test calls them.
//
// A test is a TEST_F of a fixture that is a House. Before it runs, everything is as on a freshly started
// access point:
//   files.h     /tmp, /run, /etc/config and /proc/tk_sys are the test's own and empty (a mount namespace of the
//               process), so the daemon's absolute paths are used as they are; no console, and an empty network
//   log.h       the log library records; logged(), logged_error(), filed() say what was written
//   driver.h    the driver's requests are recorded and refused, or answered by the test
//   collector.h a listening socket that keeps what arrives
//   commands.h  scripts that stand in for iptables and others, recorded; uci is the real one
//   memory.h    the n-th allocation can be made to fail
//   bus.h       a real broker, when a test starts one; the loop runs until something holds, with a bound
//   child.h     a function in a process of its own, for what ends the process
//
// After it the fixture frees the table and the lease list and fails the test when blocks of the counting
// allocator are left over or were freed too often.
//
//     TEST_F(lease, address_of_a_known_mac_is_found) {
//         write_file("/tmp/dhcp.leases", "1700000000 aa:bb:cc:dd:ee:ff 192.168.1.20 phone *\n");
//         char ip[17];
//         EXPECT_EQ(sta_get_ipaddr_by_dhcp_mac(ip, "aa:bb:cc:dd:ee:ff"), 0);
//         EXPECT_TRUE(logged("sta_get_ipaddr_by_dhcp_mac", "192.168.1.20 ipaddr found!\n"));
//     }
//
// In CMake: wsmd_gtest(unit_NAME SOURCES ... LIBS wsmd_unit). main() is the support's own.
#pragma once

#include "support/bus.h"
#include "support/child.h"
#include "support/collector.h"
#include "support/commands.h"
#include "support/driver.h"
#include "support/files.h"
#include "support/log.h"
#include "support/memory.h"

#include "model/record.h"

#include <gtest/gtest.h>

class House : public testing::Test {
public:
    House();
    ~House() override;
};

// Blocks of the counting allocator that neither the table nor the lease list owns; negative when some of theirs
// were given back.
int unowned_blocks();

// The records of the table, in order.
std::vector<sta_info_t *> stations();

// A new record in the table, with status 2 unless stated; it counts as online when the status is 1. For tests
// that need a station and do not depend on how it came.
sta_info_t *put_station(const char *mac, std::uint16_t status = sta_status_added);
