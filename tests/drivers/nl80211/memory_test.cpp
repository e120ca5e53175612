#include "nl80211/memory.h"
#include "tests/temporary_folder.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace {

class bridge_memory_file : public testing::Test {
protected:
    void TearDown() override {
        unlink(path.c_str());
        EXPECT_TRUE(std::filesystem::is_empty(folder.path)) << "nothing else is left";
    }
    const temporary_folder folder;
    const std::string path = folder.file("stations");
    bridge_memory loaded{};
};

TEST_F(bridge_memory_file, gives_back_daemons_and_stations) {
    bridge_memory memory{};
    memory.daemons[0] = {4711, 99};
    memory.daemon_count = 1;
    station one{};
    one.mac.bytes[5] = 7;
    one.on = true;
    ASSERT_TRUE(memory.stations.push(one));
    ASSERT_TRUE(memory_save(path.c_str(), memory));
    ASSERT_TRUE(memory_load(path.c_str(), loaded));
    EXPECT_EQ(loaded.daemon_count, 1U);
    EXPECT_EQ(loaded.daemons[0], (netlink_listener{4711, 99}));
    ASSERT_EQ(loaded.stations.size(), 1U);
    EXPECT_EQ(loaded.stations[0].mac.bytes[5], 7);
}

TEST_F(bridge_memory_file, that_is_not_there_cut_or_of_something_else_is_empty) {
    EXPECT_FALSE(memory_load(path.c_str(), loaded));
    bridge_memory memory{};
    ASSERT_TRUE(memory.stations.push({}));
    ASSERT_TRUE(memory_save(path.c_str(), memory));
    ASSERT_EQ(truncate(path.c_str(), 100), 0);
    EXPECT_FALSE(memory_load(path.c_str(), loaded));
    EXPECT_EQ(loaded.stations.size(), 0U);
    std::ofstream(path) << std::string(4096, 'x');
    EXPECT_FALSE(memory_load(path.c_str(), loaded));
}

TEST_F(bridge_memory_file, that_cannot_be_written_is_no_harm) {
    EXPECT_FALSE(memory_save(folder.file("none/stations").c_str(), {}));
}

} // namespace
