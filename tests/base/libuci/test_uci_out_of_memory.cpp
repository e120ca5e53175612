// Every allocation of the library fails once: each call must then report it, leave nothing half done, and leak
// nothing.
#include "configuration.h"

#include <cstdarg>
#include <functional>

namespace {

// How many allocations still succeed; negative: all.
long budget = -1;

bool refuse() { return budget >= 0 && budget-- == 0; }

} // namespace

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t n, size_t size);
void *__real_realloc(void *block, size_t size);
char *__real_strdup(const char *text);

void *__wrap_malloc(size_t size) { return refuse() ? nullptr : __real_malloc(size); }
void *__wrap_calloc(size_t n, size_t size) { return refuse() ? nullptr : __real_calloc(n, size); }
void *__wrap_realloc(void *block, size_t size) { return refuse() ? nullptr : __real_realloc(block, size); }
char *__wrap_strdup(const char *text) { return refuse() ? nullptr : __real_strdup(text); }

__attribute__((format(printf, 2, 3))) int __wrap_asprintf(char **text, const char *format, ...) {
    if (refuse()) return -1;
    va_list arguments;
    va_start(arguments, format);
    const int n = vasprintf(text, format, arguments);
    va_end(arguments);
    return n;
}

// The same function, by the name that a hardened build calls.
__attribute__((format(printf, 3, 4))) int __wrap___asprintf_chk(char **text, int, const char *format, ...) {
    if (refuse()) return -1;
    va_list arguments;
    va_start(arguments, format);
    const int n = vasprintf(text, format, arguments);
    va_end(arguments);
    return n;
}
}

