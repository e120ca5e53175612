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

// Memory of the broker for each of so many clients that have sent something and are now idle.
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

void pass_on(int from, int to) {
    char data[4096];
    const ssize_t n = recv(from, data, sizeof data, 0);
    if (n <= 0 || send(to, data, static_cast<std::size_t>(n), 0) != n) _exit(1);
}

void bounce(benchmark::State &state, int fd) {
    char data[call_size] = {};
    for (auto _ : state)
        if (send(fd, data, sizeof data, 0) != sizeof data ||
            recv(fd, data, sizeof data, MSG_WAITALL) != sizeof data)
            std::abort();
}

void make_pair(int (&ends)[2]) {
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends)) std::abort();
}

// Floor: to another process and back.
void bare_sockets(benchmark::State &state) {
    int ends[2];
    make_pair(ends);
    const process answering([&] {
        for (;;) pass_on(ends[1], ends[1]);
    });
    bounce(state, ends[0]);
}

// Floor: the same with a third process in the middle.
void bare_sockets_with_a_relay(benchmark::State &state) {
    int near[2], far[2];
    make_pair(near);
    make_pair(far);
    const process answering([&] {
        for (;;) pass_on(far[1], far[1]);
    });
    const process relay([&] {
        for (;;) {
            pollfd fds[] = {{near[1], POLLIN, 0}, {far[0], POLLIN, 0}};
            poll(fds, 2, -1);
            if (fds[0].revents) pass_on(near[1], far[0]);
            if (fds[1].revents) pass_on(far[0], near[1]);
        }
    });
    bounce(state, near[0]);
}

} // namespace

BENCHMARK(call_and_wait)->UseRealTime();
BENCHMARK(calls_of_clients)->Arg(1)->Arg(16)->UseRealTime();
BENCHMARK(large_call)->UseManualTime();
BENCHMARK(open_calls)->Arg(1)->Arg(64)->UseManualTime();
BENCHMARK(broker_memory)->Arg(200)->Iterations(1);
BENCHMARK(bare_sockets)->UseRealTime();
BENCHMARK(bare_sockets_with_a_relay)->UseRealTime();
BENCHMARK_MAIN();
