// A minute's reports of 2,048 stations to a broker on loopback, until it has acknowledged all, beside the library alone with
// as many messages of the same sizes. Each report is two messages: the report, and the state of its station.
#include "bench/collector/traffic.h"
#include "collector/mqtt_publisher.h"

#include <atomic>
#include <benchmark/benchmark.h>
#include <csignal>
#include <fcntl.h>
#include <mosquitto.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr std::size_t report_size = 1650, state_size = 750; // of the payloads, nearly
int port = 0;

std::uint16_t some_port() {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(at);
    if (bind(probe, reinterpret_cast<sockaddr *>(&at), size) != 0 ||
        getsockname(probe, reinterpret_cast<sockaddr *>(&at), &size) != 0)
        std::abort();
    close(probe);
    return ntohs(at.sin_port);
}

void collector_mqtt(benchmark::State &state) {
    traffic from;
    for (auto _ : state) {
        state.PauseTiming();
        const std::vector<message> all = from.next_minute();
        mqtt_options chosen;
        chosen.host = "127.0.0.1";
        chosen.port = port;
        state.ResumeTiming();
        mqtt_publisher out(chosen, std::make_shared<const station_names>());
        for (const message &one : all) out.take(one);
        out.settle();
        out.finish();
    }
}

void collector_mqtt_floor(benchmark::State &state) {
    const std::string report(report_size, 'r'), of_station(state_size, 's');
    for (auto _ : state) {
        std::atomic<int> left = 2 * stations;
        mosquitto *client = mosquitto_new(nullptr, true, &left);
        mosquitto_max_inflight_messages_set(client, 64);
        mosquitto_publish_callback_set(client, [](mosquitto *, void *count, int) {
            auto *waiting = static_cast<std::atomic<int> *>(count);
            if (--*waiting == 0) waiting->notify_one();
        });
        if (mosquitto_connect(client, "127.0.0.1", port, 20) != 0 || mosquitto_loop_start(client) != 0)
            std::abort();
        for (int number = 0; number < stations; ++number) {
            const std::string topic = "floor/station/" + std::to_string(number);
            mosquitto_publish(client, nullptr, "floor/report", report_size, report.data(), 1, false);
            mosquitto_publish(client, nullptr, topic.c_str(), state_size, of_station.data(), 1, true);
        }
        for (int waiting = left; waiting > 0; waiting = left) left.wait(waiting);
        mosquitto_disconnect(client);
        mosquitto_loop_stop(client, false);
        mosquitto_destroy(client);
    }
}

BENCHMARK(collector_mqtt)->Iterations(10)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(collector_mqtt_floor)->Iterations(10)->UseRealTime()->Unit(benchmark::kMillisecond);

// The port of a broker of our own, 0 when there is none.
pid_t start_broker() {
    port = some_port();
    std::string number = std::to_string(port), name = "mosquitto", option = "-p";
    char *const arguments[] = {name.data(), option.data(), number.data(), nullptr};
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int error = posix_spawn(&pid, "/usr/sbin/mosquitto", &files, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&files);
    return error == 0 ? pid : 0;
}

bool broker_answers() {
    for (int attempt = 0; attempt < 500; ++attempt) {
        mosquitto *client = mosquitto_new(nullptr, true, nullptr);
        const int code = mosquitto_connect(client, "127.0.0.1", port, 20);
        mosquitto_destroy(client);
        if (code == MOSQ_ERR_SUCCESS) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    mosquitto_lib_init();
    const pid_t broker = start_broker();
    const bool there = broker != 0 && broker_answers();
    if (there) benchmark::RunSpecifiedBenchmarks();
    if (broker != 0) {
        kill(broker, SIGTERM);
        waitpid(broker, nullptr, 0);
    }
    if (!there) std::fprintf(stderr, "mosquitto does not run\n");
    return there ? 0 : 1;
}
