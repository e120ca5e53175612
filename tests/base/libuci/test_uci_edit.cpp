// Changes in memory: what they do to the package, and what they record.
#include "configuration.h"

namespace {

constexpr const char *net = "config interface 'lan'\n"
                            "\toption proto 'static'\n"
                            "\toption mtu '1500'\n"
                            "\tlist dns 'a'\n"
                            "\tlist dns 'b'\n"
                            "\tlist dns 'a'\n"
                            "config route\n"
                            "\toption target 'x'\n"
                            "config interface 'wan'\n";

using edit = int (*)(uci_context *, uci_ptr *);

class uci_edit : public testing::Test {
protected:
    uci_edit() : p(conf.load("net", net)) {}

    int apply(edit function, const std::string &tuple) {
        uci_ptr ptr = conf.at(tuple);
        const int rc = function(conf.ctx(), &ptr);
        EXPECT_EQ(conf.ctx()->err, rc);
        return rc;
    }
    // The recorded changes, one "command section.option=value" each, with the command as its character.
    std::vector<std::string> recorded() {
        std::vector<std::string> lines;
        uci_element *e;
        uci_foreach_element (&p->delta, e) {
            const uci_delta *d = uci_to_delta(e);
            std::string line = d->section;
            if (const char c = uci_command_char[d->cmd]) line.insert(0, 1, c);
            if (e->name) line += std::string(".") + e->name;
            if (d->value) line += std::string("=") + d->value;
            lines.push_back(line);
        }
        return lines;
    }
    std::string section(const char *name) {
        std::string text;
        const uci_section *s = uci_lookup_section(conf.ctx(), p, name);
        if (!s) return "(none)";
        uci_element *e, *item;
        uci_foreach_element (&s->options, e) {
            uci_option *o = uci_to_option(e);
            EXPECT_EQ(o->section, s);
            text += std::string(text.empty() ? "" : " ") + e->name + "=";
            if (o->type == UCI_TYPE_STRING) {
                text += o->v.string;
            } else {
                text += "[";
                uci_foreach_element (&o->v.list, item) text += std::string(item->name) + ",";
                text += "]";
            }
        }
        return text;
    }
    std::vector<std::string> names() {
        std::vector<std::string> all;
        uci_element *e;
        uci_foreach_element (&p->sections, e) all.push_back(e->name);
        return all;
    }
    using texts = std::vector<std::string>;

    configuration conf;
    uci_package *p;
};

TEST_F(uci_edit, setting_an_option_keeps_its_place) {
    EXPECT_EQ(apply(uci_set, "net.lan.proto=dhcp"), UCI_OK);
    EXPECT_EQ(section("lan"), "proto=dhcp mtu=1500 dns=[a,b,a,]");
    EXPECT_EQ(recorded(), texts{"lan.proto=dhcp"});
}

TEST_F(uci_edit, setting_a_new_option_appends_it) {
    EXPECT_EQ(apply(uci_set, "net.lan.note=it's\n\"x\" = y"), UCI_OK);
    EXPECT_EQ(section("lan"), "proto=static mtu=1500 dns=[a,b,a,] note=it's\n\"x\" = y");
}

TEST_F(uci_edit, setting_the_same_value_changes_and_records_nothing) {
    EXPECT_EQ(apply(uci_set, "net.lan.proto=static"), UCI_OK);
    EXPECT_EQ(apply(uci_set, "net.lan=interface"), UCI_OK);
    EXPECT_EQ(recorded(), texts{});
}

TEST_F(uci_edit, setting_an_empty_value_deletes) {
    EXPECT_EQ(apply(uci_set, "net.lan.proto="), UCI_OK);
    EXPECT_EQ(apply(uci_set, "net.wan="), UCI_OK);
    EXPECT_EQ(apply(uci_set, "net.lan.none="), UCI_OK) << "nothing to delete is a success";
    EXPECT_EQ(section("lan"), "mtu=1500 dns=[a,b,a,]");
    EXPECT_EQ(section("wan"), "(none)");
    EXPECT_EQ(recorded(), (texts{"-lan.proto", "-wan"}));
}

TEST_F(uci_edit, setting_a_string_on_a_list_replaces_the_list) {
    EXPECT_EQ(apply(uci_set, "net.lan.dns=c"), UCI_OK);
    EXPECT_EQ(section("lan"), "proto=static mtu=1500 dns=c");
}

TEST_F(uci_edit, setting_a_missing_section_creates_it) {
    EXPECT_EQ(apply(uci_set, "net.guest=interface"), UCI_OK);
    EXPECT_EQ(names().back(), "guest");
    EXPECT_EQ(recorded(), texts{"guest=interface"});
}

TEST_F(uci_edit, retyping_keeps_options_and_never_names_an_anonymous_section) {
    EXPECT_EQ(apply(uci_set, "net.@route[0]=route6"), UCI_OK);
    const uci_section *s = uci_lookup_section(conf.ctx(), p, "cfg02c8b4");
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s->type, "route6");
    EXPECT_TRUE(s->anonymous);
    EXPECT_EQ(section("cfg02c8b4"), "target=x");
    EXPECT_EQ(apply(uci_set, "net.cfg02c8b4=r"), UCI_OK)
        << "and again, from a text that is no longer the first";
    EXPECT_STREQ(s->type, "r");
}

