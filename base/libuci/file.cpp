#include "file.h"

#include "delta.h"
#include "import.h"
#include "locked_file.h"
#include "text.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace uci {
namespace {

bool is_path(const char *name) { return *name == '/' || std::strncmp(name, "./", 2) == 0; }

// Where a package is, and what follows from the way it was asked for.
struct location {
    text_ptr path;
    const char *name = nullptr; // of the package; points into what was asked for
    bool has_delta = false;
    bool uses_conf2 = false;
};

int locate(uci_context *ctx, const char *name, location *at) {
    if (is_path(name)) {
        at->name = std::strrchr(name, '/') + 1;
        at->path.reset(strdup(name));
    } else {
        if (*name == '.') return UCI_ERR_NOTFOUND;
        at->name = name;
        at->has_delta = true;
        if (ctx->conf2dir) {
            at->path = join_path(ctx->conf2dir, name);
            if (!at->path) return UCI_ERR_MEM;
            at->uses_conf2 = is_regular(at->path.get());
        }
        if (!at->uses_conf2) at->path = join_path(ctx->confdir, name);
    }
    if (!is_type(at->name)) return UCI_ERR_INVAL;
    return at->path ? UCI_OK : UCI_ERR_MEM;
}

// Reads a package from its open file, which stays locked meanwhile: otherwise a commit between reading the package and
// reading its deltas would be seen in part.
int read_package(uci_context *ctx, const location &at, FILE *file, FILE **savedir_file, int *applied,
                 package_ptr *package) {
    package_ptr p(new_package(ctx, at.name, at.path.get()));
    if (!p) return UCI_ERR_MEM;
    p->has_delta = at.has_delta;
    p->uses_conf2 = at.uses_conf2;
    if (const int rc = parse_package(ctx, file, p.get(), false)) return rc;
    if (at.has_delta) {
        if (const int rc = apply_deltas(ctx, p.get(), savedir_file, applied)) return rc;
    }
    *package = std::move(p);
    return UCI_OK;
}

// Puts a package in the place of another that is loaded, which is freed.
void replace_package(uci_package **old, package_ptr fresh) {
    list_insert_after((*old)->e.list, fresh->e.list);
    list_unlink((*old)->e.list);
    free_package(*old);
    *old = fresh.release();
}

// The temporary file that becomes the package file, or is gone at the end of the scope.
class temporary_file {
public:
    explicit temporary_file(text_ptr path) : path_(std::move(path)) {}
    temporary_file(temporary_file &&) = delete;
    ~temporary_file() {
        if (made_) (void)unlink(path_.get());
    }
    bool open() {
        const int fd = mkostemp(path_.get(), O_CLOEXEC);
        made_ = fd >= 0;
        file_.reset(made_ ? fdopen(fd, "w") : nullptr);
        if (made_ && !file_) (void)close(fd);
        return file_ != nullptr;
    }
    FILE *get() { return file_.get(); }
    bool become(const char *target, const struct stat *old) {
        const int fd = fileno(file_.get());
        if (std::fflush(file_.get()) != 0 || (old && fchmod(fd, old->st_mode & 07777) != 0) ||
            fsync(fd) != 0 || rename(path_.get(), target) != 0)
            return false;
        made_ = false;
        return true;
    }

private:
    text_ptr path_;
    file_ptr file_;
    bool made_ = false;
};

// Replaces the file that path leads to by a new one made beside it, so that no reader sees a half-written package.
int write_package_file(uci_context *ctx, uci_package *p, const char *path) {
    struct stat old;
    const bool exists = stat(path, &old) == 0;
    if (exists && !S_ISREG(old.st_mode)) return UCI_ERR_IO;
    const text_ptr target(exists ? realpath(path, nullptr) : strdup(path));
    if (!target) return errno == ENOMEM ? UCI_ERR_MEM : UCI_ERR_IO;

    const char *name = std::strrchr(target.get(), '/');
    const int folder = name ? static_cast<int>(name + 1 - target.get()) : 0;
    char *pattern = nullptr;
    if (asprintf(&pattern, "%.*s.%s.uci-XXXXXX", folder, target.get(), target.get() + folder) < 0)
        return UCI_ERR_MEM;
    temporary_file temporary{text_ptr(pattern)};
    if (!temporary.open()) return UCI_ERR_IO;
    if (const int rc = uci_export(ctx, temporary.get(), p, false)) return rc;
    return temporary.become(target.get(), exists ? &old : nullptr) ? UCI_OK : UCI_ERR_IO;
}

// Writes the package as it stands in memory. That has what was loaded from the savedir, and replaces what others
// have written since; so the savedir's file ends empty, locked from before the package changes.
int overwrite_package(uci_context *ctx, uci_package *p) {
    if (!p->path) p->path = join_path(ctx->confdir, p->e.name).release();
    const text_ptr savedir_path = join_path(ctx->savedir, p->e.name);
    if (!p->path || !savedir_path) return UCI_ERR_MEM;
    file_ptr locked, savedir_file;
    int rc = open_locked(p->path, lock::exclusive, &locked);
    if ((rc == UCI_OK || rc == UCI_ERR_NOTFOUND) && p->has_delta)
        rc = open_locked(savedir_path.get(), lock::exclusive, &savedir_file);
    if (rc == UCI_OK || rc == UCI_ERR_NOTFOUND) rc = write_package_file(ctx, p, p->path);
    if (rc) return rc;
    if (savedir_file && ftruncate(fileno(savedir_file.get()), 0) != 0) return UCI_ERR_IO;
    free_deltas(p->delta);
    free_deltas(p->saved_delta);
    return UCI_OK;
}

// Brings package file and deltas together.
int merge_deltas(uci_context *ctx, uci_package **package) {
    uci_package *p = *package;
    if (const int rc = save_deltas(ctx, p)) return rc;
    file_ptr file;
    if (const int rc = open_locked(p->path, lock::exclusive, &file)) return rc;

    location at;
    at.path.reset(strdup(p->path));
    if (!at.path) return UCI_ERR_MEM;
    at.name = p->e.name;
    at.has_delta = true;
    at.uses_conf2 = p->uses_conf2;
    package_ptr fresh;
    FILE *handed_over = nullptr;
    int applied = 0;
    int rc = read_package(ctx, at, file.get(), &handed_over, &applied, &fresh);
    const file_ptr savedir_file(handed_over);
    if (rc == UCI_OK && applied > 0) rc = write_package_file(ctx, fresh.get(), fresh->path);
    if (rc) return rc;
    if (savedir_file && ftruncate(fileno(savedir_file.get()), 0) != 0) return UCI_ERR_IO;
    free_deltas(fresh->saved_delta);
    replace_package(package, std::move(fresh));
    return UCI_OK;
}

int reload(uci_context *ctx, uci_package **package) {
    uci_package *p = *package;
    file_ptr file;
    location at;
    package_ptr fresh;
    if (const int rc = locate(ctx, p->e.name, &at)) return rc;
    if (const int rc = open_locked(at.path.get(), lock::shared, &file)) return rc;
    if (const int rc = read_package(ctx, at, file.get(), nullptr, nullptr, &fresh)) return rc;
    replace_package(package, std::move(fresh));
    return UCI_OK;
}

int revert(uci_context *ctx, uci_ptr *ptr) {
    if (!(ptr->flags & uci_ptr::UCI_LOOKUP_DONE)) {
        if (const int rc = uci_lookup_ptr(ctx, ptr, nullptr, true)) return rc;
    }
    uci_package *p = ptr->p;
    if (!p || !p->has_delta) return UCI_ERR_INVAL;
    const char *section = ptr->s ? ptr->s->e.name : ptr->section;
    const char *option = ptr->o ? ptr->o->e.name : ptr->option;
    if (const int rc = drop_deltas(ctx, p->e.name, section, option)) return rc;
    if (const int rc = reload(ctx, &p)) return rc;
    *ptr = {};
    ptr->target = UCI_TYPE_PACKAGE;
    ptr->p = p;
    ptr->package = p->e.name;
    return UCI_OK;
}

// A name that a package may have; those with a dot are left to the backups of editors and package managers.
bool is_listed_name(const char *name) { return !std::strchr(name, '.') && is_type(name); }

struct entries {
    dirent **list = nullptr;
    int count = 0;
    entries() = default;
    entries(entries &&) = delete;
    ~entries() {
        for (int i = 0; i < count; ++i) std::free(list[i]);
        std::free(list);
    }
};

int by_bytes(const dirent **a, const dirent **b) { return std::strcmp((*a)->d_name, (*b)->d_name); }

} // namespace

