// Which clients get a compressed answer, and what it holds.
#include "collector/http/gzip.h"

#include <gtest/gtest.h>
#include <zlib.h>

namespace {

std::string unpacked(std::string packed, std::size_t room) {
    std::string plain(room, '\0');
    z_stream stream{};
    EXPECT_EQ(inflateInit2(&stream, 15 + 16), Z_OK);
    stream.next_in = reinterpret_cast<Bytef *>(packed.data());
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = reinterpret_cast<Bytef *>(plain.data());
    stream.avail_out = static_cast<uInt>(plain.size());
    EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END);
    EXPECT_EQ(stream.avail_in, 0U) << "one member, and nothing behind it";
    plain.resize(stream.total_out);
    inflateEnd(&stream);
    return plain;
}

TEST(collector_gzip, is_taken_by_whom_asks_for_it) {
    for (const char *value :
         {"gzip", "GZip", "x-gzip", "gzip, deflate, br", "deflate,gzip", " br ; q=1 , gzip ; q=0.5 ",
          "gzip;q=0.001", "gzip;q=1", "gzip;q=1.000", "*", "*;q=0.1", "br, *", "gzip;level=9"})
        EXPECT_TRUE(takes_gzip(value)) << value;
}

TEST(collector_gzip, is_not_sent_to_anybody_else) {
    for (const char *value : {"",         " ",           ",",           ";",
                              "identity", "br, deflate", "gzip;q=0",    "gzip; q=0.000",
                              "gzip;Q=0", "*;q=0",       "gzip;q=0, *", "*, gzip;q=0",
                              "gzip;q=",  "gzip;q=no",   "gzip;q=-1",   "gzip;q",
                              "gzipped",  "zip",         "\"gzip\"",    "g zip"})
        EXPECT_FALSE(takes_gzip(value)) << value;
}

TEST(collector_gzip, holds_the_same_bytes) {
    std::string text;
    for (int i = 0; i < 100'000; ++i) text += "{\"mac\":\"02:00:00:00:00:" + std::to_string(i) + "\"},";
    const std::string packed = gzip(text);
    EXPECT_GT(packed.size(), 0U);
    EXPECT_LT(packed.size(), text.size() / 4);
    EXPECT_EQ(unpacked(packed, text.size() + 1), text);
}

TEST(collector_gzip, is_left_alone_where_it_saves_nothing) {
    EXPECT_EQ(gzip(""), "");
    EXPECT_EQ(gzip("short"), "");
    std::string noise;
    for (std::uint64_t x = 88172645463325252ULL; noise.size() < 100'000;) {
        x ^= x << 13, x ^= x >> 7, x ^= x << 17;
        noise += static_cast<char>(x);
    }
    EXPECT_EQ(gzip(noise), "");
}

TEST(collector_gzip, is_for_texts) {
    EXPECT_TRUE(worth_gzip("text/javascript; charset=utf-8"));
    EXPECT_TRUE(worth_gzip("application/json"));
    EXPECT_TRUE(worth_gzip("image/svg+xml"));
    EXPECT_FALSE(worth_gzip("image/png"));
    EXPECT_FALSE(worth_gzip("font/woff2"));
    EXPECT_FALSE(worth_gzip("application/octet-stream"));
}

} // namespace
