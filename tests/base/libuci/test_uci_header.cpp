// The public structures as other programs have them compiled in, and the header seen from C.
#include "configuration.h"

extern "C" {
int uci_count_items_in_c(uci_context *ctx, uci_package *p, const char *section, const char *option);
const char *uci_first_type_in_c(uci_package *p);
const char *uci_wrong_cast_in_c(uci_option *o);
int uci_complete_in_c(uci_context *ctx, char *tuple);
}

namespace {

TEST(uci_header, public_fields_are_where_programs_expect_them) {
    if (sizeof(void *) != 8) GTEST_SKIP() << "the numbers are those of a 64-bit host";
    EXPECT_EQ(sizeof(uci_list), 16u);
    EXPECT_EQ(offsetof(uci_element, type), 16u);
    EXPECT_EQ(offsetof(uci_element, name), 24u);
    EXPECT_EQ(sizeof(uci_element), 32u);

    EXPECT_EQ(offsetof(uci_package, sections), 32u);
    EXPECT_EQ(offsetof(uci_package, ctx), 48u);
    EXPECT_EQ(offsetof(uci_package, has_delta), 56u);
    EXPECT_EQ(offsetof(uci_package, uses_conf2), 57u);
    EXPECT_EQ(offsetof(uci_package, path), 64u);
    EXPECT_EQ(offsetof(uci_package, n_section), 88u);
    EXPECT_EQ(offsetof(uci_package, delta), 96u);
    EXPECT_EQ(offsetof(uci_package, saved_delta), 112u);
    EXPECT_EQ(sizeof(uci_package), 128u);

    EXPECT_EQ(offsetof(uci_section, options), 32u);
    EXPECT_EQ(offsetof(uci_section, package), 48u);
    EXPECT_EQ(offsetof(uci_section, anonymous), 56u);
    EXPECT_EQ(offsetof(uci_section, type), 64u);
    EXPECT_EQ(sizeof(uci_section), 72u);

    EXPECT_EQ(offsetof(uci_option, section), 32u);
    EXPECT_EQ(offsetof(uci_option, type), 40u);
    EXPECT_EQ(offsetof(uci_option, v), 48u);
    EXPECT_EQ(sizeof(uci_option), 64u);

    EXPECT_EQ(offsetof(uci_ptr, flags), 4u);
    EXPECT_EQ(offsetof(uci_ptr, p), 8u);
    EXPECT_EQ(offsetof(uci_ptr, s), 16u);
    EXPECT_EQ(offsetof(uci_ptr, o), 24u);
    EXPECT_EQ(offsetof(uci_ptr, last), 32u);
    EXPECT_EQ(offsetof(uci_ptr, package), 40u);
    EXPECT_EQ(offsetof(uci_ptr, section), 48u);
    EXPECT_EQ(offsetof(uci_ptr, option), 56u);
    EXPECT_EQ(offsetof(uci_ptr, value), 64u);
    EXPECT_EQ(sizeof(uci_ptr), 72u);

    EXPECT_EQ(offsetof(uci_delta, cmd), 32u);
    EXPECT_EQ(offsetof(uci_delta, section), 40u);
    EXPECT_EQ(offsetof(uci_delta, value), 48u);
    EXPECT_EQ(sizeof(uci_delta), 56u);

    EXPECT_EQ(offsetof(uci_context, pctx), 16u);
    EXPECT_EQ(offsetof(uci_context, backend), 24u);
    EXPECT_EQ(offsetof(uci_context, backends), 32u);
    EXPECT_EQ(offsetof(uci_context, flags), 48u);
    EXPECT_EQ(offsetof(uci_context, confdir), 56u);
    EXPECT_EQ(offsetof(uci_context, savedir), 64u);
    EXPECT_EQ(offsetof(uci_context, conf2dir), 72u);
    EXPECT_EQ(offsetof(uci_context, delta_path), 80u);
    EXPECT_EQ(offsetof(uci_context, err), 96u);

    EXPECT_EQ(sizeof(uci_backend), 72u);
    EXPECT_EQ(sizeof(uci_parse_option), 16u);
}

TEST(uci_header, numbers_are_those_of_the_interface) {
    EXPECT_EQ(UCI_ERR_MEM, 1);
    EXPECT_EQ(UCI_ERR_INVAL, 2);
    EXPECT_EQ(UCI_ERR_NOTFOUND, 3);
    EXPECT_EQ(UCI_ERR_IO, 4);
    EXPECT_EQ(UCI_ERR_PARSE, 5);
    EXPECT_EQ(UCI_ERR_DUPLICATE, 6);
    EXPECT_EQ(UCI_ERR_UNKNOWN, 7);
    EXPECT_EQ(UCI_ERR_LAST, 8);
    EXPECT_EQ(UCI_TYPE_PACKAGE, 2);
    EXPECT_EQ(UCI_TYPE_SECTION, 3);
    EXPECT_EQ(UCI_TYPE_OPTION, 4);
    EXPECT_EQ(UCI_TYPE_ITEM, 7);
    EXPECT_EQ(UCI_CMD_CHANGE, 2);
    EXPECT_EQ(UCI_CMD_LIST_DEL, 6);
    EXPECT_EQ(__UCI_CMD_LAST, 6);
    EXPECT_EQ(std::string(uci_command_char, 7), std::string("+-\0@^|~", 7));
    EXPECT_EQ(uci_ptr::UCI_LOOKUP_DONE, 1);
    EXPECT_EQ(uci_ptr::UCI_LOOKUP_COMPLETE, 2);
    EXPECT_EQ(uci_ptr::UCI_LOOKUP_EXTENDED, 4);
}

TEST(uci_header, a_c_program_reads_a_package) {
    configuration conf;
    uci_package *p = conf.load("lists", "config t 's'\n\tlist l a\n\tlist l b\n\toption o c\n");
    EXPECT_STREQ(uci_first_type_in_c(p), "t");
    EXPECT_EQ(uci_count_items_in_c(conf.ctx(), p, "s", "l"), 2);
    EXPECT_EQ(uci_count_items_in_c(conf.ctx(), p, "s", "o"), -1);
    std::string tuple = "lists.s.o";
    EXPECT_TRUE(uci_complete_in_c(conf.ctx(), tuple.data()));
}

TEST(uci_header, a_checked_cast_to_the_wrong_kind_complains) {
    configuration conf;
    conf.load("one", "config t 's'\n\toption o c\n");
    uci_ptr ptr = conf.at("one.s.o");
    testing::internal::CaptureStderr();
    EXPECT_STREQ(uci_wrong_cast_in_c(ptr.o), "o");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "uci_wrong_cast_in_c: element has type 4, not 3\n");
}

TEST(uci_header, the_bit_field_helper_sets_bits_across_words) {
    unsigned long bits[2] = {};
    uci_bitfield_set(bits, 1);
    uci_bitfield_set(bits, static_cast<int>(BITS_PER_LONG));
    EXPECT_EQ(bits[0], 2ul);
    EXPECT_EQ(bits[1], 1ul);
}

} // namespace
