// The cost of a method call over the bus, compared with its floor: the same bytes through bare sockets, with and without a
// relay in the place of the broker.
#include <libubus.h>

#include <benchmark/benchmark.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A process that runs one function until it is ended.
class process {
public:
    explicit process(const std::function<void()> &work) : pid_(fork()) {
        if (pid_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        work();
        _exit(0);
    }
    ~process() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    process(process &&) = delete;

    // Its processor time so far.
    double seconds() const {
        clockid_t clock;
        if (clock_getcpuclockid(pid_, &clock)) std::abort();
        return seconds_of(clock);
    }
    // KiB of memory that it has written.
    double private_kib() const {
        std::ifstream file("/proc/" + std::to_string(pid_) + "/smaps_rollup");
        for (std::string word; file >> word;)
            if (word == "Private_Dirty:") {
                double kib = 0;
                file >> kib;
                return kib;
            }
        std::abort();
    }
    static double seconds_of(clockid_t clock) {
        timespec time;
        clock_gettime(clock, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    }

private:
    pid_t pid_;
};

int echo(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *msg) {
    return ubus_send_reply(ctx, req, msg);
}

ubus_context *connect_to(const std::string &path) {
    ubus_context *ctx = nullptr;
    while (!(ctx = ubus_connect(path.c_str()))) usleep(1000);
    ubus_add_uloop(ctx);
    return ctx;
}

void serve(const std::string &path) {
    static const ubus_method methods[] = {UBUS_METHOD_NOARG("echo", echo)};
    static ubus_object_type type = UBUS_OBJECT_TYPE("bench", methods);
    static ubus_object obj{};
    obj.name = "bench";
    obj.type = &type;
    obj.methods = methods;
    obj.n_methods = 1;
    if (ubus_add_object(connect_to(path), &obj)) std::abort();
    uloop_run();
}

// Broker and callee.
class bus {
public:
    bus()
        : folder_(make_folder()),
          broker_([this] { execl(UBUSD_PROGRAM, "ubusd", "-s", socket().c_str(), nullptr); }),
          callee_([this] { serve(socket()); }) {}
    ~bus() { std::filesystem::remove_all(folder_); }
    std::string socket() const { return folder_ / "ubus.sock"; }

    const process &broker() const { return broker_; }
    // Processor time of caller, broker and callee.
    double seconds() const {
        return process::seconds_of(CLOCK_PROCESS_CPUTIME_ID) + broker_.seconds() + callee_.seconds();
    }

    // The callee's object, as soon as it is there.
    std::uint32_t object(ubus_context *ctx) const {
        std::uint32_t id = 0;
        while (ubus_lookup_id(ctx, "bench", &id)) usleep(1000);
        return id;
    }

private:
    static std::filesystem::path make_folder() {
        char name[] = "/tmp/ubus-bench-XXXXXX";
        return mkdtemp(name);
    }
    std::filesystem::path folder_;
    process broker_, callee_;
};

blob_attr *arguments() {
    static blob_buf buf;
    blob_buf_init(&buf, 0);
    blobmsg_add_string(&buf, "mac", "02:00:00:00:00:01");
    blobmsg_add_u32(&buf, "radio", 1);
    return buf.head;
}

// One client that waits for each of its answers.
void call_and_wait(benchmark::State &state) {
    const bus b;
    ubus_context *ctx = connect_to(b.socket());
    const std::uint32_t id = b.object(ctx);
    blob_attr *msg = arguments();
    for (auto _ : state)
        if (ubus_invoke(ctx, id, "echo", msg, nullptr, nullptr, 1000)) std::abort();
    ubus_free(ctx);
    uloop_done();
}

struct caller : ubus_request {
    ubus_context *bus = nullptr;
    std::uint32_t id = 0;
    blob_attr *msg = nullptr;
    static int to_go;

    void start() {
        if (ubus_invoke_async(bus, id, "echo", msg, this)) std::abort();
        complete_cb = [](ubus_request *req, int) {
            if (--to_go <= 0) return uloop_end();
            static_cast<caller *>(req)->start();
        };
        ubus_complete_request_async(bus, this);
    }
};
int caller::to_go;

// So many clients, each with one open call; time per call.
void calls_of_clients(benchmark::State &state) {
    const bus b;
    std::vector<caller> callers(static_cast<std::size_t>(state.range(0)));
    for (caller &c : callers) {
        c.bus = connect_to(b.socket());
        c.id = b.object(c.bus);
        c.msg = arguments();
    }
    constexpr int batch = 1000;
    while (state.KeepRunningBatch(batch)) {
        caller::to_go = batch;
        for (caller &c : callers) c.start();
        uloop_run();
        for (caller &c : callers) ubus_abort_request(c.bus, &c);
    }
    for (caller &c : callers) ubus_free(c.bus);
    uloop_done();
}

// The size of 512 stations with 54 members each, in both directions.
constexpr std::size_t large_size = 800 * 1000;

blob_attr *large_arguments() {
    static blob_buf buf;
    const std::string text(999, 'x');
    blob_buf_init(&buf, 0);
    for (std::size_t size = 0; size < large_size; size += 1012)
        blobmsg_add_string(&buf, "station", text.c_str());
    return buf.head;
}

// A large call and its echo. Processor time of all three processes.
void large_call(benchmark::State &state) {
    const bus b;
    ubus_context *ctx = connect_to(b.socket());
    const std::uint32_t id = b.object(ctx);
    blob_attr *msg = large_arguments();
    for (auto _ : state) {
        const double before = b.seconds();
        if (ubus_invoke(ctx, id, "echo", msg, nullptr, nullptr, 1000)) std::abort();
        state.SetIterationTime(b.seconds() - before);
    }
    ubus_free(ctx);
    uloop_done();
}

// So many open calls of one client; processor time of all three processes per call.
void open_calls(benchmark::State &state) {
    const bus b;
    ubus_context *ctx = connect_to(b.socket());
    std::vector<caller> callers(static_cast<std::size_t>(state.range(0)));
    for (caller &c : callers) {
        c.bus = ctx;
        c.id = b.object(ctx);
        c.msg = arguments();
    }
    constexpr int batch = 10000;
    while (state.KeepRunningBatch(batch)) {
        const double before = b.seconds();
        caller::to_go = batch;
        for (caller &c : callers) c.start();
        uloop_run();
        for (caller &c : callers) ubus_abort_request(c.bus, &c);
        state.SetIterationTime(b.seconds() - before);
    }
    ubus_free(ctx);
    uloop_done();
}

// Memory of the broker for so many clients that have sent something and are now idle. It has no floor: a program that only keeps
// as many sockets writes no memory of its own for them.
void broker_memory(benchmark::State &state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        const bus b;
        std::vector<ubus_context *> clients{connect_to(b.socket())};
        b.object(clients[0]);
        const double before = b.broker().private_kib();
        while (clients.size() <= count) {
            clients.push_back(connect_to(b.socket()));
            b.object(clients.back());
        }
        state.counters["kib"] = b.broker().private_kib() - before;
        for (ubus_context *ctx : clients) ubus_free(ctx);
    }
    uloop_done();
}

constexpr std::size_t call_size = 100; // about the size of such a call, in each direction

// As much as a socket holds: with less at once each end wakes the next more often, which costs more than the copying.
std::size_t pass_on(int from, int to) {
    static char data[256 * 1024];
    const ssize_t n = recv(from, data, sizeof data, 0);
    if (n <= 0 || send(to, data, static_cast<std::size_t>(n), 0) != n) _exit(1);
    return static_cast<std::size_t>(n);
}

void send_all(int fd, const std::vector<char> &data) {
    if (send(fd, data.data(), data.size(), 0) != static_cast<ssize_t>(data.size())) std::abort();
}

void receive_all(int fd, std::vector<char> &data) {
    if (recv(fd, data.data(), data.size(), MSG_WAITALL) != static_cast<ssize_t>(data.size())) std::abort();
}

void there_and_back(int fd, std::vector<char> &data) {
    send_all(fd, data);
    receive_all(fd, data);
}

class socket_pair {
public:
    socket_pair() {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends)) std::abort();
    }
    ~socket_pair() {
        close(ends[0]);
        close(ends[1]);
    }
    socket_pair(socket_pair &&) = delete;
    int ends[2];
};

