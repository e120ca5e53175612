#include "support/bus.h"

#include "base/cxx/ubus.h"

#include <chrono>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>

namespace {

constexpr const char *path = "/var/run/ubus/ubus.sock";
constexpr int step_ms = 10;
pid_t g_broker = 0;

bool accepts() {
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", path);
    const bool open = connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    close(client);
    return open;
}

bool wait_until(const std::function<bool()> &done, int bound_ms, const std::function<void()> &step) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(bound_ms);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        step();
    }
    return true;
}

} // namespace

void start_bus() {
    g_broker = fork();
    if (g_broker == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execlp("ubusd", "ubusd", "-s", path, nullptr);
        _exit(127);
    }
    if (!wait_until(accepts, 10000, [] { std::this_thread::sleep_for(std::chrono::milliseconds(step_ms)); }))
        throw std::runtime_error("the broker does not accept connections");
}

void stop_bus() {
    if (g_broker <= 0) return;
    kill(g_broker, SIGTERM);
    while (waitpid(g_broker, nullptr, 0) < 0 && errno == EINTR) {
    } // the loop may have reaped it already
    g_broker = 0;
}

bool loop_until(const std::function<bool()> &done, int bound_ms) {
    return wait_until(done, bound_ms, [] { uloop_run_timeout(step_ms); });
}
