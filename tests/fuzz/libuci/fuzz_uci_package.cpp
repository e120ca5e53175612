// The input is a package file, read strictly and leniently. What was read and written reads the same again.
#include "folder.h"

namespace {

uci_package *import(uci_context *ctx, std::string_view text, const char *name) {
    if (text.empty()) return nullptr;
    FILE *in = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
    uci_package *p = nullptr;
    const int rc = uci_import(ctx, in, name, &p, name != nullptr);
    std::fclose(in);
    require(rc == ctx->err, "the context holds the result");
    require(rc == UCI_OK || rc == UCI_ERR_PARSE, "a stream is well formed or malformed");
    require(rc == UCI_OK || !p, "a malformed package is not kept");
    return p;
}

void read_all(uci_package *p) {
    uci_element *e, *option;
    uci_foreach_element (&p->sections, e) {
        uci_section *s = uci_to_section(e);
        require(s->package == p && *s->type && *s->e.name, "a section has a package, a type and a name");
        uci_foreach_element (&s->options, option) {
            uci_option *o = uci_to_option(option);
            require(o->section == s, "an option knows its section");
            require(o->type == UCI_TYPE_LIST ? !uci_list_empty(&o->v.list) : *o->v.string != '\0',
                    "no option is empty");
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    static const folder place;
    for (const int flags : {static_cast<int>(UCI_FLAG_STRICT), 0}) {
        const context ctx(place);
        ctx->flags = static_cast<uci_flags>(flags);
        uci_package *p = import(ctx, text, "first");
        if (!p) continue;
        read_all(p);
        const std::string written = exported(ctx, p);
        if (!can_be_read_again(p)) continue;
        ctx->flags = UCI_FLAG_STRICT;
        uci_package *again = import(ctx, written, "again");
        require(again != nullptr, "what was written is well formed");
        require(exported(ctx, again) == written, "what was written reads the same");
    }
    const context ctx(place);
    import(ctx, text, nullptr); // several packages, by their package lines
    return 0;
}
