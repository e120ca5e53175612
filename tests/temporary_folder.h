// temporary_folder.h - an empty folder for one test, removed with all that is in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

struct temporary_folder {
    temporary_folder() : path((std::filesystem::temp_directory_path() / "test-XXXXXX").string()) {
        if (!mkdtemp(path.data())) std::abort();
    }
    ~temporary_folder() { std::filesystem::remove_all(path); }
    temporary_folder(temporary_folder &&) = delete;

    std::string file(const std::string &name) const { return path + "/" + name; }
    std::string text(const std::string &name) const {
        std::ifstream in(file(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    std::string path;
};
