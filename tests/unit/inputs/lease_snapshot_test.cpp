// A walk reads the lease file once. Its look-ups must find and log the same as the former single look-ups, which read the file
// piece by piece and are kept here for comparison.
#include "support/house.h"

#include "inputs/leases.h"
#include "tools/memory.h"

#include <filesystem>
#include <memory>
#include <random>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

constexpr const char *file = "/tmp/dhcp.leases";
constexpr unsigned searches_before_the_index = 16;

struct answer {
    int result;
    std::string out; // 18 bytes of address, or the name
    std::vector<std::string> said;
    bool operator==(const answer &) const = default;
};

std::ostream &operator<<(std::ostream &to, const answer &one) {
    return to << one.result << " " << testing::PrintToString(one.out) << " "
              << testing::PrintToString(one.said);
}

const char *after_mac(const char *line, const char *mac) {
    const char *at = std::strstr(line, mac);
    if (!at) return nullptr;
    at += std::strlen(mac);
    return *at == '\0' ? nullptr : at + 1;
}

using text_file = std::unique_ptr<std::FILE, int (*)(std::FILE *)>;

text_file as_file(const std::string &text) {
    static char nothing[1];
    return {fmemopen(text.empty() ? nothing : const_cast<char *>(text.data()),
                     std::max<std::size_t>(text.size(), 1), "r"),
            std::fclose};
}

answer expected_address(const std::string &text, const std::string &mac) {
    answer got{-1, times(18, 'z'), {}};
    const text_file leases = as_file(text);
    char piece[64];
    while (!text.empty() && std::fgets(piece, sizeof(piece), leases.get())) {
        const char *address = after_mac(piece, mac.c_str());
        const std::size_t length = address ? std::min<std::size_t>(std::strcspn(address, " \r\n\t"), 15) : 0;
        if (length == 0) continue;
        got = {0,
               std::string(address, length),
               {"sta_get_ipaddr_by_dhcp_mac: " + std::string(address, length) + " ipaddr found!\n"}};
        got.out.resize(17);
        got.out += 'z';
        break;
    }
    return got;
}

answer expected_name(const std::string &text, const std::string &mac) {
    const text_file leases = as_file(text);
    char line[1024];
    while (!text.empty() && std::fgets(line, sizeof(line), leases.get())) {
        if (!std::strstr(line, mac.c_str())) continue;
        const char *address = after_mac(line, mac.c_str());
        const char *blank = address ? std::strchr(address, ' ') : nullptr;
        if (!blank) return {-1, "", {"sta_get_name_by_dhcp_mac: data error!\n"}};
        const std::string rest = blank + 1;
        const std::string name =
            rest.substr(0, std::min<std::size_t>(std::strcspn(rest.c_str(), " \r\n"), 64));
        return {0, name, {"sta_get_name_by_dhcp_mac: hostname found.[" + rest + "]------->[" + name + "]\n"}};
    }
    return {-1, "", {}};
}

answer address_of(const std::string &mac) {
    forget_log();
    char out[18];
    std::memset(out, 'z', sizeof(out));
    const int result = sta_get_ipaddr_by_dhcp_mac(out, mac.c_str());
    return {result, {out, sizeof(out)}, log_lines()};
}

answer name_of(const std::string &mac) {
    forget_log();
    const std::unique_ptr<char, void (*)(void *)> name{sta_get_name_by_dhcp_mac(mac.c_str()), sta_free};
    return {name ? 0 : -1, name ? name.get() : "", log_lines()};
}

const std::vector<std::string> asked = {"02:00:00:00:00:01", "02:00:00:00:00:02", "AA:BB:CC:dd:ee:ff",
                                        "00:00:00:00:00:00", "02:00:00:00:00",    "0"};

// Two lookups each: the first round goes without an index, the last one with it.
const std::size_t rounds = 2 + searches_before_the_index / (2 * asked.size());

class lease_snapshot : public House {
protected:
    // All answers over a file of `text`, before there is an index and with it.
    static bool same_over(const std::string &text) {
        write_file(file, text);
        const sta_lease_snapshot walk;
        std::vector<std::pair<answer, answer>> expected;
        for (const std::string &mac : asked)
            expected.emplace_back(expected_address(text, mac), expected_name(text, mac));
        bool same = true;
        for (unsigned round = 0; round < rounds && same; ++round) {
            for (std::size_t i = 0; i < asked.size() && same; ++i) {
                const answer address = address_of(asked[i]), name = name_of(asked[i]);
                same = address == expected[i].first && name == expected[i].second;
                EXPECT_TRUE(same) << asked[i] << " in " << testing::PrintToString(text) << ":\n"
                                  << address << "\n"
                                  << name << "\nsingle lookups:\n"
                                  << expected[i].first << "\n"
                                  << expected[i].second;
            }
        }
        return same;
    }
};

std::string line_of(const std::string &mac, const std::string &ip, const std::string &name) {
    return "1700000000 " + mac + " " + ip + " " + name + " 01:" + mac + "\n";
}

