// The removal of a station's lines from the backup file moves many lines at a time. The file's content and the log must be the
// same as with the former removal line by line, which is kept here for comparison.
#include "support/house.h"

#include "outputs/backup.h"

#include <random>

namespace {

constexpr const char *file = "/tmp/sta_sta.info";
constexpr const char *mac = "02:00:00:00:00:01";
constexpr std::size_t piece_max = 1023;
constexpr std::size_t chunk = 32768; // that the removal reads at once

struct outcome {
    std::string left;
    std::vector<std::string> said;
    bool operator==(const outcome &) const = default;
};

outcome line_by_line(const std::string &before) {
    outcome got;
    const auto say = [&](const std::string &text) {
        got.said.push_back("sta_sta_users_backup_del: " + text);
    };
    bool end = false;
    for (std::size_t at = 0; !end;) {
        std::string piece;
        while (piece.size() < piece_max) {
            if (at == before.size()) {
                end = true;
                break;
            }
            piece += before[at++];
            if (piece.back() == '\n') break;
        }
        const std::string text = piece.c_str(); // up to its first NUL
        if (text.size() < 36)
            say("The sta is error:" + text);
        else if (text.find(mac) != std::string::npos)
            say(std::string(mac) + " found!\n");
        else
            got.left += piece;
    }
    return got;
}

outcome removed(const std::string &before) {
    write_file(file, before);
    forget_log();
    sta_sta_users_backup_del(mac);
    return {read_file(file), log_lines()};
}

std::string line_of(const std::string &whose, std::size_t more = 0) {
    return "host " + whose + " 10.0.0.1 1700000000 5 0 0 net 0 0 55 36 0M 0M 1 2 0 0 ath" + times(more, '0') +
           " 0 1 1 0 866M\n";
}

class backup_removal : public House {
protected:
    static bool same_over(const std::string &before, const std::string &what = {}) {
        const outcome expected = line_by_line(before);
        for (const bool without_memory : {false, true}) {
            if (without_memory) fail_allocation(1);
            const outcome got = removed(before);
            fail_allocation(0);
            const bool same = got == expected;
            EXPECT_TRUE(same) << what << (without_memory ? ", without memory" : "") << " over "
                              << testing::PrintToString(before.substr(0, 4000)) << "\nleft "
                              << testing::PrintToString(got.left.substr(0, 4000)) << "\nsaid "
                              << testing::PrintToString(got.said);
            if (!same) return false;
        }
        return true;
    }
};

std::string anything(std::mt19937 &random, unsigned parts) {
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    std::string text;
    while (parts-- > 0) {
        switch (below(11)) {
        case 0: text += line_of(mac); break;
        case 1: text += line_of(mac, below(1100)); break;
        case 2: text += times(below(40), 'x') + "\n"; break;
        case 3: text += times(990 + below(40), 'y') + mac; break; // over the end of a reading
        case 4: text += std::string(1 + below(2), '\0'); break;
        case 5: text += std::string(mac) + ":" + mac; break;
        case 6: text += "\n"; break;
        case 7: text += std::string(mac).substr(0, below(18)); break;
        case 8: text += times(40, 'z') + std::string(1, '\0') + mac + "\n"; break;
        default:
            text += line_of("02:00:00:00:77:0" + std::to_string(below(10)), below(3) ? 0 : below(900));
            break;
        }
    }
    return text;
}

TEST_F(backup_removal, leaves_what_a_reading_line_by_line_leaves_of_20000_files_of_anything) {
    std::mt19937 random(20251122); // a fixed row of numbers: the same files each time
    for (int round = 0; round < 20000; ++round)
        if (!same_over(anything(random, static_cast<unsigned>(random() % 8)), std::to_string(round))) break;
}

TEST_F(backup_removal, of_a_file_that_is_read_in_several_steps) {
    std::mt19937 random(7);
    for (int round = 0; round < 30; ++round)
        if (!same_over(anything(random, 400), std::to_string(round))) break;
}

TEST_F(backup_removal, of_lines_that_lie_over_the_end_of_a_step) {
    const std::string other = line_of("02:00:00:00:77:01");
    for (std::size_t before = chunk - 120; before < chunk + 5; ++before) {
        std::string text;
        while (text.size() + other.size() < before) text += other;
        text.insert(0, times(before - text.size(), 'x')); // the last line's MAC crosses the end
        same_over(text + line_of(mac) + other + line_of(mac), "behind " + std::to_string(before));
    }
}

TEST_F(backup_removal, of_a_file_that_ends_with_a_step) {
    for (const std::size_t size :
         {chunk - 1, chunk, chunk + 1, 2 * chunk, std::size_t{2046}, std::size_t{2047}}) {
        std::string text;
        while (text.size() + 2000 < size) text += line_of("02:00:00:00:77:01") + line_of(mac);
        text += times(size - text.size() - 1, 'x');
        same_over(text + "\n", "whole " + std::to_string(size));
        same_over(text + "x", "torn " + std::to_string(size));
    }
}

} // namespace
