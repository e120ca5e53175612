#include "delta.h"

#include "edit.h"
#include "locked_file.h"
#include "quote.h"
#include "reader.h"
#include "text.h"
#include "tuple.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace uci {
namespace {

struct delta_line {
    uci_command cmd;
    uci_ptr place;
};

bool takes(uci_command cmd, const uci_ptr &place) {
    switch (cmd) {
    case UCI_CMD_ADD: return !place.option && place.value && is_type(place.value);
    case UCI_CMD_REMOVE: return true;
    case UCI_CMD_RENAME: return place.value && is_name(place.value);
    case UCI_CMD_CHANGE:
    case UCI_CMD_REORDER:
    case UCI_CMD_LIST_ADD:
    case UCI_CMD_LIST_DEL: return place.value != nullptr;
    case __UCI_CMD_MAX: break;
    }
    return false;
}

// A line that is not a change of this package is ignored: other tools may have written into the file.
std::optional<delta_line> parse_delta(char *text, const char *package) {
    delta_line line{UCI_CMD_CHANGE, {}};
    for (int i = 0; i < __UCI_CMD_MAX; ++i) {
        if (*text == '\0' || *text != uci_command_char[i]) continue;
        line.cmd = static_cast<uci_command>(i);
        ++text;
        break;
    }
    if (split_tuple(&line.place, text) != UCI_OK || std::strcmp(line.place.package, package) != 0)
        return std::nullopt;
    if (!line.place.section || !is_name(line.place.section) || !takes(line.cmd, line.place))
        return std::nullopt;
    return line;
}

// Calls use(line) for every change in the file; stops at the first result that is not UCI_OK.
template <class Use> int for_each_delta(FILE *file, const char *package, Use use) {
    reader in(reader::semicolon::ends_line);
    for (;;) {
        std::size_t word = 0;
        int rc = in.next_line(file);
        if (rc == UCI_ERR_NOTFOUND) return UCI_OK;
        if (rc == UCI_OK) rc = in.word(file, &word);
        if (rc == UCI_ERR_PARSE) return UCI_OK; // the open quote includes the rest of the file
        if (rc) return rc;
        in.skip_space();
        if (!in.at_end() || in.cut()) continue;
        auto line = parse_delta(in.text(word), package);
        if (line && (rc = use(*line))) return rc;
    }
}

int apply_file(uci_context *ctx, uci_package *p, FILE *file, int *applied) {
    const bool keep = (ctx->flags & UCI_FLAG_SAVED_DELTA) != 0;
    return for_each_delta(file, p->e.name, [=](delta_line &line) -> int {
        uci_ptr &place = line.place;
        delta_ptr saved(keep ? new_delta(line.cmd, place.section, place.option, place.value) : nullptr);
        if (keep && !saved) return UCI_ERR_MEM;
        place.p = p;
        find_plain(&place);
        const int rc = change(&place, line.cmd, false);
        if (rc == UCI_ERR_MEM) return rc;
        if (rc == UCI_OK && applied) ++*applied;
        if (saved) list_append(p->saved_delta, saved.release()->e.list);
        return UCI_OK;
    });
}

void write_delta(FILE *out, const char *package, const uci_delta *d) {
    if (const char prefix = uci_command_char[d->cmd]) (void)std::fputc(prefix, out);
    (void)std::fprintf(out, "%s.%s", package, d->section);
    if (d->e.name) (void)std::fprintf(out, ".%s", d->e.name);
    if (d->value) {
        (void)std::fputc('=', out);
        write_quoted(out, d->value);
    }
    (void)std::fputc('\n', out);
}

// All deltas of a list as text; null when out of memory.
text_ptr deltas_as_text(const char *package, uci_list &deltas, std::size_t *length) {
    char *text = nullptr;
    FILE *out = open_memstream(&text, length);
    if (!out) return nullptr;
    uci_element *e;
    uci_foreach_element (&deltas, e) write_delta(out, package, uci_to_delta(e));
    const bool failed = std::ferror(out) != 0;
    text_ptr owner;
    if (std::fclose(out) == 0 && !failed)
        owner.reset(text);
    else
        std::free(text);
    return owner;
}

bool write_at(int fd, const char *text, std::size_t length, off_t place) {
    while (length > 0) {
        const ssize_t n = pwrite(fd, text, length, place);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        text += n;
        place += n;
        length -= static_cast<std::size_t>(n);
    }
    return true;
}

} // namespace

