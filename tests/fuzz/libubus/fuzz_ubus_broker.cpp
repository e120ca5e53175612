// What clients send to the broker: three of root and one of a user with some rights talk to it and to each other.
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <unistd.h>

#include <broker.h>
#include <connection.h>
#include <rule.h>

#include "script.h"

namespace {

constexpr int connections = 4;
constexpr const char *rules = R"({"user":"user","access":{"a*":{"methods":["m","n*"],"acl":{"x":1}}},
    "publish":["u*"],"subscribe":["a"],"listen":["e*"],"send":["e"]})";

std::uint32_t g_next_id;

class fuzzed_bus {
public:
    fuzzed_bus() {
        uloop_init();
        ubusd::broker_init(bus_, "/nonexistent");
        ubusd::rules_parse(bus_.rules, rules);
        for (int i = 0; i < connections; ++i) open(i);
    }
    ~fuzzed_bus() {
        for (int i = 0; i < connections; ++i) close(ends_[i]);
        run(connections + 1);
        ubusd::broker_done(bus_);
        uloop_done();
    }

    void take(const step &s) {
        int &end = ends_[s.connection];
        if (s.kind == STEP_RENEW) {
            close(end);
            open(static_cast<int>(s.connection));
        } else if (s.kind == STEP_READ) {
            char ignored[65536];
            while (recv(end, ignored, sizeof ignored, MSG_DONTWAIT) > 0) {
            }
        } else if (send(end, s.bytes.data(), s.bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
            return;
        }
        run(3);
    }

    void run(int turns) {
        while (turns-- > 0) uloop_run_timeout(0);
    }

private:
    void open(int i) {
        int pair[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair)) std::abort();
        ends_[i] = pair[0];
        const bool root = i < connections - 1;
        const auto id = static_cast<unsigned>(root ? 0 : 1000);
        ubusd::client_add(
            bus_, pair[1],
            {id, id, strdup(root ? "root" : "user"), strdup(root ? "root" : "users"), nullptr, 0});
    }

    ubusd::broker bus_;
    int ends_[connections];
};

} // namespace

// Ids count up from the first, so that an input can name what it has made.
extern "C" ssize_t getrandom(void *buffer, std::size_t size, unsigned) {
    std::memset(buffer, 0, size);
    std::memcpy(buffer, &g_next_id, std::min(size, sizeof g_next_id));
    ++g_next_id;
    return static_cast<ssize_t>(size);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    g_next_id = UBUS_SYSTEM_OBJECT_MAX;
    fuzzed_bus bus;
    std::span<const std::uint8_t> input(data, size);
    for (int i = 0; i < 64 && input.size() >= step_header; ++i) bus.take(next_step(input));
    bus.run(20);
    return 0;
}