TEST_F(uci_edit, what_cannot_be_set_is_an_invalid_argument) {
    EXPECT_EQ(apply(uci_set, "net.lan.proto"), UCI_ERR_INVAL);
    EXPECT_EQ(apply(uci_set, "net=x"), UCI_ERR_INVAL);
    EXPECT_EQ(apply(uci_set, "net.none.proto=x"), UCI_ERR_INVAL);
    EXPECT_EQ(apply(uci_set, "net.lan=two words"), UCI_ERR_INVAL);
    EXPECT_EQ(apply(uci_set, "net.@route[9]=x"), UCI_ERR_INVAL);
    EXPECT_EQ(recorded(), texts{});
}

TEST_F(uci_edit, the_place_follows_the_object_that_replaces_another) {
    uci_ptr ptr = conf.at("net.lan.proto=dhcp");
    ASSERT_EQ(uci_set(conf.ctx(), &ptr), UCI_OK);
    EXPECT_EQ(ptr.o, uci_lookup_option(conf.ctx(), ptr.s, "proto"));
    ptr.value = "none";
    ASSERT_EQ(uci_set(conf.ctx(), &ptr), UCI_OK);
    EXPECT_STREQ(ptr.o->v.string, "none");
    ptr = conf.at("net.guest=interface");
    ASSERT_EQ(uci_set(conf.ctx(), &ptr), UCI_OK);
    EXPECT_EQ(ptr.s, uci_lookup_section(conf.ctx(), p, "guest"));
}

TEST_F(uci_edit, a_place_may_be_given_by_texts_alone) {
    uci_ptr ptr{};
    ptr.p = p;
    ptr.section = "lan";
    ptr.option = "proto";
    ptr.value = "dhcp";
    ASSERT_EQ(uci_set(conf.ctx(), &ptr), UCI_OK);
    EXPECT_EQ(section("lan"), "proto=dhcp mtu=1500 dns=[a,b,a,]");
    ptr.option = "bad-name";
    ptr.o = nullptr;
    EXPECT_EQ(uci_set(conf.ctx(), &ptr), UCI_ERR_INVAL) << "the file could not be read again";
}

TEST_F(uci_edit, going_on_to_another_option_of_a_section_needs_no_look_up) {
    uci_ptr ptr = conf.at("net.lan.proto=dhcp");
    ASSERT_EQ(uci_set(conf.ctx(), &ptr), UCI_OK);
    ptr.o = nullptr;
    ptr.option = "mtu";
    ptr.value = "9000";
    ASSERT_EQ(uci_set(conf.ctx(), &ptr), UCI_OK);
    EXPECT_EQ(section("lan"), "proto=dhcp mtu=9000 dns=[a,b,a,]");
    ptr.o = nullptr;
    ptr.option = "dns";
    ptr.value = nullptr;
    ASSERT_EQ(uci_delete(conf.ctx(), &ptr), UCI_OK);
    EXPECT_EQ(section("lan"), "proto=dhcp mtu=9000");
}

