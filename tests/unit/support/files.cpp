#include "support/files.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/stat.h>

void write_file(const std::string &path, std::string_view text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out.flush()) throw std::runtime_error("cannot write " + path);
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

bool file_exists(const std::string &path) { return std::filesystem::exists(path); }

void set_file_time(const std::string &path, long seconds) {
    const timespec both[2] = {{seconds, 0}, {seconds, 0}};
    if (utimensat(AT_FDCWD, path.c_str(), both, 0) != 0) throw std::runtime_error("cannot date " + path);
}

full_disk::full_disk(unsigned long room) {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    before = limit.rlim_cur;
    limit.rlim_cur = room;
    std::signal(SIGXFSZ, SIG_IGN);
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) throw std::runtime_error("no limit for files");
}

full_disk::~full_disk() {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = before;
    setrlimit(RLIMIT_FSIZE, &limit);
}
