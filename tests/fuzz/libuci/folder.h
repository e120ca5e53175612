// folder.h - what the targets share: a folder of packages and deltas.
#pragma once

#include "../require.h"

#include <uci.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

// One folder for all runs of the process, gone at its end: etc/ holds packages, save/ deltas.
class folder {
public:
    folder() {
        std::string name = std::filesystem::temp_directory_path() / "uci-fuzz-XXXXXX";
        require(mkdtemp(name.data()) != nullptr, "a temporary folder can be made");
        root_ = name;
        std::filesystem::create_directory(root_ / "etc");
        std::filesystem::create_directory(root_ / "save");
    }
    folder(const folder &) = delete;
    ~folder() { std::filesystem::remove_all(root_); }

    void write(const char *name, std::string_view text) const {
        std::ofstream(root_ / name, std::ios::binary) << text;
    }
    std::string read(const char *name) const {
        std::ifstream in(root_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    std::string path(const char *name) const { return root_ / name; }

private:
    std::filesystem::path root_;
};

// A context that reads and writes in the folder.
class context {
public:
    explicit context(const folder &place) : ctx_(uci_alloc_context()) {
        uci_set_confdir(ctx_, place.path("etc").c_str());
        uci_set_savedir(ctx_, place.path("save").c_str());
        uci_set_conf2dir(ctx_, nullptr);
    }
    context(const context &) = delete;
    ~context() { uci_free_context(ctx_); }
    operator uci_context *() const { return ctx_; }
    uci_context *operator->() const { return ctx_; }

private:
    uci_context *ctx_;
};

inline std::string exported(uci_context *ctx, uci_package *p) {
    char *text = nullptr;
    std::size_t length = 0;
    FILE *out = open_memstream(&text, &length);
    require(uci_export(ctx, out, p, false) == UCI_OK, "a package can be exported");
    std::fclose(out);
    std::string copy(text, length);
    std::free(text);
    return copy;
}

// Types are written without quotes, so some that can be read cannot be read again.
inline bool can_be_read_again(uci_package *p) {
    uci_element *e;
    uci_foreach_element (&p->sections, e) {
        if (std::string_view(uci_to_section(e)->type).find_first_of("#;'\"\\") != std::string_view::npos)
            return false;
    }
    return true;
}