TEST_F(uci_edit, names_and_values_may_be_those_of_the_object_that_is_replaced) {
    uci_ptr ptr = conf.at("net.lan.mtu");
    ptr.option = ptr.o->e.name;
    ptr.value = uci_lookup_option_string(conf.ctx(), ptr.s, "proto");
    ASSERT_EQ(uci_set(conf.ctx(), &ptr), UCI_OK);
    ptr.value = ptr.o->v.string;
    ASSERT_EQ(uci_add_list(conf.ctx(), &ptr), UCI_OK);
    EXPECT_EQ(section("lan"), "proto=static mtu=[static,static,] dns=[a,b,a,]");
    ptr.value = ptr.o->e.name;
    ASSERT_EQ(uci_rename(conf.ctx(), &ptr), UCI_OK);
    ptr.value = nullptr;
    ASSERT_EQ(uci_delete(conf.ctx(), &ptr), UCI_OK);
    EXPECT_EQ(ptr.option, nullptr) << "that name is gone with its option";
    EXPECT_EQ(ptr.last, &ptr.s->e);
    ptr.section = ptr.s->e.name;
    ASSERT_EQ(uci_delete(conf.ctx(), &ptr), UCI_OK);
    EXPECT_EQ(ptr.section, nullptr);
    EXPECT_EQ(ptr.last, &p->e);
}

TEST_F(uci_edit, deleting_removes_options_and_sections) {
    EXPECT_EQ(apply(uci_delete, "net.lan.mtu"), UCI_OK);
    EXPECT_EQ(apply(uci_delete, "net.@route[0]"), UCI_OK);
    EXPECT_EQ(section("lan"), "proto=static dns=[a,b,a,]");
    EXPECT_EQ(names(), (texts{"lan", "wan"}));
    EXPECT_EQ(recorded(), (texts{"-lan.mtu", "-cfg02c8b4"}));
}

