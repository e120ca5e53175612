// The input is a batch of changes to a known package: loaded again, the saved changes give the same package.
#include "folder.h"

#include <cstring>
#include <map>

namespace {

constexpr const char *package = "config interface 'lan'\n"
                                "\toption proto 'static'\n"
                                "\tlist dns 'a'\n"
                                "\tlist dns 'b'\n"
                                "config route\n"
                                "\toption target 'x'\n"
                                "config interface 'wan'\n";

using edit = int (*)(uci_context *, uci_ptr *);
const std::map<std::string_view, edit> edits = {
    {"set", uci_set},           {"delete", uci_delete},     {"rename", uci_rename},
    {"add_list", uci_add_list}, {"del_list", uci_del_list}, {"revert", uci_revert},
};

// A section that gets a name of the generated kind can hide the section that has this name already; this is allowed.
bool collides(std::string_view tuple) { return tuple.find("cfg") != std::string_view::npos; }

void run(uci_context *ctx, std::string_view command, std::string &tuple, uci_package **p) {
    uci_section *s = nullptr;
    if (command == "add") {
        const int rc = uci_add_section(ctx, *p, tuple.c_str(), &s);
        require(rc == UCI_OK || rc == UCI_ERR_INVAL, "a type is good or bad");
        return;
    }
    uci_ptr ptr;
    if (collides(tuple) || uci_lookup_ptr(ctx, &ptr, tuple.data(), true) != UCI_OK) return;
    if (std::strcmp(ptr.p->e.name, "net") != 0) return;
    if (command == "reorder" && ptr.s && ptr.value) {
        require(uci_reorder_section(ctx, ptr.s, std::atoi(ptr.value)) == UCI_OK, "a section can be moved");
    } else if (const auto known = edits.find(command); known != edits.end()) {
        const int rc = known->second(ctx, &ptr);
        require(rc == ctx->err && rc != UCI_ERR_IO && rc != UCI_ERR_MEM, "a change is made or refused");
        *p = ptr.p;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) return 0;
    static const folder place;
    place.write("etc/net", package);
    place.write("save/net", "");
    const context ctx(place);
    uci_package *p = nullptr;
    require(uci_load(ctx, "net", &p) == UCI_OK, "the package can be loaded");

    FILE *in = fmemopen(const_cast<std::uint8_t *>(data), size, "r");
    while (!std::feof(in)) {
        char *at = nullptr, *word = nullptr;
        if (uci_parse_argument(ctx, in, &at, &word) != UCI_OK) continue;
        const std::string command = word;
        if (command.empty() || uci_parse_argument(ctx, in, &at, &word) != UCI_OK) continue;
        std::string tuple = word;
        run(ctx, command, tuple, &p);
    }
    std::fclose(in);

    const std::string changed = exported(ctx, p);
    require(uci_save(ctx, p) == UCI_OK, "changes can be saved");
    const context fresh(place);
    uci_package *again = nullptr;
    require(uci_load(fresh, "net", &again) == UCI_OK, "saved changes can be loaded");
    require(exported(fresh, again) == changed, "saved changes give the same package");
    require(uci_commit(fresh, &again, false) == UCI_OK, "saved changes can be committed");
    require(exported(fresh, again) == changed, "the committed package is the same");
    if (!can_be_read_again(again)) return 0;
    const context last(place);
    require(uci_load(last, "net", &again) == UCI_OK, "the committed file is well formed");
    require(exported(last, again) == changed, "the committed file gives the same package");
    return 0;
}
