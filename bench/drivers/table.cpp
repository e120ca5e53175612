// The cost of a log-up's two driver requests, number and table, for the bridge. The kernel's answers are recorded ones, given
// to the bridge where it would read its socket; everything else is real: the socket of libwas, the loop, the list of stations.
// The floor answers the same requests with ready bytes.
#include "nl80211/recorded.h"

#include "channel/request_server.h"
#include "nl80211/bridge.h"
#include "protocol/driver_request.h"
#include "was/was_request.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/nl80211.h>
#include <netlink/msg.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

struct nl_sock;

namespace {

// --- the kernel ---

int kernel_fd = -1; // replaces the bridge's sockets to the kernel
std::vector<octets> dump_of_stations;
std::vector<octets> answers; // to the last request
std::size_t answers_read = 0;
std::uint32_t number_of_question = 0;

void answer(const octets &content) { answers.push_back(netlink(content)); }

void take_question(nlmsghdr *header) {
    genlmsghdr generic;
    std::memcpy(&generic, NLMSG_DATA(header), sizeof(generic));
    header->nlmsg_seq = ++number_of_question;
    answers.clear();
    answers_read = 0;
    if (generic.cmd == NL80211_CMD_GET_INTERFACE) answer(recorded("interface"));
    if (generic.cmd == NL80211_CMD_GET_STATION && (header->nlmsg_flags & NLM_F_DUMP) != 0) {
        answers = dump_of_stations;
        return;
    }
    if (generic.cmd == NL80211_CMD_GET_STATION) answer(recorded("station_listed"));
    answers.push_back(netlink(octets(sizeof(int)), NLMSG_DONE));
}

// The bridge keeps a list between the two requests; each pair of requests must use its own.
std::int64_t skipped_ms = 0;
int connections = 0;

} // namespace

extern "C" {
// The linker's names for the functions and their replacements (--wrap).
// NOLINTBEGIN(bugprone-reserved-identifier)
ssize_t __real_recv(int fd, void *to, std::size_t size, int flags);
int __real_accept4(int fd, sockaddr *from, socklen_t *size, int flags);
int __real_clock_gettime(clockid_t clock, timespec *now);

int __wrap_genl_connect(nl_sock * /*socket*/) { return 0; }
int __wrap_genl_ctrl_resolve(nl_sock * /*socket*/, const char * /*name*/) { return wireless_family; }
int __wrap_genl_ctrl_resolve_grp(nl_sock * /*socket*/, const char * /*family*/, const char * /*group*/) {
    return 1;
}
int __wrap_nl_socket_add_membership(nl_sock * /*socket*/, int /*group*/) { return 0; }
int __wrap_nl_socket_get_fd(const nl_sock * /*socket*/) { return kernel_fd; }
int __wrap_nl_send_auto_complete(nl_sock * /*socket*/, nl_msg *message) {
    take_question(nlmsg_hdr(message));
    return 1;
}
ssize_t __wrap_recv(int fd, void *to, std::size_t size, int flags) {
    if (fd != kernel_fd) return __real_recv(fd, to, size, flags);
    if (answers_read == answers.size()) {
        errno = EAGAIN;
        return -1;
    }
    const octets &next = answers[answers_read++];
    const std::size_t used = std::min(size, next.size());
    std::memcpy(to, next.data(), used);
    auto *place = static_cast<std::uint8_t *>(to);
    for (std::size_t at = 0; at + sizeof(nlmsghdr) <= used;) {
        nlmsghdr header;
        std::memcpy(&header, place + at, sizeof(header));
        header.nlmsg_seq = number_of_question;
        std::memcpy(place + at, &header, sizeof(header));
        at += NLMSG_ALIGN(header.nlmsg_len);
    }
    return static_cast<ssize_t>(used);
}
int __wrap_accept4(int fd, sockaddr *from, socklen_t *size, int flags) {
    const int accepted = __real_accept4(fd, from, size, flags);
    if (accepted >= 0 && connections++ % 2 == 0) skipped_ms += 1000;
    return accepted;
}
int __wrap_clock_gettime(clockid_t clock, timespec *now) {
    const int result = __real_clock_gettime(clock, now);
    if (clock == CLOCK_MONOTONIC) now->tv_sec += skipped_ms / 1000;
    return result;
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

[[noreturn]] void give_up(const char *what) {
    std::perror(what);
    std::exit(EXIT_FAILURE);
}

// A process that answers at `path`, and ends with this object.
class answering_process {
public:
    explicit answering_process(const std::function<void(const char *path)> &work) {
        std::snprintf(folder_, sizeof(folder_), "/tmp/bench-bridge-XXXXXX");
        if (!mkdtemp(folder_)) give_up(folder_);
        std::snprintf(path_, sizeof(path_), "%s/was.sock", folder_);
        pid_ = fork();
        if (pid_ < 0) give_up("fork");
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
            dup2(nowhere, STDERR_FILENO); // the bridge logs each station there
            uloop_init();
            work(path_);
            uloop_run();
            _exit(0);
        }
    }
    ~answering_process() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        for (const char *name : {"was.sock", "stations"}) {
            char path[80];
            std::snprintf(path, sizeof(path), "%s/%s", folder_, name);
            unlink(path);
        }
        rmdir(folder_);
    }
    answering_process(answering_process &&) = delete;

    const char *path() const { return path_; }
    double cpu_us() const {
        clockid_t clock{};
        timespec used{};
        if (clock_getcpuclockid(pid_, &clock) != 0 || clock_gettime(clock, &used) != 0)
            give_up("the other process's time");
        return static_cast<double>(used.tv_sec) * 1e6 + static_cast<double>(used.tv_nsec) / 1e3;
    }

private:
    char folder_[40];
    char path_[64];
    pid_t pid_ = -1;
};