int list_packages(uci_context *ctx, char ***list) {
    entries found;
    found.count = scandir(
        ctx->confdir, &found.list,
        [](const dirent *e) { return static_cast<int>(is_listed_name(e->d_name)); }, by_bytes);
    if (found.count < 0) {
        found.count = 0;
        return errno == ENOMEM ? UCI_ERR_MEM : UCI_ERR_NOTFOUND;
    }
    std::size_t count = 0, bytes = 0;
    for (int i = 0; i < found.count; ++i) {
        const char *name = found.list[i]->d_name;
        const text_ptr path = join_path(ctx->confdir, name);
        if (!path) return UCI_ERR_MEM;
        if (is_regular(path.get())) {
            ++count;
            bytes += std::strlen(name) + 1;
        } else {
            found.list[i]->d_name[0] = '\0';
        }
    }
    if (count == 0) return UCI_ERR_NOTFOUND;

    // The names follow the array in one block, so that one free() is enough.
    auto *block = static_cast<char **>(std::malloc((count + 1) * sizeof(char *) + bytes));
    if (!block) return UCI_ERR_MEM;
    char **entry = block;
    char *text = reinterpret_cast<char *>(block + count + 1);
    for (int i = 0; i < found.count; ++i) {
        if (found.list[i]->d_name[0] == '\0') continue;
        *entry++ = text;
        text = stpcpy(text, found.list[i]->d_name) + 1;
    }
    *entry = nullptr;
    *list = block;
    return UCI_OK;
}

