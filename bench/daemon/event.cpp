// An association event from the socket to the written report, beside a program that makes only that event's system calls.

#include "bench_house.h"

#include "life/driver_events.h"
#include "model/table.h"
#include "protocol/station_event.h"
#include "protocol/station_report.h"
#include "wlan/channel.h"

#include <array>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/sysinfo.h>
#include <unistd.h>

namespace {

constexpr int burst = 2000;
constexpr int family = 0x2a;
constexpr std::size_t message_size = station_event_offset + station_event_size;
using event_message = std::array<std::uint8_t, message_size>;

int driver_end = -1; // the daemon's channel ends here

event_message association(int number) {
    event_message message{};
    nlmsghdr header{};
    header.nlmsg_len = message_size;
    header.nlmsg_type = family;
    std::memcpy(message.data(), &header, sizeof(header));
    message[NLMSG_HDRLEN] = station_event_cmd;
    station_event event{};
    const std::uint8_t mac[6] = {
        2, 0, 0, 0, static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
    std::memcpy(event.mac, mac, sizeof(mac));
    event.assoc = 1;
    event.rssi = -50;
    std::snprintf(event.ssid, sizeof(event.ssid), "Lobby");
    std::snprintf(event.ifname, sizeof(event.ifname), "ath0");
    station_event_encode(event, std::span{message}.subspan<station_event_offset, station_event_size>());
    return message;
}

void open_channel() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) != 0) std::abort();
    sta_nl = {ends[0], family, 1};
    driver_end = ends[1];
}

void send_event(int number) {
    const event_message message = association(number);
    if (write(driver_end, message.data(), message.size()) != static_cast<ssize_t>(message.size()))
        std::abort();
}

void read_file(const char *path) {
    char text[4096];
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    while (read(file, text, sizeof(text)) > 0) {
    }
    close(file);
}

void association_event(benchmark::State &state) {
    struct uloop_fd watcher = {};
    watcher.registered = true;
    int number = burst;
    for (auto _ : state) {
        state.PauseTiming();
        if (number == burst) {
            populate(0);
            number = 0;
        }
        send_event(number++);
        state.ResumeTiming();
        g_sta_recv_msg(&watcher, ULOOP_READ);
    }
}

void association_event_floor(benchmark::State &state) {
    const std::uint8_t image[station_report_size] = {};
    for (auto _ : state) {
        state.PauseTiming();
        send_event(0);
        state.ResumeTiming();
        std::uint8_t message[2068];
        if (recv(sta_nl.socket, message, sizeof(message), 0) <= 0) std::abort();
        read_file("/proc/tk_sys/sys_mac");
        read_file("/etc/config/wifiinfo");
        read_file("/etc/config/wireless");
        struct sysinfo system {};
        sysinfo(&system);
        send_ready_report(image);
    }
}

BENCHMARK(association_event)->Iterations(4 * burst)->Unit(benchmark::kMicrosecond);
BENCHMARK(association_event_floor)->Iterations(4 * burst)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    open_bench_house();
    write_whole("/proc/tk_sys/sys_mac", "02:54:4b:00:00:01\n");
    open_channel();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