struct daemon_requests {
    std::vector<std::uint8_t> count = std::vector<std::uint8_t>(1024);
    std::vector<std::uint8_t> table;

    explicit daemon_requests(std::uint32_t stations)
        : table(table_header_size + stations * (table_basic_size + table_extended_size)) {}

    bool ask(const char *path, std::uint32_t stations) {
        std::fill(count.begin(), count.end(), 0);
        if (was_request(path, count.data(), static_cast<int>(count.size()), "wlan1", driver_station_count,
                        0) != 0)
            return false;
        wire::put<std::uint32_t>(table.data() + table_num_offset, stations);
        wire::put<std::uint32_t>(table.data() + table_mask_offset, table_basic | table_extended);
        return was_request(path, table.data(), static_cast<int>(table.size()), "wlan1", driver_station_table,
                           0) == 0 &&
               std::strtoul(reinterpret_cast<char *>(count.data()), nullptr, 10) == stations &&
               wire::get<std::uint32_t>(table.data() + table_num_offset) == stations;
    }
};

void measure(benchmark::State &state, const answering_process &process) {
    const auto stations = static_cast<std::uint32_t>(state.range(0));
    daemon_requests requests(stations);
    bool answered = false;
    for (int tries = 0; !answered && tries < 1000; ++tries) {
        answered = requests.ask(process.path(), stations);
        if (!answered) usleep(5000);
    }
    if (!answered) {
        state.SkipWithError("no answer");
        return;
    }
    usleep(1'500'000); // until start-up is over
    const double before = process.cpu_us();
    for (auto _ : state)
        if (!requests.ask(process.path(), stations)) {
            state.SkipWithError("another answer");
            return;
        }
    state.counters["server_cpu_us"] =
        benchmark::Counter(process.cpu_us() - before, benchmark::Counter::kAvgIterations);
}

void bridge_table(benchmark::State &state) {
    const answering_process process([&state](const char *path) {
        kernel_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        dump_of_stations = station_dump(static_cast<std::uint32_t>(state.range(0)));
        static char memory[80];
        std::snprintf(memory, sizeof(memory), "%.*sstations", static_cast<int>(std::strlen(path) - 8), path);
        static bridge whole({"/nowhere", "/nowhere/global", "nobody", memory, {}, 0});
        if (const char *what = whole.start(path)) give_up(what);
    });
    measure(state, process);
}

void bridge_table_floor(benchmark::State &state) {
    const answering_process process([&state](const char *path) {
        static std::string count = std::to_string(state.range(0));
        static std::vector<std::uint8_t> ready(1 << 20, 1);
        static request_server server(
            [](void *, was_question &question) {
                const auto wanted = wire::get<std::uint32_t>(question.bytes);
                std::memcpy(question.bytes, ready.data(), question.size);
                if (question.command == driver_station_count)
                    std::memcpy(question.bytes, count.c_str(), count.size() + 1);
                else
                    wire::put<std::uint32_t>(question.bytes + table_num_offset, wanted);
                return 0;
            },
            nullptr);
        if (server.listen(path) != 0) give_up(path);
    });
    measure(state, process);
}

BENCHMARK(bridge_table)->Arg(64)->Arg(256)->Arg(512)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(bridge_table_floor)->Arg(64)->Arg(256)->Arg(512)->UseRealTime()->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