namespace {

constexpr const char *net = "config interface 'lan'\n\toption proto 'static'\n\tlist dns 'a'\n"
                            "config route\n\toption target \"two\\\n lines\"\n";
constexpr const char *changes =
    "net.lan.mtu='1500'\n+net.cfg03c8b4='route'\n|net.lan.dns='b'\n@net.lan='home'\n";

// Runs the calls with the first allocation refused, then with the second, until one run needs no more than it
// gets. Each run starts with a configuration of its own; calls stop at the first that fails.
int runs_until_success(const std::function<int(configuration &)> &calls) {
    for (int allowed = 0; allowed < 1000; ++allowed) {
        configuration conf;
        conf.write("etc/net", net);
        conf.write("save/net", changes);
        budget = allowed;
        const int rc = calls(conf);
        const bool refused = budget < 0;
        budget = -1;
        if (!refused) {
            EXPECT_EQ(rc, UCI_OK);
            return allowed;
        }
        EXPECT_EQ(rc, UCI_ERR_MEM) << "with " << allowed << " allocations";
        EXPECT_EQ(conf.ctx()->err, UCI_ERR_MEM) << "with " << allowed << " allocations";
        const std::string on_disk = conf.read("etc/net");
        EXPECT_TRUE(on_disk == net || on_disk.starts_with("\nconfig interface 'home'")) << on_disk;
    }
    ADD_FAILURE() << "never succeeds";
    return 0;
}

TEST(uci_out_of_memory, making_a_context_gives_none) {
    int allowed = 0;
    for (;; ++allowed) {
        budget = allowed;
        uci_context *ctx = uci_alloc_context();
        const bool refused = budget < 0;
        budget = -1;
        EXPECT_EQ(ctx == nullptr, refused);
        uci_free_context(ctx);
        if (!refused) break;
    }
    EXPECT_GT(allowed, 3);
}

TEST(uci_out_of_memory, loading_keeps_nothing) {
    const int allowed = runs_until_success([](configuration &conf) {
        uci_package *p = nullptr;
        const int rc = uci_load(conf.ctx(), "net", &p);
        EXPECT_EQ(p != nullptr, rc == UCI_OK);
        EXPECT_EQ(uci_list_empty(&conf.ctx()->root), rc != UCI_OK);
        return rc;
    });
    EXPECT_GT(allowed, 20);
}

TEST(uci_out_of_memory, a_change_happens_and_is_recorded_or_neither) {
    using edit = int (*)(uci_context *, uci_ptr *);
    const std::pair<edit, const char *> edits[] = {
        {uci_set, "net.home.proto=dhcp"},   {uci_set, "net.home.new=1"},
        {uci_set, "net.guest=interface"},   {uci_set, "net.home=iface"},
        {uci_set, "net.home.dns=1"},        {uci_add_list, "net.home.dns=c"},
        {uci_add_list, "net.home.proto=c"}, {uci_add_list, "net.home.none=c"},
        {uci_del_list, "net.home.dns=a"},   {uci_delete, "net.home.dns=0"},
        {uci_delete, "net.home.proto"},     {uci_delete, "net.home"},
        {uci_rename, "net.home.dns=name"},  {uci_rename, "net.home.proto=name"},
        {uci_rename, "net.home=name"},
    };
    for (const auto &[function, tuple] : edits) {
        const int allowed = runs_until_success([function = function, tuple = tuple](configuration &conf) {
            const long granted = std::exchange(budget, -1); // only the change itself is to fail
            uci_package *p = conf.load("net");
            const std::string before = conf.exported(p);
            uci_ptr ptr = conf.at(tuple);
            budget = granted;
            const int rc = function(conf.ctx(), &ptr);
            const long left = std::exchange(budget, -1);
            EXPECT_EQ(conf.exported(p) != before, rc == UCI_OK) << tuple;
            EXPECT_EQ(!uci_list_empty(&p->delta), rc == UCI_OK) << tuple;
            conf.ctx()->err = rc;
            budget = left;
            return rc;
        });
        EXPECT_GE(allowed, 1) << tuple;
    }
}

TEST(uci_out_of_memory, adding_or_moving_a_section_does_all_or_nothing) {
    runs_until_success([](configuration &conf) {
        const long granted = std::exchange(budget, -1);
        uci_package *p = conf.load("net");
        budget = granted;
        uci_section *s = nullptr;
        if (const int rc = uci_add_section(conf.ctx(), p, "route", &s)) {
            const long left = std::exchange(budget, -1);
            EXPECT_EQ(uci_add_section(conf.ctx(), p, "route", &s), UCI_OK);
            EXPECT_STREQ(s->e.name, "cfg04c8b4") << "the number of the section that was not made";
            conf.ctx()->err = rc;
            budget = left;
            return rc;
        }
        EXPECT_STREQ(s->e.name, "cfg04c8b4");
        return uci_reorder_section(conf.ctx(), s, 0);
    });
}

TEST(uci_out_of_memory, saving_and_committing_lose_no_change) {
    runs_until_success([](configuration &conf) {
        const long granted = std::exchange(budget, -1);
        uci_package *p = conf.load("net");
        uci_ptr ptr = conf.at("net.home.mtu=9000");
        EXPECT_EQ(uci_set(conf.ctx(), &ptr), UCI_OK);
        budget = granted;
        int rc = uci_save(conf.ctx(), p);
        if (rc == UCI_OK) rc = uci_commit(conf.ctx(), &p, false);
        const long left = std::exchange(budget, -1);
        EXPECT_STREQ(p->e.name, "net");
        EXPECT_EQ(p, uci_lookup_package(conf.ctx(), "net"));
        uci_ptr again = conf.at("net.home.mtu");
        EXPECT_STREQ(again.o->v.string, "9000");
        conf.ctx()->err = rc;
        budget = left;
        return rc;
    });
}

TEST(uci_out_of_memory, reverting_keeps_a_package_loaded) {
    runs_until_success([](configuration &conf) {
        const long granted = std::exchange(budget, -1);
        conf.load("net");
        uci_ptr ptr = conf.at("net.home.mtu");
        budget = granted;
        const int rc = uci_revert(conf.ctx(), &ptr);
        const long left = std::exchange(budget, -1);
        EXPECT_NE(uci_lookup_package(conf.ctx(), "net"), nullptr);
        conf.ctx()->err = rc;
        budget = left;
        return rc;
    });
}

TEST(uci_out_of_memory, importing_and_listing_give_nothing) {
    runs_until_success([](configuration &conf) {
        std::string text = "package a\nconfig t s\n\toption o 'two\nlines'\npackage b\nconfig t\n";
        FILE *in = fmemopen(text.data(), text.size(), "r");
        int rc = uci_import(conf.ctx(), in, nullptr, nullptr, false);
        fclose(in);
        EXPECT_EQ(uci_list_empty(&conf.ctx()->root), rc != UCI_OK);
        char **list = nullptr;
        if (rc == UCI_OK) rc = uci_list_configs(conf.ctx(), &list);
        EXPECT_EQ(list != nullptr, rc == UCI_OK);
        free(list);
        return rc;
    });
}

TEST(uci_out_of_memory, a_message_that_does_not_fit_is_null) {
    configuration conf;
    char *text = nullptr;
    budget = 0;
    uci_get_errorstr(conf.ctx(), &text, "tool");
    budget = -1;
    EXPECT_EQ(text, nullptr);
}

} // namespace
