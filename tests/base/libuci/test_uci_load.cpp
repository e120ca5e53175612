// Loading packages: names, files, pending changes.
#include "configuration.h"

#include <sys/stat.h>
#include <unistd.h>

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

int load_code(const configuration &conf, const std::string &name) {
    auto *untouched = reinterpret_cast<uci_package *>(1);
    uci_package *p = untouched;
    const int rc = uci_load(conf.ctx(), name.c_str(), &p);
    EXPECT_EQ(conf.ctx()->err, rc);
    EXPECT_EQ(p == untouched, rc != UCI_OK) << "the output changes on success only";
    return rc;
}

TEST(uci_load, a_package_by_name_comes_with_its_pending_changes) {
    configuration conf;
    conf.write("save/wireless", "wireless.wifi0.channel='11'\n");
    uci_package *p = conf.load("wireless", wireless);
    EXPECT_TRUE(p->has_delta);
    EXPECT_STREQ(p->e.name, "wireless");
    EXPECT_EQ(p->path, conf.path("etc/wireless"));
    EXPECT_STREQ(uci_lookup_option_string(conf.ctx(), uci_lookup_section(conf.ctx(), p, "wifi0"), "channel"),
                 "11");
}

TEST(uci_load, a_package_by_path_comes_without_pending_changes_and_overrides) {
    configuration conf;
    conf.write("save/wireless", "wireless.wifi0.channel='11'\n");
    conf.write("over/wireless", "config a b\n");
    conf.write("etc/wireless", wireless);
    uci_package *p = conf.load(conf.path("etc/wireless").c_str());
    EXPECT_FALSE(p->has_delta);
    EXPECT_STREQ(p->e.name, "wireless");
    EXPECT_STREQ(uci_lookup_option_string(conf.ctx(), uci_lookup_section(conf.ctx(), p, "wifi0"), "channel"),
                 "6");
    EXPECT_STREQ(conf.at("wireless.wifi0.channel").o->v.string, "6") << "found by its name from now on";
}

TEST(uci_load, an_override_is_read_instead_of_the_package) {
    configuration conf;
    conf.write("over/wireless", "config a b\n");
    uci_package *p = conf.load("wireless", wireless);
    EXPECT_TRUE(p->uses_conf2);
    EXPECT_EQ(conf.exported(p), "\nconfig a 'b'\n\n");
}

TEST(uci_load, an_empty_override_folder_name_switches_overrides_off) {
    configuration conf;
    conf.write("over/wireless", "config a b\n");
    ASSERT_EQ(uci_set_conf2dir(conf.ctx(), ""), UCI_OK);
    EXPECT_FALSE(conf.load("wireless", wireless)->uses_conf2);
}

TEST(uci_load, a_path_from_the_working_folder_starts_with_a_dot_and_a_slash) {
    configuration conf;
    conf.write("etc/wireless", wireless);
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(conf.path("."));
    uci_package *p = conf.load("./etc/wireless");
    std::filesystem::current_path(before);
    EXPECT_STREQ(p->e.name, "wireless");
    EXPECT_FALSE(p->has_delta);
}

TEST(uci_load, a_name_may_lead_into_a_folder_of_the_configuration) {
    configuration conf;
    conf.write("etc/sub/net", "config a b\n");
    uci_package *p = conf.load("sub/net");
    EXPECT_STREQ(p->e.name, "sub/net");
    EXPECT_TRUE(p->has_delta);
}

