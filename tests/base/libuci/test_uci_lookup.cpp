// Finding sections and options, by tuple and one by one.
#include "configuration.h"

namespace {

constexpr const char *wireless = "config wifi-device 'wifi0'\n"
                                 "\toption channel 6\n"
                                 "config wifi-iface\n"
                                 "\toption ssid Office\n"
                                 "config wifi-iface guest0\n"
                                 "\toption ssid Guest\n"
                                 "\tlist acl a\n"
                                 "\tlist acl b\n"
                                 "config wifi-iface\n"
                                 "\toption ssid Lab\n";

constexpr int done = uci_ptr::UCI_LOOKUP_DONE;
constexpr int complete = done | uci_ptr::UCI_LOOKUP_COMPLETE;
constexpr int extended = uci_ptr::UCI_LOOKUP_EXTENDED;

struct tuple_case {
    const char *tuple;
    bool extended;
    int code, flags, target;
    const char *section; // where the look-up ended
    const char *option;
};

void PrintTo(const tuple_case &c, std::ostream *out) { *out << c.tuple << (c.extended ? " (extended)" : ""); }

class uci_lookup : public testing::TestWithParam<tuple_case> {};

TEST_P(uci_lookup, tells_how_far_it_came) {
    configuration conf;
    conf.write("etc/wireless", wireless);
    const tuple_case &want = GetParam();
    std::string tuple = want.tuple;
    uci_ptr ptr;
    memset(&ptr, 0x55, sizeof(ptr));
    ASSERT_EQ(uci_lookup_ptr(conf.ctx(), &ptr, tuple.data(), want.extended), want.code);
    EXPECT_EQ(conf.ctx()->err, want.code);
    if (want.code != UCI_OK) return;
    EXPECT_EQ(static_cast<int>(ptr.flags), want.flags);
    EXPECT_EQ(static_cast<int>(ptr.target), want.target);
    ASSERT_NE(ptr.p, nullptr);
    EXPECT_STREQ(ptr.s ? ptr.s->e.name : nullptr, want.section);
    EXPECT_STREQ(ptr.o ? ptr.o->e.name : nullptr, want.option);
    const uci_element *deepest = ptr.o ? &ptr.o->e : ptr.s ? &ptr.s->e : &ptr.p->e;
    EXPECT_EQ(ptr.last, deepest);
}

INSTANTIATE_TEST_SUITE_P(
    tuples, uci_lookup,
    testing::Values(
        tuple_case{"wireless", true, UCI_OK, complete, 2, nullptr, nullptr},
        tuple_case{"wireless.wifi0", true, UCI_OK, complete, 3, "wifi0", nullptr},
        tuple_case{"wireless.wifi0.channel", true, UCI_OK, complete, 4, "wifi0", "channel"},
        tuple_case{"wireless.wifi0.channel=a=b", true, UCI_OK, complete, 4, "wifi0", "channel"},
        tuple_case{"wireless.wifi0.none", true, UCI_OK, done, 4, "wifi0", nullptr},
        tuple_case{"wireless.none.channel", true, UCI_OK, done, 4, nullptr, nullptr},
        tuple_case{"wireless.none", true, UCI_OK, done, 3, nullptr, nullptr},
        tuple_case{"wireless.cfg023579.ssid", false, UCI_OK, complete, 4, "cfg023579", "ssid"},
        tuple_case{"wireless.@wifi-iface[1]", true, UCI_OK, complete | extended, 3, "guest0", nullptr},
        tuple_case{"wireless.@wifi-iface[-3].ssid", true, UCI_OK, complete | extended, 4, "cfg023579",
                   "ssid"},
        tuple_case{"wireless.@[-1].ssid", true, UCI_OK, complete | extended, 4, "cfg043579", "ssid"},
        tuple_case{"wireless.@wifi-iface[]", true, UCI_OK, complete | extended, 3, "cfg023579", nullptr},
        tuple_case{"wireless.@wifi-iface[ +1]", true, UCI_OK, complete | extended, 3, "guest0", nullptr},
        tuple_case{"wireless.@wifi-iface[3]", true, UCI_OK, done | extended, 3, nullptr, nullptr},
        tuple_case{"wireless.@wifi-ifac[0]", true, UCI_OK, done | extended, 3, nullptr, nullptr},
        tuple_case{"wireless.@wifi-iface0[0]", true, UCI_OK, done | extended, 3, nullptr, nullptr},
        tuple_case{"wireless.@wifi-iface[-4]", true, UCI_OK, done | extended, 3, nullptr, nullptr},
        tuple_case{"wireless.@wifi-iface[99999999999999999999]", true, UCI_OK, done | extended, 3, nullptr,
                   nullptr},
        tuple_case{"wireless.@wifi-iface[-99999999999999999999]", true, UCI_OK, done | extended, 3, nullptr,
                   nullptr},
        tuple_case{"nosuch.a.b", true, UCI_ERR_NOTFOUND, 0, 0, nullptr, nullptr},
        tuple_case{"", true, UCI_ERR_PARSE, 0, 0, nullptr, nullptr},
        tuple_case{".wifi0", true, UCI_ERR_PARSE, 0, 0, nullptr, nullptr},
        tuple_case{"wireless.wifi0.", true, UCI_ERR_PARSE, 0, 0, nullptr, nullptr},
        tuple_case{"wireless.wifi0.a-b", true, UCI_ERR_PARSE, 0, 0, nullptr, nullptr},
        tuple_case{"wireless.wifi0.a.b", true, UCI_ERR_PARSE, 0, 0, nullptr, nullptr},
        tuple_case{"wireless.wifi0.a=\x01", true, UCI_ERR_PARSE, 0, 0, nullptr, nullptr}));

class uci_bad_section : public testing::TestWithParam<const char *> {};

TEST_P(uci_bad_section, is_an_invalid_argument) {
    configuration conf;
    conf.write("etc/wireless", wireless);
    const uci_ptr zero{};
    uci_ptr ptr;
    std::string tuple = std::string("wireless.") + GetParam();
    EXPECT_EQ(uci_lookup_ptr(conf.ctx(), &ptr, tuple.data(), true), UCI_ERR_INVAL);
    EXPECT_EQ(memcmp(&ptr, &zero, sizeof(ptr)), 0);
    tuple = std::string("wireless.") + GetParam();
    EXPECT_EQ(uci_lookup_ptr(conf.ctx(), &ptr, tuple.data(), false), UCI_ERR_INVAL);
    EXPECT_NE(ptr.p, nullptr);
    EXPECT_EQ(ptr.s, nullptr);
}

INSTANTIATE_TEST_SUITE_P(names, uci_bad_section,
                         testing::Values("", "a-b", "@", "@wifi-iface", "@wifi-iface[", "@wifi-iface[0",
                                         "@wifi-iface[x]", "@wifi-iface[0x1]", "@wifi-iface[0]x",
                                         "@wifi-iface[ ]", "@wifi-iface[-]"));

TEST(uci_lookup_ptr, an_index_is_refused_where_only_names_are_wanted) {
    configuration conf;
    conf.load("wireless", wireless);
    uci_ptr ptr;
    std::string tuple = "wireless.@wifi-iface[0]";
    EXPECT_EQ(uci_lookup_ptr(conf.ctx(), &ptr, tuple.data(), false), UCI_ERR_INVAL);
}

TEST(uci_lookup_ptr, an_index_is_replaced_by_the_name_of_the_section) {
    configuration conf;
    conf.load("wireless", wireless);
    uci_ptr ptr = conf.at("wireless.@wifi-iface[1].ssid");
    EXPECT_STREQ(ptr.section, "guest0");
    EXPECT_EQ(ptr.section, ptr.s->e.name);
}

TEST(uci_lookup_ptr, without_a_tuple_the_texts_of_the_place_are_looked_up) {
    configuration conf;
    conf.write("etc/wireless", wireless);
    uci_ptr ptr{};
    ptr.package = "wireless";
    ptr.section = "guest0";
    ptr.option = "ssid";
    ASSERT_EQ(uci_lookup_ptr(conf.ctx(), &ptr, nullptr, false), UCI_OK);
    EXPECT_EQ(static_cast<int>(ptr.flags), complete);
    EXPECT_STREQ(ptr.o->v.string, "Guest");

    uci_ptr nothing{};
    EXPECT_EQ(uci_lookup_ptr(conf.ctx(), &nothing, nullptr, false), UCI_ERR_INVAL);
}

TEST(uci_lookup_ptr, a_package_that_cannot_be_read_keeps_its_error) {
    configuration conf;
    conf.write("etc/bad", "nonsense\n");
    uci_ptr ptr;
    std::string tuple = "bad.a";
    EXPECT_EQ(uci_lookup_ptr(conf.ctx(), &ptr, tuple.data(), true), UCI_ERR_PARSE);
    EXPECT_EQ(ptr.p, nullptr);
    EXPECT_EQ(conf.error(), "Parse error (invalid command) at line 1, byte 0");
}

TEST(uci_lookup_helpers, a_list_has_no_string) {
    configuration conf;
    uci_package *p = conf.load("wireless", wireless);
    uci_section *s = uci_lookup_section(conf.ctx(), p, "guest0");
    EXPECT_STREQ(uci_lookup_option_string(conf.ctx(), s, "ssid"), "Guest");
    EXPECT_EQ(uci_lookup_option_string(conf.ctx(), s, "acl"), nullptr);
    uci_option *o = uci_lookup_option(conf.ctx(), s, "acl");
    EXPECT_EQ(o->type, UCI_TYPE_LIST);
    const uci_element *first = list_to_element(o->v.list.next);
    EXPECT_EQ(first->type, UCI_TYPE_ITEM);
    EXPECT_STREQ(first->name, "a");
}

TEST(uci_lookup_helpers, what_is_missing_is_null_and_an_error_in_the_context) {
    configuration conf;
    uci_package *p = conf.load("wireless", wireless);
    EXPECT_EQ(uci_lookup_section(conf.ctx(), p, "@wifi-iface[0]"), nullptr);
    EXPECT_EQ(conf.ctx()->err, UCI_ERR_NOTFOUND);
    EXPECT_EQ(uci_lookup_package(conf.ctx(), "nosuch"), nullptr);
    EXPECT_EQ(uci_lookup_option_string(conf.ctx(), uci_lookup_section(conf.ctx(), p, "wifi0"), "none"),
              nullptr);
    EXPECT_EQ(conf.ctx()->err, UCI_ERR_NOTFOUND);
}

TEST(uci_parse_section, finds_options_of_the_wanted_kind) {
    configuration conf;
    uci_package *p = conf.load("wireless", wireless);
    const uci_parse_option wanted[] = {{"acl", UCI_TYPE_LIST},
                                       {"ssid", UCI_TYPE_STRING},
                                       {"ssid", UCI_TYPE_LIST},
                                       {"none", UCI_TYPE_STRING}};
    uci_option *found[4];
    uci_parse_section(uci_lookup_section(conf.ctx(), p, "guest0"), wanted, 4, found);
    ASSERT_NE(found[0], nullptr);
    EXPECT_STREQ(found[0]->e.name, "acl");
    ASSERT_NE(found[1], nullptr);
    EXPECT_STREQ(found[1]->v.string, "Guest");
    EXPECT_EQ(found[2], nullptr);
    EXPECT_EQ(found[3], nullptr);
}

TEST(uci_hash_options, changes_with_names_values_and_items) {
    configuration conf;
    uci_package *p = conf.load("wireless", wireless);
    const uci_parse_option wanted[] = {{"acl", UCI_TYPE_LIST}, {"ssid", UCI_TYPE_STRING}};
    uci_option *found[2];
    uci_section *s = uci_lookup_section(conf.ctx(), p, "guest0");
    const auto hash = [&](int n) {
        uci_parse_section(s, wanted, 2, found);
        return uci_hash_options(found, n);
    };
    const auto before = hash(2);
    EXPECT_EQ(before, hash(2));
    EXPECT_NE(before, hash(1));
    uci_ptr ptr = conf.at("wireless.guest0.acl=c");
    ASSERT_EQ(uci_add_list(conf.ctx(), &ptr), UCI_OK);
    const auto with_item = hash(2);
    EXPECT_NE(before, with_item);
    ptr = conf.at("wireless.guest0.ssid=guest");
    ASSERT_EQ(uci_set(conf.ctx(), &ptr), UCI_OK);
    EXPECT_NE(with_item, hash(2));
}

TEST(uci_hash_options, tells_apart_items_that_share_their_bytes) {
    configuration conf;
    uci_package *p =
        conf.load("lists", "config t a\n\tlist l ab\n\tlist l c\nconfig t b\n\tlist l a\n\tlist l bc\n");
    uci_option *a = uci_lookup_option(conf.ctx(), uci_lookup_section(conf.ctx(), p, "a"), "l");
    uci_option *b = uci_lookup_option(conf.ctx(), uci_lookup_section(conf.ctx(), p, "b"), "l");
    EXPECT_NE(uci_hash_options(&a, 1), uci_hash_options(&b, 1));
}

} // namespace
