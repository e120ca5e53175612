#include "tests/temporary_folder.h"

#include <gtest/gtest.h>
#include <libubox/utils.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

std::string encoded(const std::string &bytes, std::size_t room = 100) {
    std::string text(room, '#');
    const int len = b64_encode(bytes.data(), bytes.size(), text.data(), room);
    if (len < 0) return "refused";
    EXPECT_EQ(text[static_cast<std::size_t>(len)], 0);
    return text.substr(0, static_cast<std::size_t>(len));
}

std::string decoded(const char *text, std::size_t room = 100) {
    std::string bytes(room, '#');
    const int len = b64_decode(text, bytes.data(), room);
    if (len < 0) return "refused";
    EXPECT_TRUE(static_cast<std::size_t>(len) == room || bytes[static_cast<std::size_t>(len)] == 0);
    return bytes.substr(0, static_cast<std::size_t>(len));
}

TEST(base64, encodes_the_vectors_of_the_standard) {
    EXPECT_EQ(encoded(""), "");
    EXPECT_EQ(encoded("f"), "Zg==");
    EXPECT_EQ(encoded("fo"), "Zm8=");
    EXPECT_EQ(encoded("foo"), "Zm9v");
    EXPECT_EQ(encoded("foob"), "Zm9vYg==");
    EXPECT_EQ(encoded("fooba"), "Zm9vYmE=");
    EXPECT_EQ(encoded("foobar"), "Zm9vYmFy");
    EXPECT_EQ(encoded("\xfb\xff\xbf"), "+/+/");
}

TEST(base64, encoding_needs_room_for_the_text_and_its_nul) {
    EXPECT_EQ(encoded("foo", 4), "refused");
    EXPECT_EQ(encoded("foo", 5), "Zm9v");
    EXPECT_EQ(encoded("", 1), "");
    EXPECT_EQ(encoded("foo", B64_ENCODE_LEN(3)), "Zm9v");
    EXPECT_EQ(encoded("foob", B64_ENCODE_LEN(4)), "Zm9vYg==");
}

TEST(base64, decodes_what_it_encodes) {
    std::string bytes;
    for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
    for (std::size_t len = 0; len <= bytes.size(); ++len)
        EXPECT_EQ(decoded(encoded(bytes.substr(0, len), 1000).c_str(), 1000), bytes.substr(0, len));
}

TEST(base64, decoding_skips_white_space_anywhere) {
    EXPECT_EQ(decoded(" Z m\n9v\t"), "foo");
    EXPECT_EQ(decoded("Zg=\r\n= "), "f");
    EXPECT_EQ(decoded(" "), "");
}

TEST(base64, decoding_refuses_what_no_encoder_writes) {
    for (const char *text : {"Z", "Zg", "Zg=", "Zg===", "Zm8", "Zm8==", "Zm9v=", "=",
                             "Zm9v====", "Zg==Zg==", "Zm-v", "Zm9v*", "Zg=g", "Zh==", "Zm9=", "Zm\x80v"})
        EXPECT_EQ(decoded(text), "refused") << text;
}

TEST(base64, decoding_adds_a_nul_only_if_there_is_room) {
    EXPECT_EQ(decoded("Zm9v", 3), "foo");
    EXPECT_EQ(decoded("Zm9v", 2), "refused");
    EXPECT_EQ(decoded("Zm8=", 2), "fo");
    EXPECT_EQ(decoded("Zm8=", 1), "refused");
    EXPECT_EQ(decoded("Zg==", 1), "f");
    EXPECT_EQ(decoded("Zg==", 0), "refused");
    EXPECT_EQ(decoded("Zm9vYg==", B64_DECODE_LEN(8)), "foob");
}

TEST(calloc_a_macro, gives_zeroed_parts_aligned_in_one_block) {
    char *second = nullptr;
    int *third = nullptr;
    auto *first = static_cast<char *>(
        calloc_a(std::size_t{3}, &second, std::size_t{sizeof(std::size_t) + 1}, &third, sizeof(int)));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(second, first + sizeof(std::size_t));
    EXPECT_EQ(reinterpret_cast<char *>(third), second + 2 * sizeof(std::size_t));
    EXPECT_EQ(*third, 0);
    for (std::size_t i = 0; i < sizeof(std::size_t) + 1; ++i) EXPECT_EQ(second[i], 0);
    std::free(first); // frees all: the leak check would report the rest
}