int apply_deltas(uci_context *ctx, uci_package *p, FILE **savedir_file, int *applied) {
    uci_element *e;
    uci_foreach_element (&ctx->delta_path, e) {
        const bool hand_over = savedir_file && e->list.next == &ctx->delta_path;
        const text_ptr path = join_path(e->name, p->e.name);
        if (!path) return UCI_ERR_MEM;
        file_ptr file;
        int rc = open_locked(path.get(), hand_over ? lock::exclusive : lock::shared, &file);
        // A user who may read the package but not others' changes sees it without them.
        if (rc == UCI_ERR_NOTFOUND || (rc == UCI_ERR_IO && !savedir_file)) continue;
        if (rc == UCI_OK) rc = apply_file(ctx, p, file.get(), applied);
        if (rc) return rc;
        if (hand_over) *savedir_file = file.release();
    }
    return UCI_OK;
}

int save_deltas(uci_context *ctx, uci_package *p) {
    if (uci_list_empty(&p->delta)) return UCI_OK;
    const text_ptr package_path = join_path(ctx->confdir, p->e.name);
    const text_ptr path = join_path(ctx->savedir, p->e.name);
    std::size_t length = 0;
    const text_ptr text = deltas_as_text(p->e.name, p->delta, &length);
    if (!package_path || !path || !text) return UCI_ERR_MEM;

    if (mkdir(ctx->savedir, mode_of(ctx->confdir, UCI_DIRMODE)) != 0 && errno != EEXIST) return UCI_ERR_IO;
    file_ptr file;
    if (const int rc = create_locked(path.get(), mode_of(package_path.get(), UCI_FILEMODE), &file)) return rc;
    const int fd = fileno(file.get());
    const off_t end = lseek(fd, 0, SEEK_END);
    if (end < 0) return UCI_ERR_IO;
    if (!write_at(fd, text.get(), length, end)) {
        // Half a change would be worse than none. If cutting the file fails, too, the error is the same.
        [[maybe_unused]] const int cut = ftruncate(fd, end);
        return UCI_ERR_IO;
    }
    if (ctx->flags & UCI_FLAG_SAVED_DELTA)
        list_move_all(p->saved_delta, p->delta);
    else
        free_deltas(p->delta);
    return UCI_OK;
}

int drop_deltas(uci_context *ctx, const char *package, const char *section, const char *option) {
    const text_ptr path = join_path(ctx->savedir, package);
    if (!path) return UCI_ERR_MEM;
    file_ptr file;
    int rc = open_locked(path.get(), lock::exclusive, &file);
    if (rc) return rc == UCI_ERR_NOTFOUND ? UCI_OK : rc;

    uci_list kept;
    list_init(kept);
    bool any = false;
    rc = for_each_delta(file.get(), package, [&](const delta_line &line) -> int {
        const uci_ptr &place = line.place;
        if ((!section || std::strcmp(section, place.section) == 0) &&
            (!option || (place.option && std::strcmp(option, place.option) == 0))) {
            any = true;
            return UCI_OK;
        }
        uci_delta *d = new_delta(line.cmd, place.section, place.option, place.value);
        if (!d) return UCI_ERR_MEM;
        list_append(kept, d->e.list);
        return UCI_OK;
    });
    std::size_t length = 0;
    const text_ptr text = deltas_as_text(package, kept, &length);
    free_deltas(kept);
    if (rc) return rc;
    if (!any) return UCI_OK;
    if (!text) return UCI_ERR_MEM;
    const int fd = fileno(file.get());
    // The new content is never longer than the old one, so a full disk cannot lose it.
    return write_at(fd, text.get(), length, 0) && ftruncate(fd, static_cast<off_t>(length)) == 0 ? UCI_OK
                                                                                                 : UCI_ERR_IO;
}

} // namespace uci
