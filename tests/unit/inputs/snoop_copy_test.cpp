// A walk reads the snooping table once. Its look-ups must find what the shell finds.
#include "support/house.h"

#include "inputs/leases.h"
#include "inputs/snoop_copy.h"

#include <filesystem>
#include <random>
#include <sstream>

namespace {

const std::string wanted = "02:00:00:00:00:ab";

std::string lower(std::string text) {
    for (char &c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

bool is_word_character(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }

bool has_word(const std::string &line, const std::string &word) {
    for (std::size_t at = line.find(word); at != line.npos; at = line.find(word, at + 1)) {
        const std::size_t behind = at + word.size();
        if ((at == 0 || !is_word_character(line[at - 1])) &&
            (behind == line.size() || !is_word_character(line[behind])))
            return true;
    }
    return false;
}

// What "grep -iw MAC | awk '{print $3}'" gives in its first line, cut to 15 characters; "" if that is empty.
std::string expected(const std::string &text, const std::string &mac) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!has_word(lower(line), lower(mac))) continue;
        std::istringstream words(line);
        std::string word;
        for (int i = 0; i < 3; ++i) {
            word.clear();
            words >> word;
        }
        return word.substr(0, 15);
    }
    return "";
}

class snoop_copy : public House {
protected:
    snoop_copy() : random(20261123) {} // a fixed row of numbers: the same files each time

    unsigned below(unsigned limit) { return static_cast<unsigned>(random() % limit); }

    std::string any_file() {
        static const std::vector<std::string> macs = {wanted, "02:00:00:00:00:AB", "02:00:00:00:00:02",
                                                      "02:00:00"};
        std::string text;
        for (unsigned parts = below(10); parts > 0; --parts) {
            const std::string &mac = macs[below(static_cast<unsigned>(macs.size()))];
            switch (below(9)) {
            case 0: text += "1 " + mac + " 10.0.0." + std::to_string(below(300)) + " br-lan\n"; break;
            case 1:
                text += "1\t" + mac + "\t FE80::" + std::to_string(below(99999)) + ":1:2:3 br-lan\n";
                break;
            case 2: text += "1 " + mac + "\n"; break;
            case 3: text += "x" + mac + " 10.0.0.9 b c\n"; break;
            case 4: text += mac + "_ 10.0.0.9 b c\n"; break;
            case 5: text += mac + ":" + mac + "- 10.0.0.7"; break;
            case 6: text += std::string(1 + below(3), "\n \t"[below(3)]); break;
            case 7: text += "a b " + times(below(20), 'n') + " " + mac + "\n"; break;
            default: text += mac.substr(0, 3 * below(6)); break;
            }
        }
        return text;
    }

    std::mt19937 random;
};

std::string address_of(const std::string &mac) {
    char out[16] = "";
    return sta_get_ipaddr_by_snoop_mac(mac.c_str(), out) == 0 ? out : "";
}

const std::vector<std::string> asked = {wanted, "02:00:00:00:00:AB", "02:00:00:00:00:02", "02:00:00", "0"};

TEST_F(snoop_copy, finds_the_first_line_of_a_mac_in_20000_files_of_anything) {
    for (int round = 0; round < 20000; ++round) {
        const std::string text = any_file();
        write_file(sta_snoop_copy::path, text);
        const sta_snoop_copy walk;
        for (const std::string &mac : asked)
            ASSERT_EQ(address_of(mac), expected(text, mac)) << mac << " in " << testing::PrintToString(text);
    }
}

TEST_F(snoop_copy, finds_what_the_shell_finds) {
    for (int round = 0; round < 60; ++round) {
        const std::string text = any_file();
        write_file(sta_snoop_copy::path, text);
        for (const std::string &mac : asked) {
            const std::string by_the_shell = address_of(mac);
            const sta_snoop_copy walk;
            ASSERT_EQ(address_of(mac), by_the_shell) << mac << " in " << testing::PrintToString(text);
        }
    }
}

TEST_F(snoop_copy, reads_the_file_once_for_all_its_lookups) {
    write_file(sta_snoop_copy::path, "1 " + wanted + " 10.0.0.1 br-lan\n");
    {
        const sta_snoop_copy walk;
        write_file(sta_snoop_copy::path, "1 " + wanted + " 10.0.0.2 br-lan\n");
        EXPECT_EQ(address_of(wanted), "10.0.0.1");
    }
    const sta_snoop_copy next_walk;
    EXPECT_EQ(address_of(wanted), "10.0.0.2");
}

TEST_F(snoop_copy, says_of_a_missing_file_with_every_lookup) {
    const sta_snoop_copy walk;
    for (int i = 0; i < 2; ++i) EXPECT_EQ(address_of(wanted), "");
    EXPECT_EQ(log_lines(),
              std::vector<std::string>(2, "sta_get_ipaddr_by_snoop_mac: /tmp/snoop_ip_bak file no exist!\n"));
}

TEST_F(snoop_copy, of_bytes_that_are_no_text_leaves_the_lookup_to_the_shell) {
    const std::string line = "1 " + wanted + " 10.0.0.1 br-lan\n";
    for (const std::string &text : {line + "\r\n", line + "\xc3\xa4\n", std::string(1, '\0') + "\n" + line}) {
        write_file(sta_snoop_copy::path, text);
        const std::string by_the_shell = address_of(wanted);
        const sta_snoop_copy walk;
        char address[16];
        EXPECT_EQ(walk.find(wanted.c_str(), address), sta_snoop_copy::outcome::unknown);
        EXPECT_EQ(address_of(wanted), by_the_shell);
    }
}

TEST_F(snoop_copy, of_what_cannot_be_read_finds_nothing) {
    std::filesystem::create_directory(sta_snoop_copy::path);
    const sta_snoop_copy walk;
    EXPECT_EQ(address_of(wanted), "");
}

TEST_F(snoop_copy, finds_the_same_whichever_allocation_fails) {
    std::string text;
    for (int i = 10; i < 99; ++i) text += "1 02:00:00:00:01:" + std::to_string(i) + " 10.0.1.1 br-lan\n";
    write_file(sta_snoop_copy::path, text + "1 " + wanted + " 10.0.0.1 br-lan\n");
    bool failed = true;
    for (unsigned nth = 1; failed; ++nth) {
        fail_allocation(nth);
        char address[16] = "";
        const sta_snoop_copy walk;
        failed = allocation_failed();
        const sta_snoop_copy::outcome outcome = walk.find(wanted.c_str(), address);
        if (outcome == sta_snoop_copy::outcome::found) {
            EXPECT_STREQ(address, "10.0.0.1");
        } else {
            EXPECT_EQ(outcome, sta_snoop_copy::outcome::unknown);
        }
        EXPECT_TRUE(failed || nth > 3) << "nothing was allocated";
    }
}

} // namespace
