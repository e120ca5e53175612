#include "support/driver.h"

#include "was/was.h"

namespace {
std::vector<driver_request> g_requests;
driver_function g_driver;
} // namespace

int was_ext_ioctl_msg(void *buf, int size, const char *ifname, int cmd, int arg) {
    auto *bytes = static_cast<std::uint8_t *>(buf);
    const std::span<std::uint8_t> answer{bytes, static_cast<std::size_t>(size)};
    g_requests.push_back({cmd, size, ifname, arg, {answer.begin(), answer.end()}});
    if (!g_driver) return -1;
    return g_driver(driver_request(g_requests.back()), answer);
}

const std::vector<driver_request> &driver_requests() { return g_requests; }

void set_driver(driver_function driver) { g_driver = std::move(driver); }

void forget_driver() {
    g_requests.clear();
    g_driver = nullptr;
}