// A process in the place of the broker, which only passes on what comes, and one that answers.
class relay {
public:
    explicit relay(const std::function<void(int)> &answer)
        : answering_([&] {
              for (;;) answer(far_.ends[1]);
          }),
          relaying_([this] {
              for (;;) {
                  pollfd fds[] = {{near_.ends[1], POLLIN, 0}, {far_.ends[0], POLLIN, 0}};
                  poll(fds, 2, -1);
                  if (fds[0].revents) pass_on(near_.ends[1], far_.ends[0]);
                  if (fds[1].revents) pass_on(far_.ends[0], near_.ends[1]);
              }
          }) {}
    int fd() const { return near_.ends[0]; }
    // Processor time of all three.
    double seconds() const {
        return process::seconds_of(CLOCK_PROCESS_CPUTIME_ID) + answering_.seconds() + relaying_.seconds();
    }

private:
    socket_pair near_, far_;
    process answering_, relaying_;
};

// Floor: to another process and back.
void bare_sockets(benchmark::State &state) {
    const socket_pair line;
    const process answering([&] {
        for (;;) pass_on(line.ends[1], line.ends[1]);
    });
    std::vector<char> data(call_size);
    for (auto _ : state) there_and_back(line.ends[0], data);
}

// Floor: the same with a third process in the middle.
void bare_sockets_with_a_relay(benchmark::State &state) {
    const relay r([](int fd) { pass_on(fd, fd); });
    std::vector<char> data(call_size);
    for (auto _ : state) there_and_back(r.fd(), data);
}