TEST_F(lease_snapshot, finds_what_single_lookups_find_in_20000_files_of_anything) {
    std::mt19937 random(20251122); // a fixed row of numbers: the same files each time
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (unsigned parts = below(12); parts > 0; --parts) {
            const std::string &mac = asked[below(static_cast<unsigned>(asked.size()))];
            switch (below(10)) {
            case 0: text += line_of(mac, "10.0.0." + std::to_string(below(300)), "host"); break;
            case 1: text += line_of(mac, "192.168.100.100.200", times(below(80), 'n')); break;
            case 2: text += "1 " + mac + (below(2) ? "\n" : " 10.0.0.1\n"); break;
            case 3:
                text += times(below(70), 'x') + mac + " 10.0.0.9 b";
                break; // over the end of a short piece
            case 4:
                text += times(960 + below(70), 'y') + mac + " 10.1.1.1 c *\r\n";
                break; // and of a long one
            case 5: text += std::string(1 + below(2), '\0'); break;
            case 6: text += mac + ":" + mac; break;
            case 7: text += std::string(1 + below(3), "\n \t"[below(3)]); break;
            case 8: text += mac.substr(0, 3 * below(6)); break;
            default: text += "02:00:00:00:" + mac + "  10.0.0.8 d *\n"; break;
            }
        }
        if (!same_over(text)) break;
    }
}

TEST_F(lease_snapshot, reads_the_file_once_for_all_its_lookups) {
    write_file(file, line_of(asked[0], "10.0.0.1", "before"));
    {
        const sta_lease_snapshot walk;
        EXPECT_EQ(name_of(asked[0]).out, "before");
        write_file(file, line_of(asked[0], "10.0.0.1", "after"));
        EXPECT_EQ(name_of(asked[0]).out, "before");
    }
    EXPECT_EQ(name_of(asked[0]).out, "after");
    const sta_lease_snapshot next_walk;
    EXPECT_EQ(name_of(asked[0]).out, "after");
}

TEST_F(lease_snapshot, says_of_a_missing_file_with_every_lookup) {
    const sta_lease_snapshot walk;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(address_of(asked[0]).said,
                  std::vector<std::string>{"sta_get_ipaddr_by_dhcp_mac: /tmp/dhcp.leases open fail.\n"});
        EXPECT_EQ(name_of(asked[0]).said,
                  std::vector<std::string>{"sta_get_name_by_dhcp_mac: /tmp/dhcp.leases open fail.\n"});
    }
}

TEST_F(lease_snapshot, inside_of_another_sees_what_that_one_saw) {
    write_file(file, line_of(asked[0], "10.0.0.1", "outer"));
    const sta_lease_snapshot outer;
    EXPECT_EQ(name_of(asked[0]).out, "outer");
    write_file(file, line_of(asked[0], "10.0.0.1", "inner"));
    { const sta_lease_snapshot inner; }
    EXPECT_EQ(name_of(asked[0]).out, "outer");
}

std::string name_for_an_event(const std::string &mac) {
    const sta_lease_snapshot event{sta_lease_snapshot::of_events{}};
    return name_of(mac).out;
}

TEST_F(lease_snapshot, of_events_that_come_together_is_read_once) {
    write_file(file, line_of(asked[0], "10.0.0.1", "one"));
    const int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    ASSERT_GE(inotify_add_watch(watch, file, IN_OPEN | IN_CLOSE), 0); // equal events in a row become one
    for (int event = 0; event < 3; ++event) EXPECT_EQ(name_for_an_event(asked[0]), "one");
    inotify_event opened[4];
    EXPECT_EQ(read(watch, opened, sizeof(opened)), static_cast<ssize_t>(2 * sizeof(inotify_event)));
    EXPECT_EQ(read(watch, opened, sizeof(opened)), -1);
    close(watch);
    sta_lease_snapshot::forget_kept();
}

TEST_F(lease_snapshot, of_events_sees_a_change_of_the_file) {
    write_file(file, line_of(asked[0], "10.0.0.1", "one"));
    EXPECT_EQ(name_for_an_event(asked[0]), "one");
    write_file(file, line_of(asked[0], "10.0.0.1", "another"));
    EXPECT_EQ(name_for_an_event(asked[0]), "another");
    sta_lease_snapshot::forget_kept();
}

TEST_F(lease_snapshot, of_what_cannot_be_read_finds_nothing_as_a_single_lookup) {
    std::filesystem::create_directory(file);
    const sta_lease_snapshot walk;
    EXPECT_EQ(address_of(asked[0]), (answer{-1, times(18, 'z'), {}}));
    EXPECT_EQ(name_of(asked[0]), (answer{-1, "", {}}));
}

TEST_F(lease_snapshot, of_a_file_too_large_to_keep_reads_it_each_time) {
    write_file(file, times(8 << 20, 'x') + "\n" + line_of(asked[0], "10.0.0.1", "far"));
    const sta_lease_snapshot walk;
    EXPECT_EQ(name_of(asked[0]).out, "far");
    write_file(file, line_of(asked[0], "10.0.0.1", "near"));
    EXPECT_EQ(name_of(asked[0]).out, "near");
}

TEST_F(lease_snapshot, finds_the_same_whichever_allocation_fails) {
    std::string text;
    for (int i = 0; i < 300; ++i)
        text += line_of("02:00:00:00:01:" + std::to_string(10 + i % 90), "10.0.1.1", "other");
    text += line_of(asked[0], "10.0.0.1", "host");
    write_file(file, text);
    bool failed = true;
    for (unsigned nth = 1; failed; ++nth) {
        fail_allocation(nth);
        {
            const sta_lease_snapshot walk;
            for (unsigned i = 0; i < 2 * searches_before_the_index; ++i)
                EXPECT_EQ(address_of(asked[0]).out, std::string("10.0.0.1\0\0\0\0\0\0\0\0\0z", 18)) << nth;
        }
        failed = allocation_failed();
        EXPECT_TRUE(failed || nth > 4) << "nothing was allocated";
    }
}

} // namespace