TEST(uci_load, impossible_names_are_refused) {
    configuration conf;
    conf.write("x", "");
    conf.write("etc/.x", "");
    EXPECT_EQ(load_code(conf, ""), UCI_ERR_INVAL);
    EXPECT_EQ(load_code(conf, "two words"), UCI_ERR_INVAL);
    EXPECT_EQ(load_code(conf, "caf\xc3\xa9"), UCI_ERR_INVAL);
    EXPECT_EQ(load_code(conf, "/etc/"), UCI_ERR_INVAL);
    EXPECT_EQ(load_code(conf, "/etc/two words"), UCI_ERR_INVAL);
    EXPECT_EQ(load_code(conf, "../x"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(load_code(conf, ".x"), UCI_ERR_NOTFOUND);
}

TEST(uci_load, only_regular_files_count) {
    configuration conf;
    std::filesystem::create_directory(conf.path("etc/folder"));
    ASSERT_EQ(mkfifo(conf.path("etc/fifo").c_str(), 0600), 0);
    std::filesystem::create_symlink("nowhere", conf.path("etc/dangling"));
    EXPECT_EQ(load_code(conf, "missing"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(load_code(conf, "folder"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(load_code(conf, "fifo"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(load_code(conf, "dangling"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(load_code(conf, "missing/inner"), UCI_ERR_NOTFOUND);
}

// Root may read everything, so the tests about permissions run as another user.
class without_rights {
public:
    explicit without_rights(const configuration &conf) {
        for (const char *folder : {".", "etc"}) EXPECT_EQ(chmod(conf.path(folder).c_str(), 0755), 0);
        EXPECT_EQ(seteuid(was_ == 0 ? 65534 : was_), 0);
    }
    without_rights(const without_rights &) = delete;
    ~without_rights() { EXPECT_EQ(seteuid(was_), 0); }

private:
    uid_t was_ = geteuid();
};

TEST(uci_load, a_file_without_permission_is_an_io_error) {
    configuration conf;
    conf.write("etc/secret", "config a b\n");
    ASSERT_EQ(chmod(conf.path("etc/secret").c_str(), 0), 0);
    const without_rights here(conf);
    EXPECT_EQ(load_code(conf, "secret"), UCI_ERR_IO);
}

TEST(uci_load, changes_that_may_not_be_read_do_not_hide_the_package) {
    configuration conf;
    conf.write("etc/net", "config a b\n");
    conf.write("save/net", "net.b.x='1'\n");
    ASSERT_EQ(chmod(conf.path("etc/net").c_str(), 0666), 0);
    ASSERT_EQ(chmod(conf.path("save/net").c_str(), 0), 0);
    const without_rights here(conf);
    uci_package *p = conf.load("net");
    EXPECT_EQ(conf.exported(p), "\nconfig a 'b'\n\n");
    EXPECT_EQ(uci_commit(conf.ctx(), &p, false), UCI_ERR_IO) << "but nobody may commit without them";
}

TEST(uci_load, a_malformed_package_is_not_kept) {
    configuration conf;
    conf.write("etc/bad", "config a b\n\toption x 1 2\n");
    EXPECT_EQ(load_code(conf, "bad"), UCI_ERR_PARSE);
    EXPECT_EQ(conf.error(), "Parse error (too many arguments) at line 2, byte 14");
    EXPECT_EQ(uci_lookup_package(conf.ctx(), "bad"), nullptr);
}

TEST(uci_load, the_detail_of_a_parse_error_stays_with_that_error) {
    configuration conf;
    conf.write("etc/bad", "nonsense\n");
    EXPECT_EQ(load_code(conf, "bad"), UCI_ERR_PARSE);
    EXPECT_EQ(load_code(conf, "missing"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(conf.error(), "Entry not found");
    EXPECT_EQ(load_code(conf, "bad"), UCI_ERR_PARSE);
    uci_ptr ptr;
    std::string tuple = "a.b.c.d";
    EXPECT_EQ(uci_lookup_ptr(conf.ctx(), &ptr, tuple.data(), true), UCI_ERR_PARSE);
    EXPECT_EQ(conf.error(), "Parse error");
}

TEST(uci_load, lenient_reading_skips_malformed_lines_and_reports_them_if_told) {
    configuration conf;
    conf.write("etc/bad", "config a b\n\tnonsense\n\toption x 1\n");
    conf.ctx()->flags = UCI_FLAG_PERROR;
    testing::internal::CaptureStderr();
    uci_package *p = conf.load("bad");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Parse error (invalid command) at line 2, byte 1\n");
    EXPECT_EQ(conf.exported(p), "\nconfig a 'b'\n\toption x '1'\n\n");
    EXPECT_EQ(conf.ctx()->err, UCI_OK);
}

TEST(uci_load, a_package_is_loaded_once_whichever_way_it_is_called) {
    configuration conf;
    conf.load("wireless", wireless);
    EXPECT_EQ(load_code(conf, "wireless"), UCI_ERR_DUPLICATE);
    EXPECT_EQ(load_code(conf, conf.path("etc/wireless")), UCI_ERR_DUPLICATE);
    ASSERT_EQ(uci_unload(conf.ctx(), uci_lookup_package(conf.ctx(), "wireless")), UCI_OK);
    EXPECT_EQ(load_code(conf, "wireless"), UCI_OK);
}

TEST(uci_load, the_caller_need_not_want_the_package) {
    configuration conf;
    conf.write("etc/wireless", wireless);
    EXPECT_EQ(uci_load(conf.ctx(), "wireless", nullptr), UCI_OK);
    EXPECT_NE(uci_lookup_package(conf.ctx(), "wireless"), nullptr);
}

TEST(uci_load, deltas_are_read_from_every_folder_and_the_savedir_has_the_last_word) {
    configuration conf;
    ASSERT_EQ(uci_add_delta_path(conf.ctx(), conf.path("more").c_str()), UCI_OK);
    EXPECT_EQ(uci_add_delta_path(conf.ctx(), conf.path("more").c_str()), UCI_ERR_DUPLICATE);
    conf.write("more/wireless", "wireless.wifi0.channel='1'\nwireless.wifi0.country='DE'\n");
    conf.write("save/wireless", "wireless.wifi0.channel='11'\n");
    conf.load("wireless", wireless);
    EXPECT_STREQ(conf.at("wireless.wifi0.channel").o->v.string, "11");
    EXPECT_STREQ(conf.at("wireless.wifi0.country").o->v.string, "DE");
}

TEST(uci_load, lines_of_a_delta_file_that_are_no_changes_are_skipped) {
    configuration conf;
    conf.write("save/wireless", "\n"
                                "# a remark\n"
                                "wireless\n"
                                "wireless.wifi0\n"
                                "wireless.wifi0.a='1' more\n"
                                "wireless.wifi0.b='1' # remark\n"
                                "wireless.wifi0.c=1#remark\n"
                                "wireless.wifi0.d='1'; x\n"
                                "wireless.wifi0.e='\a'\n"
                                "wireless.@wifi-iface[0].f='1'\n"
                                "wireless.wifi0.g.h='1'\n"
                                "other.wifi0.i='1'\n"
                                "@wireless.wifi0='a-b'\n"
                                "+wireless.cfg1='two words'\n"
                                "|wireless.wifi0.j\n"
                                "wireless.wifi0.good='two\nlines'\n"
                                "wireless.wifi0.k='never closed\n");
    uci_package *p = conf.load("wireless", "config wifi-device wifi0\n");
    EXPECT_EQ(conf.exported(p), "\nconfig wifi-device 'wifi0'\n\toption good 'two\nlines'\n\n");
    EXPECT_EQ(p->saved_delta.next, p->saved_delta.prev) << "the one change is all that is listed";
}

TEST(uci_load, a_change_that_cannot_be_applied_is_kept_in_the_list_of_changes) {
    configuration conf;
    conf.write("save/wireless", "wireless.nosuch.a='1'\n");
    uci_package *p = conf.load("wireless", wireless);
    ASSERT_FALSE(uci_list_empty(&p->saved_delta));
    const uci_delta *d = uci_to_delta(list_to_element(p->saved_delta.next));
    EXPECT_EQ(d->cmd, UCI_CMD_CHANGE);
    EXPECT_STREQ(d->section, "nosuch");
    EXPECT_STREQ(d->e.name, "a");
    EXPECT_STREQ(d->value, "1");
}

TEST(uci_load, every_kind_of_delta_line_has_its_effect) {
    configuration conf;
    conf.write("save/net", "net.lan.proto='dhcp'\n"
                           "+net.cfg05c8b4='route'\n"
                           "net.cfg05c8b4.target='new'\n"
                           "net.guest='interface'\n"
                           "-net.lan.mtu\n"
                           "-net.lan.dns='0'\n"
                           "|net.lan.dns='c'\n"
                           "~net.lan.dns='b'\n"
                           "@net.lan='home'\n"
                           "^net.home='1'\n");
    uci_package *p = conf.load("net", "config interface lan\n\toption proto static\n\toption mtu 1\n"
                                      "\tlist dns a\n\tlist dns b\nconfig route\n");
    EXPECT_EQ(conf.exported(p), "\nconfig route\n"
                                "\nconfig interface 'home'\n\toption proto 'dhcp'\n\tlist dns 'c'\n"
                                "\nconfig route\n\toption target 'new'\n"
                                "\nconfig interface 'guest'\n\n");
}

TEST(uci_load, generated_names_count_sections_and_hash_their_type) {
    configuration conf;
    conf.load(
        "a",
        "config dnsmasq\nconfig route\nconfig wifi-iface\nconfig wifi-iface known\nconfig wifi-iface known\n"
        "config route\n");
    std::vector<std::string> names;
    uci_element *e;
    uci_foreach_element (&uci_lookup_package(conf.ctx(), "a")->sections, e) names.push_back(e->name);
    EXPECT_EQ(names, (std::vector<std::string>{"cfg01411c", "cfg02c8b4", "cfg033579", "known", "cfg05c8b4"}));

    std::string many;
    for (int i = 0; i < 256; ++i) many += "config q\n";
    uci_package *p = conf.load("many", many);
    EXPECT_NE(uci_lookup_section(conf.ctx(), p, "cfgfdb616"), nullptr) << "the 253rd";
    EXPECT_STREQ(list_to_element(p->sections.prev)->name, "cfg100b616");
}

TEST(uci_list_configs, names_packages_in_byte_order_and_nothing_else) {
    configuration conf;
    for (const char *name : {"b", "a", "B", "skip.me", ".hidden", "two words", "a-b"})
        conf.write(std::string("etc/") + name, "");
    std::filesystem::create_directory(conf.path("etc/folder"));
    std::filesystem::create_symlink("a", conf.path("etc/link"));
    conf.write("over/only", "");
    char **list = nullptr;
    ASSERT_EQ(uci_list_configs(conf.ctx(), &list), UCI_OK);
    std::vector<std::string> names;
    for (char **name = list; *name; ++name) names.push_back(*name);
    free(list);
    EXPECT_EQ(names, (std::vector<std::string>{"B", "a", "a-b", "b", "link"}));
}

TEST(uci_list_configs, a_folder_that_is_missing_or_holds_no_package_leaves_the_list_alone) {
    configuration conf;
    char *nothing = nullptr, **list = &nothing;
    EXPECT_EQ(uci_list_configs(conf.ctx(), &list), UCI_ERR_NOTFOUND);
    std::filesystem::remove(conf.path("etc"));
    EXPECT_EQ(uci_list_configs(conf.ctx(), &list), UCI_ERR_NOTFOUND);
    EXPECT_EQ(list, &nothing);
}

TEST(uci_context, a_new_one_has_the_usual_folders_and_flags) {
    uci_context *ctx = uci_alloc_context();
    ASSERT_NE(ctx, nullptr);
    EXPECT_STREQ(ctx->confdir, "/etc/config");
    EXPECT_STREQ(ctx->savedir, "/tmp/.uci");
    EXPECT_STREQ(ctx->conf2dir, "/var/run/uci");
    EXPECT_EQ(static_cast<int>(ctx->flags), 9);
    EXPECT_STREQ(ctx->backend->e.name, "file");
    EXPECT_EQ(uci_set_backend(ctx, "file"), UCI_OK);
    EXPECT_EQ(uci_set_backend(ctx, "other"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(uci_set_confdir(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set_savedir(ctx, nullptr), UCI_ERR_INVAL);
    uci_free_context(ctx);
}

TEST(uci_context, the_former_savedir_stays_in_the_delta_path) {
    configuration conf;
    ASSERT_EQ(uci_set_savedir(conf.ctx(), "/one"), UCI_OK);
    ASSERT_EQ(uci_set_savedir(conf.ctx(), conf.path("save").c_str()), UCI_OK);
    std::vector<std::string> folders;
    uci_element *e;
    uci_foreach_element (&conf.ctx()->delta_path, e) folders.push_back(e->name);
    EXPECT_EQ(folders, (std::vector<std::string>{"/tmp/.uci", "/one", conf.path("save")}));
}

TEST(uci_context, calls_without_one_are_refused) {
    uci_package *p = nullptr;
    uci_ptr ptr{};
    EXPECT_EQ(uci_load(nullptr, "x", &p), UCI_ERR_INVAL);
    EXPECT_EQ(uci_unload(nullptr, p), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set(nullptr, &ptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_commit(nullptr, &p, false), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set_confdir(nullptr, "/x"), UCI_ERR_INVAL);
    configuration conf;
    EXPECT_EQ(uci_unload(conf.ctx(), nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_load(conf.ctx(), nullptr, &p), UCI_ERR_INVAL);
    EXPECT_EQ(uci_commit(conf.ctx(), &p, false), UCI_ERR_INVAL);
    EXPECT_EQ(uci_save(conf.ctx(), nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set(conf.ctx(), &ptr), UCI_ERR_INVAL);
}

} // namespace
