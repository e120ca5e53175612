#include "apsim/lease_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>

namespace {
constexpr int lease_time = 12 * 3600; // seconds
}

std::string lease_file::write() const {
    const std::string draft = path_ + ".new";
    std::ofstream out(draft, std::ios::binary | std::ios::trunc);
    for (const auto &[mac, held] : leases_)
        out << std::time(nullptr) + lease_time << ' ' << mac << ' ' << held.ip << ' ' << held.name
            << " 01:" << mac << '\n';
    out.close();
    if (!out || std::rename(draft.c_str(), path_.c_str()) != 0) {
        std::string why = "cannot write " + path_ + ": " + std::strerror(errno);
        (void)std::remove(draft.c_str());
        return why;
    }
    return {};
}
