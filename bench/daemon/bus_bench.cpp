#include "bus_bench.h"

#include "base/cxx/ubus.h"

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int patience_ms = 10000;

struct ubus_context *bus = nullptr;
struct blob_buf message = {};
std::vector<std::uint8_t> ready_answer; // as received
const char *bare_method = nullptr;
void (*bare_work)() = nullptr; // for each call; null: the answer is put together once
bool answer_is_new = false;    // the bare server has another

[[noreturn]] void give_up(const char *what) {
    std::fprintf(stderr, "benchmark of the bus: %s\n", what);
    std::exit(EXIT_FAILURE);
}

void keep(struct ubus_request * /*req*/, int /*type*/, struct blob_attr *msg) {
    const auto *bytes = reinterpret_cast<const std::uint8_t *>(msg);
    ready_answer.assign(bytes, bytes + blob_pad_len(msg));
}

void drop(struct ubus_request *req, int /*type*/, struct blob_attr *msg) {
    *static_cast<std::size_t *>(req->priv) = blob_len(msg);
}

int answer_with_ready_bytes(struct ubus_context *ctx, struct ubus_object * /*obj*/,
                            struct ubus_request_data *req, const char * /*method*/,
                            struct blob_attr * /*msg*/) {
    static struct blob_buf answer = {};
    if (bare_work) bare_work();
    if (!answer.head || bare_work) {
        blob_buf_init(&answer, 0);
        put_together(answer, reinterpret_cast<const struct blob_attr *>(ready_answer.data()));
    }
    ubus_send_reply(ctx, req, answer.head);
    return 0;
}

void serve_ready_bytes() {
    static const struct ubus_method methods[] = {{bare_method, answer_with_ready_bytes, 0, 0, nullptr, 0}};
    static struct ubus_object_type type = {"bare", 0, methods, 1};
    static struct ubus_object bare = {};
    bare.name = "bare";
    bare.type = &type;
    bare.methods = methods;
    bare.n_methods = 1;
    struct ubus_context *mine = ubus_connect(nullptr);
    ubus_add_uloop(mine);
    ubus_add_object(mine, &bare);
    uloop_run();
}

double processor_seconds(pid_t pid) {
    clockid_t clock{};
    timespec spent{};
    if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &spent) != 0) give_up("processor time");
    return static_cast<double>(spent.tv_sec) + static_cast<double>(spent.tv_nsec) * 1e-9;
}

} // namespace

void open_bus(const char *question) {
    setenv("PATH", (std::string(WSMD_BUILD_DIR) + "/bin:/usr/sbin:/usr/bin:/sbin:/bin").c_str(), 1);
    if (mkdir("/run/ubus", 0755) != 0) give_up("/run/ubus");
    start_beside([] { execlp("ubusd", "ubusd", static_cast<char *>(nullptr)); });
    ask(question);
    std::signal(SIGCHLD, SIG_IGN);
}

void ask(const char *question) {
    blob_buf_init(&message, 0);
    blobmsg_add_json_from_string(&message, question);
}

void end_beside(pid_t process, const char *name) {
    kill(process, SIGKILL);
    std::uint32_t id = 0;
    for (int tries = 0; tries < 1000; ++tries) {
        if (kill(process, 0) != 0 && (!bus || ubus_lookup_id(bus, name, &id) != 0)) return;
        usleep(5000);
    }
    give_up(name);
}

pid_t start_beside(const std::function<void()> &work) {
    const pid_t parent = getpid(), pid = fork();
    if (pid < 0) give_up("fork");
    if (pid > 0) return pid;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(0); // the parent has ended already
    uloop_done();                      // the parent's loop: its descriptors are shared
    uloop_init();
    work();
    _exit(0);
}

std::uint32_t wait_for_object(const char *name) {
    for (int tries = 0; tries < 1000; ++tries) {
        std::uint32_t id = 0;
        if (bus && ubus_lookup_id(bus, name, &id) == 0 && id != 0) return id;
        usleep(5000);
        if (!bus) bus = ubus_connect(nullptr);
    }
    give_up(name);
}

bool keep_answer(std::uint32_t id, const char *method) {
    if (const int status = ubus_invoke(bus, id, method, message.head, keep, nullptr, patience_ms))
        give_up(ubus_strerror(status));
    answer_is_new = true;
    return true;
}

void call(benchmark::State &state, std::uint32_t id, const char *method, pid_t server) {
    std::size_t answered = 0;
    const double before = processor_seconds(server);
    for (auto _ : state)
        if (ubus_invoke(bus, id, method, message.head, drop, &answered, patience_ms) != 0)
            state.SkipWithError("call");
    const double spent = processor_seconds(server) - before;
    state.counters["answer_bytes"] = static_cast<double>(answered);
    state.counters["server_cpu_us"] = spent * 1e6 / static_cast<double>(state.iterations());
}

void call_bare_server(benchmark::State &state, const char *method) {
    call_working_server(
        state, method, [] {}, nullptr);
}

void call_working_server(benchmark::State &state, const char *method, const std::function<void()> &prepare,
                         void (*work)()) {
    static pid_t server = 0;
    if (server == 0 || answer_is_new || bare_work != work) {
        if (server != 0) end_beside(server, "bare");
        bare_method = method;
        bare_work = work;
        server = start_beside([&] {
            prepare();
            serve_ready_bytes();
        });
    }
    answer_is_new = false;
    call(state, wait_for_object("bare"), method, server);
}

void put_together(blob_buf &buf, const blob_attr *answer) {
    const struct blob_attr *member = nullptr, *entry = nullptr;
    std::size_t rest = 0, entries = 0;
    blobmsg_for_each_attr (member, answer, rest) {
        if (blobmsg_type(member) != BLOBMSG_TYPE_ARRAY) {
            blob_put_raw(&buf, member, static_cast<unsigned>(blob_pad_len(member)));
            continue;
        }
        void *array = blobmsg_open_array(&buf, blobmsg_name(member));
        blobmsg_for_each_attr (entry, member, entries)
            blob_put_raw(&buf, entry, static_cast<unsigned>(blob_pad_len(entry)));
        blobmsg_close_array(&buf, array);
    }
}
