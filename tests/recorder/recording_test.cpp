// Recordings, as wsm-record writes them and as anybody could: what is read from them, and why some are refused.
#include "record/recording.h"
#include "record/show.h"

#include <algorithm>
#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// Bytes, least significant first.
void add(std::string &out, std::uint64_t number, int bytes) {
    for (; bytes-- > 0; number >>= 8) out.push_back(static_cast<char>(number & 0xff));
}

std::string header(std::uint32_t version = 1) {
    std::string out = "wsm-rec\n";
    add(out, version, 4);
    const std::uint32_t order = 0x01020304; // of this machine
    out.append(reinterpret_cast<const char *>(&order), sizeof(order));
    add(out, 1'700'000'000'000'000, 8);
    add(out, 5'000'000, 8);
    add(out, 6'000'000, 8);
    return out;
}

std::string record(unsigned kind, std::uint64_t time, const std::string &body) {
    std::string out;
    add(out, body.size(), 4);
    add(out, kind, 2);
    add(out, 0, 2);
    add(out, time, 8);
    return out + body;
}

std::string request(std::uint32_t size, std::uint32_t kept, const std::string &bytes) {
    std::string body;
    add(body, 5, 4);
    add(body, 0, 4);
    add(body, 0, 4);
    add(body, 1500, 4);
    add(body, size, 4);
    add(body, kept, 4);
    body += "ath0";
    body.resize(60);
    return body + bytes;
}

std::string bus(const std::string &name, const std::string &message) {
    std::string body;
    add(body, name.size(), 2);
    return body + name + message;
}

struct reading {
    explicit reading(std::string text) : bytes(std::move(text)) {
        error = recording_read({reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size()}, whole);
    }
    std::string bytes;
    recording whole;
    std::string error;
};

std::string text(recorded::bytes bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

TEST(recording, without_a_record_is_one_all_the_same) {
    const reading read(header());
    EXPECT_THAT(read.error, IsEmpty());
    EXPECT_EQ(read.whole.wall, 1'700'000'000'000'000);
    EXPECT_EQ(read.whole.monotonic, 5'000'000);
    EXPECT_EQ(read.whole.uptime, 6'000'000);
    EXPECT_TRUE(read.whole.records.empty());
    EXPECT_THAT(read.whole.notice, IsEmpty());
}

TEST(recording, of_every_kind_of_record_is_read_and_shown) {
    std::string file;
    add(file, 1, 2);
    add(file, 1, 2);
    const reading read(header() + record(4, 0, file + "1 aa") + record(1, 10, "0123") +
                       record(2, 20, std::string("\x69\0\0\0", 4)) + record(3, 30, request(1024, 1, "ab")) +
                       record(5, 40, bus("ip_change", std::string("\0\0\0\4", 4))) +
                       record(6, 50, bus("client", "")) + record(7, 60, bus("set", "")) +
                       record(8, 2'000'000, ""));
    ASSERT_THAT(read.error, IsEmpty());
    ASSERT_EQ(read.whole.records.size(), 8u);
    const auto &records = read.whole.records;
    EXPECT_STREQ(std::get<recorded::file>(records[0].what).place->path, "/tmp/dhcp.leases");
    EXPECT_EQ(text(std::get<recorded::file>(records[0].what).content), "1 aa");
    EXPECT_EQ(text(std::get<recorded::message>(records[1].what).content), "0123");
    EXPECT_EQ(std::get<recorded::receive_error>(records[2].what).number, 105);
    const auto &asked = std::get<recorded::request>(records[3].what);
    EXPECT_EQ(asked.cmd, 5);
    EXPECT_EQ(asked.took, 1500u);
    EXPECT_EQ(asked.size, 1024u);
    EXPECT_EQ(asked.ifname, "ath0");
    EXPECT_EQ(text(asked.asked), "a");
    EXPECT_EQ(text(asked.answer), "b");
    EXPECT_EQ(std::get<recorded::bus_message>(records[4].what).name, "ip_change");
    EXPECT_EQ(std::get<recorded::bus_message>(records[4].what).message.size(), 4u);
    EXPECT_EQ(records[7].time, 2'000'000u);
    EXPECT_EQ(read.whole.length(), 2'000'000u);

    EXPECT_EQ(recording_line(read.whole), "recorded 2023-11-14 22:13:20 UTC, 8 records in 2.0 s");
    EXPECT_EQ(record_line(records[0]), "    0.000000  file     /tmp/dhcp.leases, 4 bytes");
    EXPECT_EQ(record_line(records[1]), "    0.000010  netlink  4 bytes");
    EXPECT_EQ(record_line(records[2]), "    0.000020  netlink  error 105: No buffer space available");
    EXPECT_EQ(record_line(records[3]), "    0.000030  request  5 ath0, 1024 bytes -> 0 after 1.500 ms: b");
    EXPECT_EQ(record_line(records[4]), "    0.000040  event    ip_change, 4 bytes");
    EXPECT_EQ(record_line(records[5]), "    0.000050  notify   client, 0 bytes");
    EXPECT_EQ(record_line(records[6]), "    0.000060  call     set, 0 bytes");
    EXPECT_EQ(record_line(records[7]), "    2.000000  end");
}

TEST(recording, torn_at_any_byte_of_its_last_record_is_read_without_it_and_says_so) {
    const std::string whole = header() + record(8, 1, "");
    const std::string last = record(1, 2, "0123456789");
    for (std::size_t kept = 1; kept < last.size(); ++kept) {
        const reading read(whole + last.substr(0, kept));
        EXPECT_THAT(read.error, IsEmpty()) << kept;
        EXPECT_EQ(read.whole.records.size(), 1u) << kept;
        EXPECT_EQ(read.whole.notice,
                  "the last record is torn: " + std::to_string(kept) + " bytes are left out");
    }
}

TEST(recording, of_nothing_or_of_something_else_is_refused) {
    EXPECT_EQ(reading("").error, "it is empty: the program did not load the recorder");
    EXPECT_EQ(reading("wsm-rec").error, "this is no recording");
    EXPECT_EQ(reading(header().substr(0, 39)).error, "this is no recording");
    EXPECT_EQ(reading("WSM-REC\n" + header().substr(8)).error, "this is no recording");
    EXPECT_EQ(reading(header(2)).error, "a recording of version 2; this program reads version 1");
    std::string swapped = header();
    std::reverse(swapped.begin() + 12, swapped.begin() + 16);
    EXPECT_EQ(reading(swapped).error, "it was made on a machine of the other byte order");
}

TEST(recording, with_a_record_that_cannot_be_is_refused_with_its_place) {
    std::string huge;
    add(huge, 0xffffffff, 4);
    huge.resize(16);
    EXPECT_EQ(reading(header() + record(8, 0, "") + huge).error,
              "record 2, at byte 56: longer than any record is");
    EXPECT_EQ(reading(header() + record(8, 5, "") + record(8, 4, "")).error,
              "record 2, at byte 56: its time is before the one above it, or far away");
    EXPECT_THAT(reading(header() + record(8, ~0ull, "")).error, HasSubstr("far away"));
}

class refused : public testing::TestWithParam<std::pair<unsigned, std::string>> {};

TEST_P(refused, record_of_wrong_content) {
    const auto &[kind, body] = GetParam();
    EXPECT_EQ(reading(header() + record(kind, 0, body)).error,
              "record 1, at byte 40: it cannot be understood");
}

INSTANTIATE_TEST_SUITE_P(
    recording, refused,
    testing::Values(std::pair(0u, std::string()), std::pair(9u, std::string()),
                    std::pair(8u, std::string("x")), std::pair(2u, std::string("123")),
                    std::pair(3u, request(8, 0, "").substr(0, 59)),
                    std::pair(3u, request(8, 9, "123456789")),           // more request bytes than the buffer
                    std::pair(3u, request(8, 5, "1234")),                // more request bytes than follow
                    std::pair(3u, request(8, 0, "123456789")),           // more answer bytes than the buffer
                    std::pair(3u, request((16u << 20) + 1, 0, "")),      // a buffer above the limit
                    std::pair(4u, std::string("\1\0\1", 3)),             // no state
                    std::pair(4u, std::string("\0\0\1\0", 4)),           // no file has number 0
                    std::pair(4u, std::string("\x9\0\1\0", 4)),          // nor 9
                    std::pair(4u, std::string("\1\0\3\0", 4)),           // an unknown state
                    std::pair(4u, std::string("\1\0\0\0x", 5)),          // absent, with a content
                    std::pair(5u, std::string("\1")),                    // half a length
                    std::pair(5u, std::string("\4\0abc", 5)),            // a name longer than the record
                    std::pair(5u, std::string("\3\0a\0b", 5)),           // a name with a zero byte
                    std::pair(5u, bus("x", std::string("\0\0\0", 3))),   // an incomplete message
                    std::pair(5u, bus("x", std::string("\0\0\0\5", 4))), // shorter than its length says
                    std::pair(5u, bus("x", std::string("\0\0\0\0", 4)))));

TEST(recording, shows_foreign_text_escaped) {
    const reading read(header() + record(5, 0, bus("a\nb\x1b[2J", "")));
    EXPECT_EQ(record_line(read.whole.records[0]), "    0.000000  event    a\\nb\\x1b[2J, 0 bytes");
}

} // namespace
