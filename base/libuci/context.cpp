#include "file.h"
#include "model.h"
#include "reader.h"

#include <array>
#include <cstring>
#include <new>

// Words of a stream that a caller reads one by one (uci_parse_argument).
struct uci_parse_context {
    uci::reader in{uci::reader::semicolon::ends_line};
};

char const uci_command_char[] = {'+', '-', '\0', '@', '^', '|', '~'};
static_assert(sizeof(uci_command_char) == __UCI_CMD_MAX);

namespace uci {
namespace {

constexpr std::array<const char *, UCI_ERR_LAST> error_texts = {
    "Success",   "Out of memory", "Invalid argument", "Entry not found",
    "I/O error", "Parse error",   "Duplicate entry",  "Unknown error",
};

// A context with the only backend; one block, since they live equally long.
struct context_block {
    uci_context ctx;
    uci_backend file;
};

void free_parse_context(uci_parse_context *pctx) {
    if (!pctx) return;
    pctx->~uci_parse_context();
    std::free(pctx);
}

uci_parse_context *new_parse_context() {
    void *block = std::malloc(sizeof(uci_parse_context));
    return block ? new (block) uci_parse_context : nullptr;
}

// Replaces a text of the context by a copy of another.
int replace_text(uci_context *ctx, char **text, const char *by) {
    char *copy = by ? strdup(by) : nullptr;
    if (by && !copy) return result(ctx, UCI_ERR_MEM);
    std::free(*text);
    *text = copy;
    return result(ctx, UCI_OK);
}

int argument(uci_context *ctx, FILE *stream, char **str, char **result_text) {
    if (!ctx->pctx && !(ctx->pctx = new_parse_context())) return UCI_ERR_MEM;
    reader &in = ctx->pctx->in;
    static char nothing[1];
    *result_text = nothing;
    if (!*str) {
        const int rc = in.next_line(stream);
        if (rc == UCI_ERR_NOTFOUND) return UCI_OK;
        if (rc) return rc;
    } else if (in.holds(*str)) {
        in.seek(in.place_of(*str));
    } else {
        return UCI_ERR_INVAL;
    }
    std::size_t word = 0;
    const int rc = in.word(stream, &word);
    if (rc == UCI_ERR_PARSE) {
        ctx->parse_reason = in.reason();
        ctx->parse_line = in.lines();
        ctx->parse_byte = static_cast<int>(in.pos());
    }
    if (rc) return rc;
    *result_text = in.text(word);
    *str = in.text(in.pos());
    return UCI_OK;
}

} // namespace
} // namespace uci

using namespace uci;

uci_context *uci_alloc_context() {
    auto *block = static_cast<context_block *>(std::calloc(1, sizeof(context_block)));
    if (!block) return nullptr;
    uci_context *ctx = &block->ctx;
    list_init(ctx->root);
    list_init(ctx->backends);
    list_init(ctx->delta_path);
    ctx->flags = static_cast<uci_flags>(UCI_FLAG_STRICT | UCI_FLAG_SAVED_DELTA);

    static char name[] = "file";
    block->file.e.type = UCI_TYPE_BACKEND;
    block->file.e.name = name;
    block->file.list_configs = list_packages;
    block->file.load = load_package;
    block->file.commit = commit_package;
    list_append(ctx->backends, block->file.e.list);
    ctx->backend = &block->file;

    if (uci_set_confdir(ctx, UCI_CONFDIR) || uci_set_conf2dir(ctx, UCI_CONF2DIR) ||
        uci_set_savedir(ctx, UCI_SAVEDIR)) {
        uci_free_context(ctx);
        return nullptr;
    }
    return ctx;
}

void uci_free_context(uci_context *ctx) {
    if (!ctx) return;
    uci_element *e, *next;
    uci_foreach_element_safe (&ctx->root, next, e) free_package(uci_to_package(e));
    free_parse_context(ctx->pctx);
    free_elements(ctx->delta_path);
    std::free(ctx->confdir);
    std::free(ctx->savedir);
    std::free(ctx->conf2dir);
    std::free(ctx);
}

int uci_set_confdir(uci_context *ctx, const char *dir) {
    if (!ctx) return UCI_ERR_INVAL;
    return dir ? replace_text(ctx, &ctx->confdir, dir) : result(ctx, UCI_ERR_INVAL);
}

int uci_set_conf2dir(uci_context *ctx, const char *dir) {
    if (!ctx) return UCI_ERR_INVAL;
    return replace_text(ctx, &ctx->conf2dir, dir && *dir ? dir : nullptr);
}

int uci_set_savedir(uci_context *ctx, const char *dir) {
    if (!ctx) return UCI_ERR_INVAL;
    if (!dir) return result(ctx, UCI_ERR_INVAL);
    uci_element *e = find(ctx->delta_path, dir);
    if (!e) e = new_element(ctx->delta_path, UCI_TYPE_PATH, dir);
    if (!e) return result(ctx, UCI_ERR_MEM);
    list_unlink(e->list);
    list_append(ctx->delta_path, e->list);
    return replace_text(ctx, &ctx->savedir, dir);
}

int uci_add_delta_path(uci_context *ctx, const char *dir) {
    if (!ctx) return UCI_ERR_INVAL;
    if (!dir) return result(ctx, UCI_ERR_INVAL);
    if (find(ctx->delta_path, dir)) return result(ctx, UCI_ERR_DUPLICATE);
    uci_list &savedir = *ctx->delta_path.prev;
    uci_element *e = new_element(ctx->delta_path, UCI_TYPE_PATH, dir);
    if (!e) return result(ctx, UCI_ERR_MEM);
    list_unlink(savedir);
    list_append(ctx->delta_path, savedir);
    return result(ctx, UCI_OK);
}

int uci_set_backend(uci_context *ctx, const char *name) {
    if (!ctx) return UCI_ERR_INVAL;
    if (!name) return result(ctx, UCI_ERR_INVAL);
    uci_element *e = find(ctx->backends, name);
    if (!e) return result(ctx, UCI_ERR_NOTFOUND);
    ctx->backend = uci_to_backend(e);
    return result(ctx, UCI_OK);
}

void uci_get_errorstr(uci_context *ctx, char **dest, const char *prefix) {
    if (!dest) return;
    const auto err = static_cast<unsigned>(ctx ? ctx->err : UCI_ERR_INVAL);
    const char *text = err < error_texts.size() ? error_texts[err] : error_texts.back();
    const char *colon = prefix ? ": " : "";
    if (!prefix) prefix = "";
    const int n = ctx && err == UCI_ERR_PARSE && ctx->parse_reason
                      ? asprintf(dest, "%s%s%s (%s) at line %d, byte %d", prefix, colon, text,
                                 ctx->parse_reason, ctx->parse_line, ctx->parse_byte)
                      : asprintf(dest, "%s%s%s", prefix, colon, text);
    if (n < 0) *dest = nullptr;
}

void uci_perror(uci_context *ctx, const char *prefix) {
    char *text = nullptr;
    uci_get_errorstr(ctx, &text, prefix);
    const text_ptr owner(text);
    if (text) (void)std::fprintf(stderr, "%s\n", text);
}

int uci_parse_argument(uci_context *ctx, FILE *stream, char **str, char **result_text) {
    if (!ctx) return UCI_ERR_INVAL;
    if (!stream || !str || !result_text) return result(ctx, UCI_ERR_INVAL);
    return result(ctx, argument(ctx, stream, str, result_text));
}