// Floor of a large call: as many bytes, which are answered when all are there.
void large_sockets_with_a_relay(benchmark::State &state) {
    std::vector<char> data(large_size), answer(large_size);
    const relay r([&](int fd) {
        receive_all(fd, answer);
        send_all(fd, answer);
    });
    for (auto _ : state) {
        const double before = r.seconds();
        there_and_back(r.fd(), data);
        state.SetIterationTime(r.seconds() - before);
    }
}

// Floor of open calls: each call and each answer leaves at once, and what has come together is read and passed on together.
void open_sockets_with_a_relay(benchmark::State &state) {
    const std::vector<char> call(call_size);
    std::vector<char> answers(call_size * static_cast<std::size_t>(state.range(0)));
    std::vector<char> calls(answers.size());
    const relay r([&](int fd) {
        const ssize_t n = recv(fd, calls.data(), calls.size(), 0);
        if (n <= 0) _exit(1);
        for (auto left = static_cast<std::size_t>(n); left > 0; left -= call_size) send_all(fd, call);
    });
    constexpr int batch = 9984; // a multiple of 64
    while (state.KeepRunningBatch(batch)) {
        const double before = r.seconds();
        for (std::int64_t done = 0; done < batch; done += state.range(0)) {
            for (std::int64_t i = 0; i < state.range(0); ++i) send_all(r.fd(), call);
            receive_all(r.fd(), answers);
        }
        state.SetIterationTime(r.seconds() - before);
    }
}

} // namespace

BENCHMARK(call_and_wait)->UseRealTime();
BENCHMARK(calls_of_clients)->Arg(1)->Arg(16)->UseRealTime();
BENCHMARK(large_call)->UseManualTime();
BENCHMARK(open_calls)->Arg(1)->Arg(64)->UseManualTime();
BENCHMARK(broker_memory)->Arg(200)->Iterations(1);
BENCHMARK(bare_sockets)->UseRealTime();
BENCHMARK(bare_sockets_with_a_relay)->UseRealTime();
BENCHMARK(large_sockets_with_a_relay)->UseManualTime();
BENCHMARK(open_sockets_with_a_relay)->Arg(1)->Arg(64)->UseManualTime();
BENCHMARK_MAIN();
