// The spool: its messages are there again, in order, however the program ended before.
#include "collector/spool.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <numeric>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

class a_spool : public testing::Test {
public:
    a_spool() {
        std::string name = (fs::temp_directory_path() / "spool_test.XXXXXX").string();
        folder = mkdtemp(name.data());
    }
    ~a_spool() override { fs::remove_all(folder); }

    spool open(std::uint64_t most_bytes = 64 << 20, std::size_t most_in_memory = 1000) {
        return {{folder, most_bytes, most_in_memory},
                [this](const std::string &text) { said.push_back(text); }};
    }
    static letter numbered(int number, std::size_t size = 10) {
        return {"topic/" + std::to_string(number), std::string(size, 'x'), number % 2 == 0};
    }
    static void push(spool &into, int first, int last, std::size_t size = 10) {
        for (int number = first; number <= last; ++number) into.push(numbered(number, size));
    }
    static std::vector<int> rest(spool &of) {
        std::vector<int> numbers;
        for (letter one; of.take(one);) {
            numbers.push_back(std::stoi(one.topic.substr(6)));
            EXPECT_EQ(one, numbered(numbers.back(), one.payload.size()));
        }
        return numbers;
    }
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto &each : fs::directory_iterator(folder))
            names.push_back(each.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    std::string first_file() const { return folder + "/0000000000000001.spool"; }
    static std::string content(const std::string &name) {
        std::ifstream in(name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static void set_content(const std::string &name, const std::string &bytes) {
        std::ofstream(name, std::ios::binary) << bytes;
    }

    std::string folder;
    std::vector<std::string> said;
};

std::vector<int> counted(int first, int last) {
    std::vector<int> numbers(static_cast<std::size_t>(last - first + 1));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

TEST_F(a_spool, gives_what_came_first_first) {
    spool one = open();
    EXPECT_TRUE(one.empty());
    push(one, 1, 3);
    EXPECT_FALSE(one.empty());
    EXPECT_EQ(one.figures().waiting, 3u);
    EXPECT_EQ(rest(one), counted(1, 3));
    EXPECT_TRUE(one.empty());
}

TEST_F(a_spool, has_after_a_restart_what_was_not_acknowledged) {
    {
        spool one = open();
        push(one, 1, 5);
        letter first;
        ASSERT_TRUE(one.take(first) && one.take(first) && one.take(first));
        one.acknowledged();
    }
    spool again = open();
    EXPECT_THAT(said, ElementsAre("4 messages wait in " + folder));
    push(again, 6, 7);
    EXPECT_EQ(rest(again), counted(2, 7));
}

TEST_F(a_spool, leaves_no_file_behind_when_all_has_arrived) {
    {
        spool one = open();
        push(one, 1, 3);
        for (letter each; one.take(each);) one.acknowledged();
        EXPECT_EQ(one.figures().bytes, 16u);
        EXPECT_EQ(fs::file_size(first_file()), 16u) << "it does not grow for ever";
        push(one, 4, 4);
        EXPECT_EQ(rest(one), counted(4, 4));
        one.acknowledged();
    }
    spool again = open();
    EXPECT_TRUE(again.empty());
    EXPECT_THAT(files(), IsEmpty());
    EXPECT_THAT(said, IsEmpty());
}

TEST_F(a_spool, writes_its_files_as_its_description_says) {
    spool one = open();
    one.push({"t/1", "hello", true});
    const auto expected = std::string("wsmspl1\n") + std::string("\x10\0\0\0\0\0\0\0", 8) +
                          std::string("\x0b\0\0\0", 4) + std::string("\xa3\x86\xc5\x6f", 4) +
                          std::string("\x01\x03\0t/1hello", 11);
    EXPECT_EQ(content(first_file()), expected);
    letter taken;
    one.push({"t/2", "", false});
    ASSERT_TRUE(one.take(taken));
    one.acknowledged();
    EXPECT_EQ(content(first_file()).substr(8, 8), std::string("\x23\0\0\0\0\0\0\0", 8)) << "behind the first";
}

TEST_F(a_spool, that_is_full_drops_the_oldest_and_counts_them) {
    spool one = open(1 << 20);
    push(one, 1, 3000, 1000);
    EXPECT_LE(one.figures().bytes, 1u << 20);
    std::uintmax_t on_disk = 0;
    for (const std::string &name : files()) on_disk += fs::file_size(folder + "/" + name);
    EXPECT_EQ(on_disk, one.figures().bytes);
    const auto kept = static_cast<int>(one.figures().waiting);
    EXPECT_GT(kept, 900) << "no more goes than must";
    EXPECT_EQ(one.figures().dropped, static_cast<std::uint64_t>(3000 - kept));
    EXPECT_EQ(rest(one), counted(3000 - kept + 1, 3000));
    EXPECT_THAT(said, ElementsAre("the spool is full: the oldest messages are dropped"));
}

TEST_F(a_spool, that_was_larger_is_cut_to_its_new_size) {
    {
        spool one = open(4 << 20);
        push(one, 1, 3000, 1000);
    }
    spool again = open(1 << 20);
    EXPECT_LE(again.figures().bytes, 1u << 20);
    EXPECT_EQ(rest(again).back(), 3000);
}

TEST_F(a_spool, acknowledges_what_it_had_to_drop_meanwhile) {
    spool one = open(1 << 20);
    push(one, 1, 10, 1000);
    letter in_flight;
    for (int number = 0; number < 10; ++number) ASSERT_TRUE(one.take(in_flight));
    push(one, 11, 3000, 1000);
    for (int number = 0; number < 10; ++number) one.acknowledged();
    const std::uint64_t left = one.figures().waiting;
    EXPECT_EQ(one.figures().dropped, 2990 - left) << "the ten were on their way";
    const std::vector<int> got = rest(one);
    EXPECT_EQ(got, counted(3000 - static_cast<int>(left) + 1, 3000));
}

TEST_F(a_spool, forgets_a_message_that_nobody_can_send) {
    {
        spool one = open();
        push(one, 1, 2);
        letter first;
        ASSERT_TRUE(one.take(first));
        one.refused();
        EXPECT_EQ(one.figures().dropped, 1u);
        one.push({"t", std::string(2 << 20, 'x'), false});
        EXPECT_EQ(one.figures().dropped, 2u);
    }
    spool again = open();
    EXPECT_EQ(rest(again), counted(2, 2));
}

TEST_F(a_spool, is_for_one_program_at_a_time) {
    const spool one = open();
    try {
        const spool other = open();
        FAIL() << "two use it";
    } catch (const std::runtime_error &error) {
        EXPECT_EQ(error.what(), "spool: " + folder + ": another collector uses it");
    }
}

// The file cut at each possible size, as a kill while it is written can leave it.
TEST_F(a_spool, that_ends_anywhere_in_a_record_has_all_records_before_it) {
    {
        spool one = open();
        push(one, 1, 4);
    }
    const std::string whole = content(first_file());
    const std::size_t record = (whole.size() - 16) / 4;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        set_content(first_file(), whole.substr(0, size));
        said.clear();
        spool one = open();
        const int complete = size < 16 ? 0 : static_cast<int>((size - 16) / record);
        push(one, complete + 1, complete + 1);
        EXPECT_EQ(rest(one), counted(1, complete + 1)) << size << " bytes";
        EXPECT_THAT(files(), testing::SizeIs(1)) << "nothing is set aside";
        for (int number = 0; number <= complete; ++number) one.acknowledged();
        for (const std::string &name : files()) fs::remove(folder + "/" + name);
    }
}

TEST_F(a_spool, that_is_damaged_is_set_aside_and_what_is_before_the_damage_is_kept) {
    {
        spool one = open();
        push(one, 1, 4);
    }
    const std::string whole = content(first_file());
    const std::size_t record = (whole.size() - 16) / 4;
    for (std::size_t at = 0; at < whole.size(); ++at) {
        if (at >= 8 && at < 16) continue; // an invalid mark is ignored; tested below
        for (const std::string &name : files()) fs::remove(folder + "/" + name);
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x55);
        set_content(first_file(), damaged);
        said.clear();
        spool one = open();
        const int good = at < 8 ? 0 : static_cast<int>((at - 16) / record);
        if (at < 8 || (at - 16) % record >= 4) { // a changed length may also reach beyond the end
            ASSERT_THAT(said, testing::Not(IsEmpty())) << at;
            EXPECT_THAT(said[0], HasSubstr("0000000000000001.spool is damaged: set aside as "));
            EXPECT_THAT(said[0],
                        HasSubstr(std::to_string(good) + " messages in front of the damage are kept"));
            const std::vector<std::string> names = files();
            const auto aside = std::find_if(names.begin(), names.end(), [](const std::string &name) {
                return name.find(".spool.damaged-") != std::string::npos;
            });
            ASSERT_NE(aside, names.end());
            EXPECT_EQ(content(folder + "/" + *aside), damaged);
        }
        push(one, good + 1, good + 2);
        EXPECT_EQ(rest(one), counted(1, good + 2)) << "byte " << at;
    }
}

TEST_F(a_spool, whose_mark_is_that_of_no_record_begins_at_its_first) {
    {
        spool one = open();
        push(one, 1, 3);
    }
    std::string bytes = content(first_file());
    bytes[8] = 17;
    set_content(first_file(), bytes);
    spool again = open();
    EXPECT_EQ(rest(again), counted(1, 3));
}

TEST_F(a_spool, leaves_files_of_others_alone) {
    for (const char *name : {"note", "1.spool", "000000000000000g.spool", "0000000000000000.spool"})
        set_content(folder + "/" + name, "hello");
    const auto before = files();
    spool one = open();
    EXPECT_TRUE(one.empty());
    EXPECT_EQ(files(), before);
}

// Lets files grow no further, as a full disk does.
class full_disk {
public:
    explicit full_disk(rlim_t bytes) {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~full_disk() { setrlimit(RLIMIT_FSIZE, &before_); }
    full_disk(full_disk &&) = delete;

private:
    rlimit before_{};
};

TEST_F(a_spool, on_a_full_disk_waits_in_memory_and_is_written_when_there_is_room_again) {
    {
        spool one = open();
        push(one, 1, 5);
        {
            const full_disk now(fs::file_size(first_file()) + 10);
            push(one, 6, 8);
            EXPECT_EQ(one.figures().waiting, 8u);
            EXPECT_EQ(one.figures().unwritten, 3u);
            EXPECT_EQ(one.lost_by_an_end(), 3u);
            letter first;
            ASSERT_TRUE(one.take(first));
            EXPECT_EQ(first, numbered(1)) << "the order stays";
            one.acknowledged();
        }
        push(one, 9, 9);
        EXPECT_EQ(one.figures().unwritten, 0u);
        EXPECT_EQ(one.figures().dropped, 0u);
    }
    ASSERT_EQ(said.size(), 2u);
    EXPECT_EQ(said[0], folder + ": File too large: what comes waits in memory");
    EXPECT_EQ(said[1], folder + ": can be written again");
    spool again = open();
    EXPECT_EQ(rest(again), counted(2, 9));
}

TEST_F(a_spool, on_a_full_disk_and_with_its_memory_full_drops_the_oldest) {
    const full_disk now(0);
    spool one = open(64 << 20, 10);
    push(one, 1, 25);
    EXPECT_EQ(one.figures().dropped, 15u);
    EXPECT_EQ(rest(one), counted(16, 25));
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(a_spool, without_a_folder_keeps_the_newest_in_memory) {
    spool one({"", 0, 10}, [this](const std::string &text) { said.push_back(text); });
    push(one, 1, 25);
    EXPECT_EQ(one.figures().dropped, 15u);
    EXPECT_EQ(one.figures().unwritten, 0u);
    EXPECT_EQ(one.lost_by_an_end(), 25u);
    EXPECT_EQ(rest(one), counted(16, 25));
    for (int number = 0; number < 10; ++number) one.acknowledged();
    EXPECT_EQ(one.lost_by_an_end(), 15u);
    EXPECT_THAT(said, ElementsAre("the spool is full: the oldest messages are dropped"));
}

// A child fills it, takes and acknowledges messages, and writes its progress to a pipe; it is killed at a random moment.
TEST_F(a_spool, survives_a_kill_at_any_moment) {
    for (int round = 0; round < 200; ++round) {
        int told[2];
        ASSERT_EQ(pipe(told), 0);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            close(told[0]);
            spool one({folder, 64 << 20, 10}, [](const std::string &) {});
            letter each;
            for (int number = 1;; ++number) {
                one.push(numbered(number, 300));
                if (write(told[1], "p", 1) != 1) std::_Exit(1);
                if (number % 3 == 0) continue; // it grows
                one.take(each);
                one.acknowledged();
                if (write(told[1], "a", 1) != 1) std::_Exit(1);
            }
        }
        close(told[1]);
        int pushed = 0, acknowledged = 0;
        const auto hear = [&] {
            char what = 0;
            if (read(told[0], &what, 1) != 1) return false;
            ++(what == 'p' ? pushed : acknowledged);
            return true;
        };
        for (int steps = 0; steps < 7 * round && hear();) ++steps;
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        while (hear()) {
        }
        close(told[0]);
        {
            spool one = open();
            const std::vector<int> left = rest(one);
            // Its last step may be done, and not yet in the pipe.
            if (left.empty()) {
                EXPECT_LE(pushed, acknowledged + 1) << "round " << round;
            } else {
                EXPECT_EQ(left, counted(left.front(), left.back()));
                EXPECT_THAT(left.front(),
                            testing::AllOf(testing::Ge(acknowledged + 1), testing::Le(acknowledged + 2)));
                EXPECT_THAT(left.back(), testing::AllOf(testing::Ge(pushed), testing::Le(pushed + 1)));
            }
        }
        for (const std::string &name : files()) {
            EXPECT_EQ(name.find("damaged"), std::string::npos);
            fs::remove(folder + "/" + name);
        }
    }
}

} // namespace