TEST_F(uci_edit, deleting_what_is_missing_is_not_found_and_a_package_is_no_argument) {
    EXPECT_EQ(apply(uci_delete, "net.lan.none"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(apply(uci_delete, "net.none"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(apply(uci_delete, "net.none.proto"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(apply(uci_delete, "net"), UCI_ERR_INVAL);
}

TEST_F(uci_edit, deleting_by_index_takes_one_item_of_a_list) {
    EXPECT_EQ(apply(uci_delete, "net.lan.dns=1"), UCI_OK);
    EXPECT_EQ(section("lan"), "proto=static mtu=1500 dns=[a,a,]");
    EXPECT_EQ(apply(uci_delete, "net.lan.dns=2"), UCI_OK) << "past the end: nothing happens";
    EXPECT_EQ(apply(uci_delete, "net.lan.dns=-1"), UCI_OK);
    EXPECT_EQ(section("lan"), "proto=static mtu=1500 dns=[a,a,]");
    EXPECT_EQ(recorded(), texts{"-lan.dns=1"});
}

TEST_F(uci_edit, a_list_grows_at_its_end) {
    EXPECT_EQ(apply(uci_add_list, "net.lan.dns=c d"), UCI_OK);
    EXPECT_EQ(apply(uci_add_list, "net.wan.dns="), UCI_OK) << "an item may be empty";
    EXPECT_EQ(section("lan"), "proto=static mtu=1500 dns=[a,b,a,c d,]");
    EXPECT_EQ(section("wan"), "dns=[,]");
    EXPECT_EQ(recorded(), (texts{"|lan.dns=c d", "|wan.dns="}));
}

TEST_F(uci_edit, adding_to_a_string_makes_a_list_of_both_in_the_same_place) {
    EXPECT_EQ(apply(uci_add_list, "net.lan.proto=dhcp"), UCI_OK);
    EXPECT_EQ(section("lan"), "proto=[static,dhcp,] mtu=1500 dns=[a,b,a,]");
}

TEST_F(uci_edit, removing_from_a_list_takes_all_equal_items) {
    EXPECT_EQ(apply(uci_del_list, "net.lan.dns=a"), UCI_OK);
    EXPECT_EQ(section("lan"), "proto=static mtu=1500 dns=[b,]");
    EXPECT_EQ(apply(uci_del_list, "net.lan.dns=b"), UCI_OK);
    EXPECT_EQ(section("lan"), "proto=static mtu=1500 dns=[]");
    EXPECT_EQ(recorded(), (texts{"~lan.dns=a", "~lan.dns=b"}));
}

TEST_F(uci_edit, removing_from_a_string_or_from_nothing_does_nothing) {
    EXPECT_EQ(apply(uci_del_list, "net.lan.proto=static"), UCI_OK);
    EXPECT_EQ(apply(uci_del_list, "net.lan.none=a"), UCI_OK);
    EXPECT_EQ(recorded(), texts{});
}

TEST_F(uci_edit, list_changes_need_a_section_an_option_and_a_value) {
    for (edit function : {uci_add_list, uci_del_list}) {
        EXPECT_EQ(apply(function, "net.none.dns=a"), UCI_ERR_INVAL);
        EXPECT_EQ(apply(function, "net.lan=a"), UCI_ERR_INVAL);
        EXPECT_EQ(apply(function, "net.lan.dns"), UCI_ERR_INVAL);
    }
}

TEST_F(uci_edit, renaming_keeps_place_value_and_items) {
    EXPECT_EQ(apply(uci_rename, "net.lan.proto=protocol"), UCI_OK);
    EXPECT_EQ(apply(uci_rename, "net.lan.dns=resolver"), UCI_OK);
    EXPECT_EQ(apply(uci_rename, "net.lan=home"), UCI_OK);
    EXPECT_EQ(section("home"), "protocol=static mtu=1500 resolver=[a,b,a,]");
    EXPECT_EQ(names(), (texts{"home", "cfg02c8b4", "wan"}));
    EXPECT_EQ(recorded(), (texts{"@lan.proto=protocol", "@lan.dns=resolver", "@lan=home"}));
}

TEST_F(uci_edit, renaming_an_anonymous_section_names_it) {
    EXPECT_EQ(apply(uci_rename, "net.@route[0]=first"), UCI_OK);
    EXPECT_FALSE(uci_lookup_section(conf.ctx(), p, "first")->anonymous);
}

TEST_F(uci_edit, renaming_an_anonymous_section_to_its_generated_name_makes_that_its_own) {
    EXPECT_EQ(apply(uci_rename, "net.@route[0]=cfg02c8b4"), UCI_OK);
    EXPECT_FALSE(uci_lookup_section(conf.ctx(), p, "cfg02c8b4")->anonymous);
    EXPECT_EQ(recorded(), texts{"@cfg02c8b4=cfg02c8b4"});
}

TEST_F(uci_edit, a_place_follows_a_renaming) {
    uci_ptr ptr = conf.at("net.lan.proto=protocol");
    ASSERT_EQ(uci_rename(conf.ctx(), &ptr), UCI_OK);
    EXPECT_STREQ(ptr.option, "protocol");
    ptr.value = "dhcp";
    ASSERT_EQ(uci_set(conf.ctx(), &ptr), UCI_OK);
    EXPECT_EQ(section("lan"), "protocol=dhcp mtu=1500 dns=[a,b,a,]");
}

TEST_F(uci_edit, a_name_that_another_has_is_refused) {
    EXPECT_EQ(apply(uci_rename, "net.lan=wan"), UCI_ERR_DUPLICATE);
    EXPECT_EQ(apply(uci_rename, "net.lan.proto=mtu"), UCI_ERR_DUPLICATE);
    EXPECT_EQ(apply(uci_rename, "net.lan=lan"), UCI_OK) << "its own name is no change";
    EXPECT_EQ(apply(uci_rename, "net.lan.mtu=mtu"), UCI_OK);
    EXPECT_EQ(recorded(), texts{});
}

TEST_F(uci_edit, a_new_name_must_be_a_name_and_the_old_one_must_exist) {
    EXPECT_EQ(apply(uci_rename, "net.lan=a-b"), UCI_ERR_INVAL);
    EXPECT_EQ(apply(uci_rename, "net.lan="), UCI_ERR_INVAL);
    EXPECT_EQ(apply(uci_rename, "net.lan"), UCI_ERR_INVAL);
    EXPECT_EQ(apply(uci_rename, "net=x"), UCI_ERR_INVAL);
    EXPECT_EQ(apply(uci_rename, "net.none=x"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(apply(uci_rename, "net.lan.none=x"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(recorded(), texts{});
}

TEST_F(uci_edit, an_added_section_is_anonymous_and_last) {
    uci_section *s = nullptr;
    ASSERT_EQ(uci_add_section(conf.ctx(), p, "route", &s), UCI_OK);
    EXPECT_STREQ(s->e.name, "cfg04c8b4");
    EXPECT_TRUE(s->anonymous);
    EXPECT_EQ(s->package, p);
    EXPECT_EQ(names(), (texts{"lan", "cfg02c8b4", "wan", "cfg04c8b4"}));
    EXPECT_EQ(recorded(), texts{"+cfg04c8b4=route"});
    uci_section *untouched = s;
    EXPECT_EQ(uci_add_section(conf.ctx(), p, "two words", &s), UCI_ERR_INVAL);
    EXPECT_EQ(s, untouched);
}

TEST_F(uci_edit, deleting_a_section_does_not_give_its_generated_name_to_another) {
    uci_section *s = nullptr;
    EXPECT_EQ(apply(uci_delete, "net.wan"), UCI_OK);
    ASSERT_EQ(uci_add_section(conf.ctx(), p, "route", &s), UCI_OK);
    EXPECT_STREQ(s->e.name, "cfg04c8b4");
}

TEST_F(uci_edit, sections_move_to_a_position_counted_from_zero) {
    uci_section *lan = uci_lookup_section(conf.ctx(), p, "lan");
    EXPECT_EQ(uci_reorder_section(conf.ctx(), lan, 1), UCI_OK);
    EXPECT_EQ(names(), (texts{"cfg02c8b4", "lan", "wan"}));
    EXPECT_EQ(uci_reorder_section(conf.ctx(), lan, 50), UCI_OK);
    EXPECT_EQ(names(), (texts{"cfg02c8b4", "wan", "lan"}));
    EXPECT_EQ(uci_reorder_section(conf.ctx(), lan, -7), UCI_OK);
    EXPECT_EQ(names(), (texts{"lan", "cfg02c8b4", "wan"}));
    EXPECT_EQ(recorded(), (texts{"^lan=1", "^lan=50", "^lan=-7"}));
}

TEST_F(uci_edit, moving_a_section_to_where_it_is_records_nothing) {
    EXPECT_EQ(uci_reorder_section(conf.ctx(), uci_lookup_section(conf.ctx(), p, "wan"), 99), UCI_OK);
    EXPECT_EQ(uci_reorder_section(conf.ctx(), uci_lookup_section(conf.ctx(), p, "lan"), 0), UCI_OK);
    EXPECT_EQ(recorded(), texts{});
}

TEST_F(uci_edit, a_package_loaded_by_path_records_nothing) {
    conf.write("etc/other", "config t s\n");
    p = conf.load(conf.path("etc/other").c_str());
    EXPECT_EQ(apply(uci_set, "other.s.o=1"), UCI_OK);
    EXPECT_EQ(section("s"), "o=1");
    EXPECT_EQ(recorded(), texts{});
}

} // namespace
