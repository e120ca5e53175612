// Changes on disk: delta files, package files, and several programs at once.
#include "configuration.h"

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr const char *net = "config interface 'lan'\n\toption proto 'static'\n";

int mode_of(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<int>(st.st_mode & 07777) : -1;
}

ino_t inode_of(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

void set(configuration &conf, const std::string &tuple) {
    uci_ptr ptr = conf.at(tuple);
    ASSERT_EQ(uci_set(conf.ctx(), &ptr), UCI_OK) << tuple;
}

void save(configuration &conf, const std::string &tuple) {
    uci_ptr ptr = conf.at(tuple);
    ASSERT_EQ(uci_set(conf.ctx(), &ptr), UCI_OK) << tuple;
    ASSERT_EQ(uci_save(conf.ctx(), ptr.p), UCI_OK) << tuple;
}

TEST(uci_commit, writes_a_type_so_that_it_can_be_read_back) {
    for (const std::string type : {"a#b", "a;b", "a'b", "a\"b", "a\\b", "#", ";", "'", "plain-type.1"}) {
        configuration conf;
        uci_package *p = conf.load("net", "");
        uci_section *s = nullptr;
        ASSERT_EQ(uci_add_section(conf.ctx(), p, type.c_str(), &s), UCI_OK) << type;
        ASSERT_EQ(uci_commit(conf.ctx(), &p, false), UCI_OK) << type;
        ASSERT_EQ(uci_unload(conf.ctx(), p), UCI_OK) << type;
        p = conf.load("net");
        ASSERT_NE(p, nullptr) << type << " became\n" << conf.read("etc/net");
        ASSERT_FALSE(uci_list_empty(&p->sections)) << type;
        EXPECT_EQ(uci_to_section(list_to_element(p->sections.next))->type, type);
    }
}

TEST(uci_save, appends_quoted_lines_to_the_delta_file) {
    configuration conf;
    uci_package *p = conf.load("net", net);
    save(conf, "net.lan.proto=it's\n\"two\" lines");
    save(conf, "net.lan.mtu=9000");
    EXPECT_EQ(conf.read("save/net"), "net.lan.proto='it'\\''s\n\"two\" lines'\nnet.lan.mtu='9000'\n");
    EXPECT_TRUE(uci_list_empty(&p->delta));
    EXPECT_EQ(conf.read("etc/net"), net) << "the package waits for the commit";
}

TEST(uci_save, without_changes_makes_no_file) {
    configuration conf;
    uci_package *p = conf.load("net", net);
    EXPECT_EQ(uci_save(conf.ctx(), p), UCI_OK);
    EXPECT_FALSE(conf.exists("save"));
}

TEST(uci_save, what_was_saved_is_there_when_the_package_is_loaded_again) {
    configuration conf;
    uci_package *p = conf.load("net", net);
    save(conf, "net.lan.proto=\xff\t it's");
    ASSERT_EQ(uci_unload(conf.ctx(), p), UCI_OK);
    EXPECT_STREQ(conf.at("net.lan.proto").o->v.string, "\xff\t it's");
}

TEST(uci_save, folder_and_file_get_the_modes_of_the_configuration) {
    const mode_t umask_before = umask(022);
    configuration conf;
    conf.load("net", net);
    ASSERT_EQ(chmod(conf.path("etc").c_str(), 0750), 0);
    ASSERT_EQ(chmod(conf.path("etc/net").c_str(), 0666), 0);
    save(conf, "net.lan.proto=dhcp");
    EXPECT_EQ(mode_of(conf.path("save")), 0750);
    EXPECT_EQ(mode_of(conf.path("save/net")), 0644);
    umask(umask_before);
}

TEST(uci_save, a_delta_folder_that_cannot_be_made_is_an_io_error_and_keeps_the_changes) {
    configuration conf;
    conf.write("file", "");
    ASSERT_EQ(uci_set_savedir(conf.ctx(), conf.path("file/save").c_str()), UCI_OK);
    uci_package *p = conf.load("net", net);
    set(conf, "net.lan.proto=dhcp");
    EXPECT_EQ(uci_save(conf.ctx(), p), UCI_ERR_IO);
    EXPECT_FALSE(uci_list_empty(&p->delta));
}

TEST(uci_save, a_full_disk_leaves_no_half_line) {
    configuration conf;
    conf.write("save/net", "net.lan.a='1'\n");
    uci_package *p = conf.load("net", net);
    set(conf, "net.lan.proto=" + std::string(100000, 'x'));
    const pid_t child = fork();
    if (child == 0) {
        // A limit on the size of files fails the write as a full disk does.
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{50000, 50000};
        setrlimit(RLIMIT_FSIZE, &limit);
        _exit(uci_save(conf.ctx(), p) == UCI_ERR_IO ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(conf.read("save/net"), "net.lan.a='1'\n");
}

TEST(uci_save, a_package_loaded_by_path_is_committed) {
    configuration conf;
    conf.write("else/where", net);
    uci_package *p = conf.load(conf.path("else/where").c_str());
    save(conf, "where.lan.proto=dhcp");
    EXPECT_EQ(conf.read("else/where"), "\nconfig interface 'lan'\n\toption proto 'dhcp'\n\n");
    EXPECT_FALSE(conf.exists("save"));
    EXPECT_EQ(uci_lookup_package(conf.ctx(), "where"), p) << "and stays the same object";
}

TEST(uci_commit, writes_the_changes_and_empties_the_delta_file) {
    configuration conf;
    uci_package *p = conf.load("net", net);
    save(conf, "net.lan.proto=dhcp");
    ASSERT_EQ(uci_commit(conf.ctx(), &p, false), UCI_OK);
    EXPECT_EQ(conf.read("etc/net"), "\nconfig interface 'lan'\n\toption proto 'dhcp'\n\n");
    EXPECT_EQ(conf.read("save/net"), "");
    EXPECT_EQ(conf.files_in("etc"), std::vector<std::string>{"net"}) << "no temporary file is left";
    EXPECT_EQ(p, uci_lookup_package(conf.ctx(), "net"));
    EXPECT_TRUE(uci_list_empty(&p->saved_delta));
}

TEST(uci_commit, takes_along_changes_that_were_not_saved) {
    configuration conf;
    uci_package *p = conf.load("net", net);
    set(conf, "net.lan.proto=dhcp");
    ASSERT_EQ(uci_commit(conf.ctx(), &p, false), UCI_OK);
    EXPECT_EQ(conf.read("etc/net"), "\nconfig interface 'lan'\n\toption proto 'dhcp'\n\n");
}

TEST(uci_commit, without_changes_keeps_the_bytes_of_the_file) {
    configuration conf;
    uci_package *p = conf.load("net", net);
    const ino_t before = inode_of(conf.path("etc/net"));
    ASSERT_EQ(uci_commit(conf.ctx(), &p, false), UCI_OK);
    EXPECT_EQ(conf.read("etc/net"), net);
    EXPECT_EQ(inode_of(conf.path("etc/net")), before);
    EXPECT_FALSE(conf.exists("save"));
}

TEST(uci_commit, changes_that_cannot_be_applied_are_cleared_away) {
    configuration conf;
    conf.write("save/net", "net.none.a='1'\n");
    uci_package *p = conf.load("net", net);
    ASSERT_EQ(uci_commit(conf.ctx(), &p, false), UCI_OK);
    EXPECT_EQ(conf.read("etc/net"), net);
    EXPECT_EQ(conf.read("save/net"), "");
}

TEST(uci_commit, includes_what_others_have_saved_meanwhile) {
    configuration conf;
    uci_package *p = conf.load("net", net);
    conf.write("save/net", "net.lan.mtu='9000'\n");
    set(conf, "net.lan.proto=dhcp");
    ASSERT_EQ(uci_commit(conf.ctx(), &p, false), UCI_OK);
    EXPECT_EQ(conf.read("etc/net"),
              "\nconfig interface 'lan'\n\toption proto 'dhcp'\n\toption mtu '9000'\n\n");
}

TEST(uci_commit, deltas_of_further_folders_are_applied_and_stay) {
    configuration conf;
    ASSERT_EQ(uci_add_delta_path(conf.ctx(), conf.path("more").c_str()), UCI_OK);
    conf.write("more/net", "net.lan.mtu='9000'\n");
    uci_package *p = conf.load("net", net);
    ASSERT_EQ(uci_commit(conf.ctx(), &p, false), UCI_OK);
    EXPECT_EQ(conf.read("etc/net"),
              "\nconfig interface 'lan'\n\toption proto 'static'\n\toption mtu '9000'\n\n");
    EXPECT_EQ(conf.read("more/net"), "net.lan.mtu='9000'\n");
}

TEST(uci_commit, keeps_the_mode_of_the_file) {
    configuration conf;
    uci_package *p = conf.load("net", net);
    ASSERT_EQ(chmod(conf.path("etc/net").c_str(), 0646), 0);
    set(conf, "net.lan.proto=dhcp");
    ASSERT_EQ(uci_commit(conf.ctx(), &p, false), UCI_OK);
    EXPECT_EQ(mode_of(conf.path("etc/net")), 0646);
}

TEST(uci_commit, follows_a_symbolic_link_and_leaves_it) {
    configuration conf;
    conf.write("real/net", net);
    std::filesystem::create_symlink("../real/net", conf.path("etc/net"));
    uci_package *p = conf.load("net");
    set(conf, "net.lan.proto=dhcp");
    ASSERT_EQ(uci_commit(conf.ctx(), &p, false), UCI_OK);
    EXPECT_TRUE(std::filesystem::is_symlink(conf.path("etc/net")));
    EXPECT_EQ(conf.read("real/net"), "\nconfig interface 'lan'\n\toption proto 'dhcp'\n\n");
    EXPECT_EQ(conf.files_in("real"), std::vector<std::string>{"net"});
}

TEST(uci_commit, writes_an_override_back_to_its_own_folder) {
    configuration conf;
    conf.write("over/net", net);
    uci_package *p = conf.load("net", "config other\n");
    set(conf, "net.lan.proto=dhcp");
    ASSERT_EQ(uci_commit(conf.ctx(), &p, false), UCI_OK);
    EXPECT_EQ(conf.read("over/net"), "\nconfig interface 'lan'\n\toption proto 'dhcp'\n\n");
    EXPECT_EQ(conf.read("etc/net"), "config other\n");
}

TEST(uci_commit, a_failure_keeps_package_and_changes) {
    configuration conf;
    uci_package *p = conf.load("net", net);
    set(conf, "net.lan.proto=dhcp");
    conf.write("etc/net", "nonsense\n");
    EXPECT_EQ(uci_commit(conf.ctx(), &p, false), UCI_ERR_PARSE);
    EXPECT_EQ(conf.error(), "Parse error (invalid command) at line 1, byte 0");
    EXPECT_EQ(conf.read("etc/net"), "nonsense\n");
    EXPECT_EQ(conf.read("save/net"), "net.lan.proto='dhcp'\n");
    EXPECT_STREQ(conf.at("net.lan.proto").o->v.string, "dhcp");

    std::filesystem::remove(conf.path("etc/net"));
    EXPECT_EQ(uci_commit(conf.ctx(), &p, false), UCI_ERR_NOTFOUND);
    EXPECT_STREQ(p->e.name, "net");
}

TEST(uci_commit, a_full_disk_leaves_the_old_package_and_no_temporary_file) {
    configuration conf;
    conf.load("net", net);
    save(conf, "net.lan.proto=" + std::string(100000, 'x'));
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{50000, 50000};
        setrlimit(RLIMIT_FSIZE, &limit);
        uci_package *p = uci_lookup_package(conf.ctx(), "net");
        _exit(uci_commit(conf.ctx(), &p, false) == UCI_ERR_IO ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(conf.read("etc/net"), net);
    EXPECT_EQ(conf.files_in("etc"), std::vector<std::string>{"net"});
    EXPECT_GT(conf.read("save/net").size(), 100000u) << "the change can be committed later";
}

TEST(uci_commit, an_imported_package_needs_overwrite_and_gets_a_file_of_its_name) {
    configuration conf;
    std::string text = "config a b\n";
    FILE *in = fmemopen(text.data(), text.size(), "r");
    uci_package *p = nullptr;
    ASSERT_EQ(uci_import(conf.ctx(), in, "fresh", &p, true), UCI_OK);
    fclose(in);
    EXPECT_EQ(uci_commit(conf.ctx(), &p, false), UCI_ERR_INVAL);
    ASSERT_EQ(uci_commit(conf.ctx(), &p, true), UCI_OK);
    EXPECT_EQ(conf.read("etc/fresh"), "\nconfig a 'b'\n\n");
    EXPECT_EQ(mode_of(conf.path("etc/fresh")), 0600);
    EXPECT_EQ(p->path, conf.path("etc/fresh"));
}

TEST(uci_commit, overwriting_writes_what_is_in_memory) {
    configuration conf;
    uci_package *p = conf.load("net", net);
    set(conf, "net.lan.proto=dhcp");
    conf.write("etc/net", "config other\n");
    ASSERT_EQ(uci_commit(conf.ctx(), &p, true), UCI_OK);
    EXPECT_EQ(conf.read("etc/net"), "\nconfig interface 'lan'\n\toption proto 'dhcp'\n\n");
    EXPECT_TRUE(uci_list_empty(&p->delta));
}

// Waits until a process waits for a lock on a file; false if it ends, or does not do so for a long time.
bool waits_for_a_lock(pid_t process) {
    const std::string waiting = " " + std::to_string(process) + " ";
    for (int i = 0; i < 2000 && waitpid(process, nullptr, WNOHANG) == 0; ++i) {
        std::ifstream locks("/proc/locks");
        for (std::string line; std::getline(locks, line);) {
            if (line.find("-> FLOCK") != std::string::npos && line.find(waiting) != std::string::npos)
                return true;
        }
        usleep(5000);
    }
    return false;
}

TEST(uci_commit, overwriting_takes_the_saved_changes_along_and_out_of_savedir) {
    configuration conf;
    conf.write("early/net", "|net.lan.dns='c'\n");
    ASSERT_EQ(uci_add_delta_path(conf.ctx(), conf.path("early").c_str()), UCI_OK);
    conf.write("save/net", "|net.lan.dns='a'\n");
    uci_package *p = conf.load("net", net);
    set(conf, "net.lan.mtu=9000");
    ASSERT_EQ(uci_commit(conf.ctx(), &p, true), UCI_OK);
    const std::string committed = "\nconfig interface 'lan'\n\toption proto 'static'\n"
                                  "\tlist dns 'c'\n\tlist dns 'a'\n\toption mtu '9000'\n\n";
    EXPECT_EQ(conf.read("etc/net"), committed);
    EXPECT_EQ(conf.read("save/net"), "") << "the next load would apply it again";
    EXPECT_EQ(conf.read("early/net"), "|net.lan.dns='c'\n") << "not the savedir";
    EXPECT_TRUE(uci_list_empty(&p->saved_delta));
}

TEST(uci_commit, overwriting_leaves_no_moment_at_which_a_change_counts_twice) {
    configuration conf;
    conf.write("save/net", "|net.lan.dns='a'\n");
    uci_package *p = conf.load("net", net);
    const int held = open(conf.path("save/net").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    const pid_t child = fork();
    if (child == 0) {
        close(held);
        _exit(uci_commit(conf.ctx(), &p, true));
    }
    ASSERT_TRUE(waits_for_a_lock(child));
    EXPECT_EQ(conf.read("etc/net"), net) << "written before the savedir was ours";
    close(held);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(conf.read("save/net"), "");
}

TEST(uci_commit, overwriting_a_package_loaded_by_path_leaves_savedir_alone) {
    configuration conf;
    conf.write("save/net", "|net.lan.dns='a'\n");
    conf.write("etc/net", net);
    uci_package *p = conf.load(conf.path("etc/net").c_str());
    ASSERT_EQ(uci_commit(conf.ctx(), &p, true), UCI_OK);
    EXPECT_EQ(conf.read("save/net"), "|net.lan.dns='a'\n");
}

TEST(uci_commit, a_package_that_was_replaced_while_waiting_for_its_lock_is_read_again) {
    configuration conf;
    uci_package *p = conf.load("net", net);
    const int held = open(conf.path("etc/net").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    const pid_t child = fork();
    if (child == 0) {
        // What another program has saved meanwhile; this one only commits it.
        conf.write("save/net", "net.lan.mtu='9000'\n");
        close(held);
        _exit(uci_commit(conf.ctx(), &p, false));
    }
    ASSERT_TRUE(waits_for_a_lock(child));
    conf.write("etc/new", "config interface 'lan'\n\toption proto 'dhcp'\n");
    std::filesystem::rename(conf.path("etc/new"), conf.path("etc/net"));
    close(held);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(conf.read("etc/net"),
              "\nconfig interface 'lan'\n\toption proto 'dhcp'\n\toption mtu '9000'\n\n");
}

TEST(uci_commit, programs_that_commit_at_once_lose_no_change) {
    configuration conf;
    conf.write("etc/net", net);
    constexpr int programs = 4, rounds = 25;
    pid_t children[programs];
    for (int i = 0; i < programs; ++i) {
        children[i] = fork();
        if (children[i] != 0) continue;
        int failures = 0;
        for (int round = 0; round < rounds; ++round) {
            uci_context *ctx = uci_alloc_context();
            conf.use_folders(ctx);
            std::string tuple = "net.lan.o" + std::to_string(i) + "_" + std::to_string(round) + "=1";
            uci_ptr ptr;
            failures += uci_lookup_ptr(ctx, &ptr, tuple.data(), false) != UCI_OK ||
                        uci_set(ctx, &ptr) != UCI_OK || uci_save(ctx, ptr.p) != UCI_OK ||
                        uci_commit(ctx, &ptr.p, false) != UCI_OK;
            uci_free_context(ctx);
        }
        _exit(failures);
    }
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    uci_package *p = conf.load("net");
    const uci_section *lan = uci_lookup_section(conf.ctx(), p, "lan");
    int options = 0;
    uci_element *e;
    uci_foreach_element (&lan->options, e) ++options;
    EXPECT_EQ(options, 1 + programs * rounds);
    EXPECT_EQ(conf.read("save/net"), "");
    EXPECT_EQ(conf.files_in("etc"), std::vector<std::string>{"net"});
}

TEST(uci_revert, drops_the_changes_of_an_option_a_section_or_a_package) {
    configuration conf;
    const std::string lan = "net.lan.a='1'\n", other = "|net.lan.b='2 x'\n", wan = "net.wan='interface'\n";
    conf.write("save/net", lan + other + wan + lan);
    uci_package *p = conf.load("net", net);
    uci_ptr ptr = conf.at("net.lan.a");
    ASSERT_EQ(uci_revert(conf.ctx(), &ptr), UCI_OK);
    EXPECT_EQ(conf.read("save/net"), other + wan);
    EXPECT_EQ(ptr.p, uci_lookup_package(conf.ctx(), "net"));
    EXPECT_EQ(conf.exported(ptr.p), "\nconfig interface 'lan'\n\toption proto 'static'\n\tlist b '2 x'\n"
                                    "\nconfig interface 'wan'\n\n");
    ptr = conf.at("net.lan");
    ASSERT_EQ(uci_revert(conf.ctx(), &ptr), UCI_OK);
    EXPECT_EQ(conf.read("save/net"), wan);
    ptr = conf.at("net");
    ASSERT_EQ(uci_revert(conf.ctx(), &ptr), UCI_OK);
    EXPECT_EQ(conf.read("save/net"), "");
    p = uci_lookup_package(conf.ctx(), "net");
    EXPECT_EQ(conf.exported(p), "\nconfig interface 'lan'\n\toption proto 'static'\n\n");
}

TEST(uci_revert, brings_back_a_deleted_section) {
    configuration conf;
    conf.write("save/net", "-net.lan\n");
    conf.load("net", net);
    uci_ptr ptr = conf.at("net.lan");
    EXPECT_EQ(ptr.s, nullptr);
    ASSERT_EQ(uci_revert(conf.ctx(), &ptr), UCI_OK);
    EXPECT_NE(conf.at("net.lan").s, nullptr);
}

TEST(uci_revert, forgets_changes_that_were_not_saved) {
    configuration conf;
    conf.load("net", net);
    set(conf, "net.lan.proto=dhcp");
    uci_ptr ptr = conf.at("net.lan.proto");
    ASSERT_EQ(uci_revert(conf.ctx(), &ptr), UCI_OK);
    EXPECT_STREQ(conf.at("net.lan.proto").o->v.string, "static");
}

TEST(uci_revert, a_package_loaded_by_path_has_nothing_to_revert) {
    configuration conf;
    conf.write("etc/net", net);
    conf.load(conf.path("etc/net").c_str());
    uci_ptr ptr = conf.at("net.lan");
    EXPECT_EQ(uci_revert(conf.ctx(), &ptr), UCI_ERR_INVAL);
}

} // namespace
