#include "commands.h"

#include "print.h"

#include <cstdlib>
#include <cstring>
#include <string_view>
#include <strings.h>

namespace cli {
namespace {

struct invocation {
    uci_context *ctx;
    const settings &set;
    int argc; // arguments behind the command
    char **argv;
};

int fail(const invocation &in) {
    complain(in.ctx, in.set);
    return 1;
}

int fail(const invocation &in, int code) {
    in.ctx->err = code;
    return fail(in);
}

bool exists(const uci_ptr &ptr) { return (ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0; }

// True when the first argument names something that can be looked up, if not found.
bool look_up(const invocation &in, uci_ptr *ptr) {
    return uci_lookup_ptr(in.ctx, ptr, in.argv[0], true) == UCI_OK;
}

// Applied to each package that a command concerns: that of its argument, or all.
using package_action = int (*)(const invocation &, uci_package *);

int for_each_package(const invocation &in, package_action act) {
    if (in.argc > 0) {
        uci_ptr ptr;
        if (!look_up(in, &ptr) || act(in, ptr.p) != UCI_OK) return fail(in);
        return 0;
    }
    char **names = nullptr;
    if (uci_list_configs(in.ctx, &names) != UCI_OK) return fail(in);
    for (char **name = names; *name; ++name) {
        uci_package *p = uci_lookup_package(in.ctx, *name);
        if ((!p && uci_load(in.ctx, *name, &p) != UCI_OK) || act(in, p) != UCI_OK) {
            complain(in.ctx, in.set);
            continue; // a broken package does not hide the others
        }
        if ((p = uci_lookup_package(in.ctx, *name))) (void)uci_unload(in.ctx, p);
    }
    std::free(names);
    return 0;
}

int get(const invocation &in) {
    uci_ptr ptr;
    if (!look_up(in, &ptr)) return fail(in);
    if (ptr.value) return 1;
    if (!exists(ptr)) return fail(in, UCI_ERR_NOTFOUND);
    if (ptr.o)
        print_value(in.set, ptr.o);
    else if (ptr.s)
        (void)std::printf("%s\n", ptr.s->type);
    return 0;
}

int show(const invocation &in) {
    uci_ptr ptr{};
    if (in.argc > 0 && !look_up(in, &ptr)) return fail(in);
    if (!ptr.section)
        return for_each_package(in, [](const invocation &i, uci_package *p) -> int {
            print_package(i.set, p);
            return UCI_OK;
        });
    if (ptr.value) return 1;
    if (!exists(ptr)) return fail(in, UCI_ERR_NOTFOUND);
    if (ptr.o)
        print_option(in.set, ptr.s->e.name, ptr.o);
    else
        print_section(in.set, ptr.s->e.name, ptr.s);
    return 0;
}

int export_packages(const invocation &in) {
    return for_each_package(
        in, [](const invocation &i, uci_package *p) { return uci_export(i.ctx, stdout, p, true); });
}

int changes(const invocation &in) {
    return for_each_package(in, [](const invocation &, uci_package *p) -> int {
        print_changes(p);
        return UCI_OK;
    });
}

int commit(const invocation &in) {
    if (in.set.no_commit) return 0;
    return for_each_package(in,
                            [](const invocation &i, uci_package *p) { return uci_commit(i.ctx, &p, false); });
}

using edit = int (*)(uci_context *, uci_ptr *);

int change(const invocation &in, edit apply, bool must_exist) {
    uci_ptr ptr;
    if (!look_up(in, &ptr)) return fail(in);
    if (must_exist && !exists(ptr)) return fail(in, UCI_ERR_NOTFOUND);
    if (apply(in.ctx, &ptr) != UCI_OK || uci_save(in.ctx, ptr.p) != UCI_OK) return fail(in);
    return 0;
}

int set(const invocation &in) { return change(in, uci_set, false); }
int rename(const invocation &in) { return change(in, uci_rename, true); }
int add_list(const invocation &in) { return change(in, uci_add_list, false); }
int del_list(const invocation &in) { return change(in, uci_del_list, false); }

int remove(const invocation &in) {
    if (char *value = std::strchr(in.argv[0], '=')) {
        // Only the index of a list item may follow; without one the whole option or section is meant.
        if (value[1 + std::strspn(value + 1, "0123456789")] != '\0') return 1;
        if (value[1] == '\0') *value = '\0';
    }
    return change(in, uci_delete, false);
}

int reorder(const invocation &in) {
    uci_ptr ptr;
    if (!look_up(in, &ptr)) return fail(in);
    if (!ptr.s || ptr.option || !ptr.value) return fail(in, UCI_ERR_NOTFOUND);
    const int pos = static_cast<int>(std::strtol(ptr.value, nullptr, 10));
    if (uci_reorder_section(in.ctx, ptr.s, pos) != UCI_OK || uci_save(in.ctx, ptr.p) != UCI_OK)
        return fail(in);
    return 0;
}

int revert(const invocation &in) {
    uci_ptr ptr;
    if (!look_up(in, &ptr) || uci_revert(in.ctx, &ptr) != UCI_OK) return fail(in);
    return 0;
}

// Deliberate: a failure is reported by the library's error number, which scripts rely on.
int add(const invocation &in) {
    uci_package *p = nullptr;
    uci_section *s = nullptr;
    if (uci_load(in.ctx, in.argv[0], &p) != UCI_OK || uci_add_section(in.ctx, p, in.argv[1], &s) != UCI_OK ||
        uci_save(in.ctx, p) != UCI_OK) {
        const int code = in.ctx->err;
        complain(in.ctx, in.set);
        return code;
    }
    (void)std::printf("%s\n", s->e.name);
    return 0;
}

int merge(const invocation &in, uci_package *p) {
    if (uci_import(in.ctx, in.set.input, in.argv[0], &p, true) != UCI_OK || uci_save(in.ctx, p) != UCI_OK)
        return fail(in);
    return 0;
}

int import(const invocation &in) {
    const char *name = in.argc > 0 ? in.argv[0] : nullptr;
    if (in.set.merge) {
        if (!name) return wrong_usage;
        uci_package *p = nullptr;
        const int rc = uci_load(in.ctx, name, &p);
        if (rc == UCI_OK) return merge(in, p);
        if (rc != UCI_ERR_NOTFOUND) return fail(in);
    }
    if (uci_import(in.ctx, in.set.input, name, nullptr, name != nullptr) != UCI_OK) return fail(in);
    int status = 0;
    uci_element *e;
    uci_foreach_element (&in.ctx->root, e) {
        uci_package *p = uci_to_package(e);
        if (uci_commit(in.ctx, &p, true) != UCI_OK) status = fail(in);
    }
    return status;
}

struct command {
    std::string_view name;
    int min_args, max_args;
    int (*run)(const invocation &);
};

constexpr command commands[] = {
    {"add", 2, 2, add},         {"add_list", 1, 1, add_list},
    {"changes", 0, 1, changes}, {"commit", 0, 1, commit},
    {"del", 1, 1, remove},      {"del_list", 1, 1, del_list},
    {"delete", 1, 1, remove},   {"export", 0, 1, export_packages},
    {"get", 1, 1, get},         {"import", 0, 1, import},
    {"ren", 1, 1, rename},      {"rename", 1, 1, rename},
    {"reorder", 1, 1, reorder}, {"revert", 1, 1, revert},
    {"set", 1, 1, set},         {"show", 0, 1, show},
};

} // namespace

void complain(uci_context *ctx, const settings &set) {
    if (!set.quiet) uci_perror(ctx, set.program);
}

int run(uci_context *ctx, const settings &set, int argc, char **argv) {
    for (const command &c : commands) {
        if (c.name.size() != std::strlen(argv[0]) || strncasecmp(c.name.data(), argv[0], c.name.size()) != 0)
            continue;
        const int args = argc - 1;
        if (args < c.min_args || args > c.max_args) return wrong_usage;
        return c.run({ctx, set, args, argv + 1});
    }
    return wrong_usage;
}

} // namespace cli