TEST(calloc_a_macro, refuses_a_total_that_overflows_and_stores_nothing) {
    void *second = &second;
    EXPECT_EQ(calloc_a(std::size_t{16}, &second, SIZE_MAX - 15), nullptr);
    EXPECT_EQ(second, &second);
    EXPECT_EQ(calloc_a(SIZE_MAX), nullptr);
}

TEST(byte_order, swaps_constants_and_evaluates_arguments_once) {
    static_assert(cpu_to_be16(0x1234) == (__BYTE_ORDER == __LITTLE_ENDIAN ? 0x3412 : 0x1234));
    static_assert(be32_to_cpu(cpu_to_be32(0x12345678u)) == 0x12345678);
    static_assert(le64_to_cpu(cpu_to_le64(0x123456789abcdef0u)) == 0x123456789abcdef0);
    static const std::uint32_t in_an_initialiser = const_cpu_to_be32(1);
    const unsigned char first = *reinterpret_cast<const unsigned char *>(&in_an_initialiser);
    EXPECT_EQ(first, 0);

    std::uint16_t n = 0x0102;
    const std::uint16_t big = cpu_to_be16(n++);
    EXPECT_EQ(n, 0x0103);
    EXPECT_EQ(std::memcmp(&big, "\1\2", 2), 0);
    const std::uint64_t big64 = cpu_to_be64(0x0102030405060708);
    EXPECT_EQ(std::memcmp(&big64, "\1\2\3\4\5\6\7\10", 8), 0);
    const std::uint32_t little = cpu_to_le32(0x01020304u);
    EXPECT_EQ(std::memcmp(&little, "\4\3\2\1", 4), 0);
}

TEST(ring_buffer, shows_its_bytes_twice_back_to_back) {
    const unsigned order = cbuf_order(100000);
    EXPECT_EQ(order, 17u);
    const std::size_t size = cbuf_size(order);
    EXPECT_EQ(size, 131072u);
    auto *ring = static_cast<char *>(cbuf_alloc(order));
    ASSERT_NE(ring, nullptr);
    ring[0] = 'a';
    ring[2 * size - 1] = 'z';
    EXPECT_EQ(ring[size], 'a');
    EXPECT_EQ(ring[size - 1], 'z');
    cbuf_free(ring, order);
}

TEST(ring_buffer, is_a_page_at_least) {
    EXPECT_EQ(cbuf_order(2), 1u);
    EXPECT_EQ(cbuf_order(3), 2u);
    EXPECT_EQ(cbuf_size(1), static_cast<unsigned long>(sysconf(_SC_PAGESIZE)));
}

class make_directories : public testing::Test {
protected:
    const temporary_folder folder;
    const std::string &base = folder.path;
};

TEST_F(make_directories, creates_parents_and_restores_the_text) {
    std::string path = base + "/a/b/c";
    EXPECT_EQ(mkdir_p(path.data(), 0700), 0);
    EXPECT_EQ(path, base + "/a/b/c");
    EXPECT_TRUE(std::filesystem::is_directory(path));
    EXPECT_EQ(mkdir_p(path.data(), 0700), 0) << "existing is fine";
    path = base + "//x//y/";
    EXPECT_EQ(mkdir_p(path.data(), 0700), 0);
    EXPECT_TRUE(std::filesystem::is_directory(base + "/x/y"));
}

TEST_F(make_directories, fails_where_a_file_is_in_the_way) {
    std::ofstream{base + "/file"} << "x";
    std::string path = base + "/file/sub";
    EXPECT_EQ(mkdir_p(path.data(), 0700), -1);
    EXPECT_EQ(path, base + "/file/sub");
    path = base + "/file";
    EXPECT_EQ(mkdir_p(path.data(), 0700), -1);
    std::string nothing;
    EXPECT_EQ(mkdir_p(nothing.data(), 0700), -1);
}

TEST(array_size, counts_elements) {
    const int five[5] = {};
    EXPECT_EQ(ARRAY_SIZE(five), 5u);
    BUILD_BUG_ON(sizeof(five) != 5 * sizeof(int));
}

} // namespace