int load_package(uci_context *ctx, const char *name, uci_package **package) {
    file_ptr file;
    location at;
    package_ptr p;
    if (const int rc = locate(ctx, name, &at)) return rc;
    if (find(ctx->root, at.name)) return UCI_ERR_DUPLICATE;
    if (const int rc = open_locked(at.path.get(), lock::shared, &file)) return rc;
    if (const int rc = read_package(ctx, at, file.get(), nullptr, nullptr, &p)) return rc;
    list_append(ctx->root, p->e.list);
    if (package) *package = p.get();
    (void)p.release();
    return UCI_OK;
}

int commit_package(uci_context *ctx, uci_package **package, bool overwrite) {
    uci_package *p = *package;
    if (!p->path && !overwrite) return UCI_ERR_INVAL;
    return overwrite || !p->has_delta ? overwrite_package(ctx, p) : merge_deltas(ctx, package);
}

} // namespace uci

using namespace uci;

int uci_load(uci_context *ctx, const char *name, uci_package **package) {
    if (!ctx) return UCI_ERR_INVAL;
    return result(ctx, name ? ctx->backend->load(ctx, name, package) : UCI_ERR_INVAL);
}

int uci_unload(uci_context *ctx, uci_package *package) {
    if (!ctx) return UCI_ERR_INVAL;
    if (!package) return result(ctx, UCI_ERR_INVAL);
    list_unlink(package->e.list);
    free_package(package);
    return result(ctx, UCI_OK);
}

int uci_save(uci_context *ctx, uci_package *p) {
    if (!ctx) return UCI_ERR_INVAL;
    if (!p) return result(ctx, UCI_ERR_INVAL);
    return result(ctx, p->has_delta ? save_deltas(ctx, p) : ctx->backend->commit(ctx, &p, false));
}

int uci_commit(uci_context *ctx, uci_package **p, bool overwrite) {
    if (!ctx) return UCI_ERR_INVAL;
    return result(ctx, p && *p ? ctx->backend->commit(ctx, p, overwrite) : UCI_ERR_INVAL);
}

int uci_revert(uci_context *ctx, uci_ptr *ptr) {
    if (!ctx) return UCI_ERR_INVAL;
    return result(ctx, ptr ? revert(ctx, ptr) : UCI_ERR_INVAL);
}

int uci_list_configs(uci_context *ctx, char ***list) {
    if (!ctx) return UCI_ERR_INVAL;
    return result(ctx, list ? ctx->backend->list_configs(ctx, list) : UCI_ERR_INVAL);
}
