#include "model.h"

#include "quote.h"

#include <cstring>

namespace uci {
namespace {

void write_option(FILE *out, uci_option *o) {
    if (o->type == UCI_TYPE_STRING) {
        (void)std::fprintf(out, "\toption %s ", o->e.name);
        write_quoted(out, o->v.string);
        (void)std::fputc('\n', out);
        return;
    }
    uci_element *item;
    uci_foreach_element (&o->v.list, item) {
        (void)std::fprintf(out, "\tlist %s ", o->e.name);
        write_quoted(out, item->name);
        (void)std::fputc('\n', out);
    }
}

// A type is written as it is, unless the reader would take a part of it for a comment, an end or a quote.
void write_type(FILE *out, const char *type) {
    if (std::strpbrk(type, "#;'\"\\"))
        write_quoted(out, type);
    else
        (void)std::fputs(type, out);
}

void write_package(FILE *out, uci_package *p, bool header, bool all_names) {
    if (header) (void)std::fprintf(out, "package %s\n", p->e.name);
    uci_element *e;
    uci_foreach_element (&p->sections, e) {
        uci_section *s = uci_to_section(e);
        (void)std::fputs("\nconfig ", out);
        write_type(out, s->type);
        if (!s->anonymous || all_names) (void)std::fprintf(out, " '%s'", s->e.name);
        (void)std::fputc('\n', out);
        uci_element *option;
        uci_foreach_element (&s->options, option) write_option(out, uci_to_option(option));
    }
    (void)std::fputc('\n', out);
}

} // namespace

void write_quoted(FILE *out, const char *text) {
    (void)std::fputc('\'', out);
    for (; *text; ++text) {
        if (*text == '\'')
            (void)std::fputs("'\\''", out);
        else
            (void)std::fputc(*text, out);
    }
    (void)std::fputc('\'', out);
}

} // namespace uci

using namespace uci;

int uci_export(uci_context *ctx, FILE *stream, uci_package *package, bool header) {
    if (!ctx) return UCI_ERR_INVAL;
    if (!stream) return result(ctx, UCI_ERR_INVAL);
    const bool all_names = (ctx->flags & UCI_FLAG_EXPORT_NAME) != 0;
    if (package) {
        write_package(stream, package, header, all_names);
    } else {
        uci_element *e;
        uci_foreach_element (&ctx->root, e) write_package(stream, uci_to_package(e), header, all_names);
    }
    return result(ctx, std::ferror(stream) ? UCI_ERR_IO : UCI_OK);
}
