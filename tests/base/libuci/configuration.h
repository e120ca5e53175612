// configuration.h - a context with folders of its own, gone at the end of the test.
#pragma once

#include <uci.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

class configuration {
public:
    configuration() : root_(make_root()), ctx_(uci_alloc_context()) {
        std::filesystem::create_directory(root_ / "etc");
        use_folders(ctx_);
    }
    configuration(const configuration &) = delete;
    ~configuration() {
        uci_free_context(ctx_);
        std::filesystem::remove_all(root_);
    }

    // The context looks for packages in etc/, for overrides in over/, and for deltas in save/.
    void use_folders(uci_context *ctx) const {
        EXPECT_EQ(uci_set_confdir(ctx, path("etc").c_str()), UCI_OK);
        EXPECT_EQ(uci_set_conf2dir(ctx, path("over").c_str()), UCI_OK);
        EXPECT_EQ(uci_set_savedir(ctx, path("save").c_str()), UCI_OK);
    }

    uci_context *ctx() const { return ctx_; }
    std::string path(const std::string &name) const { return root_ / name; }

    void write(const std::string &name, const std::string &text) const {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        std::ofstream(path(name), std::ios::binary) << text;
    }
    std::string read(const std::string &name) const {
        std::ifstream in(path(name), std::ios::binary);
        EXPECT_TRUE(in) << name << " does not exist";
        return {std::istreambuf_iterator<char>(in), {}};
    }
    bool exists(const std::string &name) const { return std::filesystem::exists(path(name)); }
    std::vector<std::string> files_in(const std::string &folder) const {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(path(folder)))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    uci_package *load(const char *name) const {
        uci_package *p = nullptr;
        EXPECT_EQ(uci_load(ctx_, name, &p), UCI_OK) << name;
        return p;
    }
    // With a package written first.
    uci_package *load(const char *name, const std::string &text) const {
        write(std::string("etc/") + name, text);
        return load(name);
    }

    // The place that a tuple names; its text lives as long as this object.
    uci_ptr at(const std::string &tuple) {
        texts_.push_back(std::make_unique<std::string>(tuple));
        uci_ptr ptr;
        EXPECT_EQ(uci_lookup_ptr(ctx_, &ptr, texts_.back()->data(), true), UCI_OK) << tuple;
        return ptr;
    }

    std::string error() const {
        char *text = nullptr;
        uci_get_errorstr(ctx_, &text, nullptr);
        std::string copy = text ? text : "(null)";
        free(text);
        return copy;
    }

    // The package as it would be written.
    std::string exported(uci_package *p) const {
        char *text = nullptr;
        std::size_t length = 0;
        FILE *out = open_memstream(&text, &length);
        EXPECT_EQ(uci_export(ctx_, out, p, false), UCI_OK);
        fclose(out);
        std::string copy(text, length);
        free(text);
        return copy;
    }

private:
    static std::filesystem::path make_root() {
        std::string name = std::filesystem::temp_directory_path() / "uci-test-XXXXXX";
        return mkdtemp(name.data());
    }
    std::filesystem::path root_;
    uci_context *ctx_;
    std::vector<std::unique_ptr<std::string>> texts_;
};
