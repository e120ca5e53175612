#include "fleet/ledger.h"

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <stdexcept>

fleet_ledger::fleet_ledger(const std::string &path) {
    if (path.empty()) return;
    file_ = std::fopen(path.c_str(), "w");
    if (!file_) throw std::runtime_error(path + ": " + std::strerror(errno));
}

fleet_ledger::~fleet_ledger() { finish(); }

void fleet_ledger::report(const std::string &ap, const std::string &boot, std::uint64_t seq) {
    ++reports_;
    if (file_) std::fprintf(file_, "report %s %s %" PRIu64 "\n", ap.c_str(), boot.c_str(), seq);
}

void fleet_ledger::station(const std::string &mac, const std::string &ap, std::int64_t began,
                           std::int64_t ended) {
    if (!file_) return;
    kept &one = stays_.try_emplace(mac, kept{ap, began, 0, 0}).first->second;
    one.ended = ended;
    ++one.reports;
}

void fleet_ledger::flush() {
    if (file_) std::fflush(file_);
}

bool fleet_ledger::finish() {
    if (!file_) return true;
    for (const auto &[mac, one] : stays_)
        std::fprintf(file_, "stay %s %s %" PRId64 " %" PRId64 " %" PRIu64 "\n", mac.c_str(), one.ap.c_str(),
                     one.began, one.ended, one.reports);
    const bool good = std::ferror(file_) == 0;
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    return good && closed;
}
