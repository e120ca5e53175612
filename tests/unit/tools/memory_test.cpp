#include "support/house.h"

#include "tools/memory.h"

#include <algorithm>
#include <memory>

namespace {

using memory = House;

TEST_F(memory, block_is_zeroed_and_counted_until_it_is_given_back) {
    EXPECT_EQ(mem_total_cnt, 0U);
    auto *block = static_cast<unsigned char *>(sta_malloc(8));
    ASSERT_TRUE(block);
    EXPECT_EQ(mem_total_cnt, 1U);
    EXPECT_TRUE(std::all_of(block, block + 8, [](unsigned char byte) { return byte == 0; }));
    sta_free(block);
    EXPECT_EQ(mem_total_cnt, 0U);
}

TEST_F(memory, block_is_zeroed_where_a_used_one_was_given_back) {
    auto *used = static_cast<unsigned char *>(sta_malloc(200));
    std::fill(used, used + 200, static_cast<unsigned char>(0xa5));
    sta_free(used);
    auto *block = static_cast<unsigned char *>(sta_malloc(200));
    EXPECT_TRUE(std::all_of(block, block + 200, [](unsigned char byte) { return byte == 0; }));
    sta_free(block);
}

TEST_F(memory, block_of_size_0_counts_as_one) {
    void *block = sta_malloc(0);
    ASSERT_TRUE(block);
    EXPECT_EQ(mem_total_cnt, 1U);
    sta_free(block);
    EXPECT_EQ(mem_total_cnt, 0U);
}

TEST_F(memory, failed_allocations_give_null_and_count_nothing_and_log_nothing) {
    fail_allocation(1);
    EXPECT_EQ(sta_malloc(8), nullptr);
    EXPECT_TRUE(allocation_failed());
    fail_allocation(1);
    EXPECT_EQ(sta_strdup("x"), nullptr);
    EXPECT_TRUE(allocation_failed());
    EXPECT_EQ(mem_total_cnt, 0U);
    EXPECT_TRUE(log_records().empty());
}

TEST_F(memory, copy_of_a_text_is_counted) {
    char *copy = sta_strdup("x");
    EXPECT_STREQ(copy, "x");
    EXPECT_EQ(mem_total_cnt, 1U);
    sta_free(copy);
    EXPECT_EQ(mem_total_cnt, 0U);
}

TEST_F(memory, copy_of_an_empty_text_is_a_block_and_of_null_is_null) {
    char *copy = sta_strdup("");
    EXPECT_STREQ(copy, "");
    EXPECT_EQ(mem_total_cnt, 1U);
    sta_free(copy);
    EXPECT_EQ(sta_strdup(nullptr), nullptr);
    EXPECT_EQ(mem_total_cnt, 0U);
}

TEST_F(memory, giving_back_null_changes_nothing) {
    sta_free(nullptr);
    EXPECT_EQ(mem_total_cnt, 0U);
}

// The counter is a diagnosis only: a block that was never counted drives it below the truth.
TEST_F(memory, counter_wraps_below_0) {
    sta_free(strdup("not counted"));
    EXPECT_EQ(mem_total_cnt, 0xffffffffU);
    mem_total_cnt = 0;
}

TEST_F(memory, dump_logs_the_counter) {
    mem_total_cnt = 3;
    sta_mem_dump();
    mem_total_cnt = 0;
    ASSERT_EQ(log_records().size(), 1U);
    EXPECT_EQ(log_records()[0].level, 7);
    EXPECT_TRUE(logged("sta_mem_dump", "sta mem_total_cnt 3\n"));
    mem_total_cnt = 0xffffffffU; // more given back than counted
    sta_mem_dump();
    mem_total_cnt = 0;
    EXPECT_TRUE(logged("sta_mem_dump", "sta mem_total_cnt -1\n"));
}

TEST_F(memory, bytes_are_those_that_the_allocator_gave) {
    const std::size_t before = mem_total_bytes;
    void *block = sta_malloc(100);
    EXPECT_GE(mem_total_bytes, before + 100);
    void *larger = sta_realloc(block, 5000);
    EXPECT_GE(mem_total_bytes, before + 5000);
    sta_free(larger);
    EXPECT_EQ(mem_total_bytes, before);
}

TEST_F(memory, a_block_that_cannot_grow_is_as_it_was) {
    void *block = sta_malloc(100);
    const std::size_t before = mem_total_bytes;
    fail_allocation(1);
    EXPECT_EQ(sta_realloc(block, 5000), nullptr);
    EXPECT_EQ(mem_total_bytes, before);
    sta_free(block);
}

} // namespace
