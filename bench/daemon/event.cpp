// Events from the socket to the written report, compared with a program that makes only an event's system calls: an association,
// and the departures of many stations, each with its line of the backup file.

#include "bench_house.h"

#include "life/driver_events.h"
#include "life/pass.h"
#include "model/table.h"
#include "protocol/station_event.h"
#include "protocol/station_report.h"
#include "wlan/channel.h"

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <numeric>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <unistd.h>

namespace {

constexpr int burst = 2000;
constexpr int family = 0x2a;
constexpr std::size_t message_size = station_event_offset + station_event_size;
using event_message = std::array<std::uint8_t, message_size>;

int driver_end = -1; // the other end of the daemon's channel

event_message event_of(int number, bool comes) {
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
    event.assoc = comes ? 1 : 0;
    event.rssi = -50;
    std::snprintf(event.ssid, sizeof(event.ssid), "Lobby");
    std::snprintf(event.ifname, sizeof(event.ifname), "ath%d", comes ? 0 : number % 2);
    station_event_encode(event, std::span{message}.subspan<station_event_offset, station_event_size>());
    return message;
}

void open_channel() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) std::abort();
    const int room = 1 << 20; // for a crowd that waits
    if (setsockopt(ends[1], SOL_SOCKET, SO_SNDBUF, &room, sizeof(room)) != 0) std::abort();
    sta_nl = {ends[0], family, 1};
    driver_end = ends[1];
}

void send_event(int number, bool comes = true) {
    const event_message message = event_of(number, comes);
    if (write(driver_end, message.data(), message.size()) != static_cast<ssize_t>(message.size()))
        std::abort();
}

constexpr const char *backup_file = "/tmp/sta_sta.info";

// Makes the file hold `bytes`, of which it has the first `same` already. As the daemon's, it can be mended after a kill at any moment:
// a note is behind its end until the bytes have moved.
void shorten_file(const std::string &bytes, std::size_t same, std::size_t old_size) {
    constexpr char note[20] = {};
    const std::size_t rest = bytes.size() - same;
    const int file = open(backup_file, O_RDWR | O_CLOEXEC);
    if (pwrite(file, note, sizeof(note), static_cast<off_t>(old_size)) != sizeof(note) ||
        pwrite(file, bytes.data() + same, rest, static_cast<off_t>(same)) != static_cast<ssize_t>(rest) ||
        ftruncate(file, static_cast<off_t>(bytes.size())) != 0)
        std::abort();
    close(file);
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

void take_event_of_floor() {
    const std::uint8_t image[station_report_size] = {};
    std::uint8_t message[2068];
    if (recv(sta_nl.socket, message, sizeof(message), 0) <= 0) std::abort();
    struct stat file {};
    for (const char *place :
         {"/etc/config/wireless", "/etc/config/wifiinfo", "/var/run/config/wifiinfo", "/tmp/.uci/wifiinfo"})
        (void)stat(place, &file); // whether the configuration has changed
    send_ready_report(image);
}

void association_event_floor(benchmark::State &state) {
    for (auto _ : state) {
        state.PauseTiming();
        send_event(0);
        state.ResumeTiming();
        take_event_of_floor();
        read_file("/proc/tk_sys/sys_mac");
        struct sysinfo system {};
        sysinfo(&system);
    }
}

// The order in which they leave: spread over the file.
int leaver(int turn, int count) { return static_cast<int>(std::int64_t{turn} * 7919 % count); }

// So many events wait in the socket when a crowd leaves at once: as many as a netlink socket of the usual size holds.
constexpr int crowd = 48;

void leave(benchmark::State &state, int at_once) {
    const auto count = static_cast<int>(state.range(0));
    struct uloop_fd watcher = {};
    watcher.registered = true;
    for (auto _ : state) {
        state.PauseTiming();
        populate(count);
        sta_sta_flow_count_proc();
        for (int turn = 0; turn < count;) {
            const int waiting = std::min(at_once, count - turn);
            for (int i = 0; i < waiting; ++i) send_event(leaver(turn++, count), false);
            state.ResumeTiming();
            for (int i = 0; i < waiting; ++i) g_sta_recv_msg(&watcher, ULOOP_READ);
            state.PauseTiming();
        }
        if (!list_empty(&g_sta_sta_master.list)) state.SkipWithError("somebody is left");
        state.ResumeTiming();
    }
    report_per_station(state);
}

// The system calls of each event, and what is behind their lines moved up from memory, once for those that left at once.
void leave_floor(benchmark::State &state, int at_once) {
    const auto count = static_cast<int>(state.range(0));
    populate(count);
    sta_sta_flow_count_proc();
    const std::string whole = read_whole(backup_file);
    const std::size_t line = whole.size() / static_cast<std::size_t>(count);
    for (auto _ : state) {
        state.PauseTiming();
        write_whole(backup_file, whole);
        std::vector<int> left(static_cast<std::size_t>(count));
        std::iota(left.begin(), left.end(), 0);
        for (int turn = 0; turn < count;) {
            const int waiting = std::min(at_once, count - turn);
            const std::size_t old_size = line * left.size();
            std::size_t same = left.size();
            for (int i = 0; i < waiting; ++i) {
                const auto gone = std::ranges::lower_bound(left, leaver(turn, count));
                same = std::min(same, static_cast<std::size_t>(gone - left.begin()));
                left.erase(gone);
                send_event(leaver(turn++, count), false);
            }
            const std::string rest = whole.substr(0, line * left.size());
            state.ResumeTiming();
            for (int i = 0; i < waiting; ++i) take_event_of_floor();
            shorten_file(rest, line * same, old_size);
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
    report_per_station(state);
}

void departures(benchmark::State &state) { leave(state, crowd); }
void departures_floor(benchmark::State &state) { leave_floor(state, crowd); }
void departures_apart(benchmark::State &state) { leave(state, 1); }
void departures_apart_floor(benchmark::State &state) { leave_floor(state, 1); }

BENCHMARK(association_event)->Iterations(4 * burst)->Unit(benchmark::kMicrosecond);
BENCHMARK(association_event_floor)->Iterations(4 * burst)->Unit(benchmark::kMicrosecond);
BENCHMARK(departures)->Apply(growing_sizes);
BENCHMARK(departures_floor)->Apply(growing_sizes);
BENCHMARK(departures_apart)->Apply(growing_sizes);
BENCHMARK(departures_apart_floor)->Apply(growing_sizes);

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    open_bench_house();
    write_whole("/proc/tk_sys/sys_mac", "02:54:4b:00:00:01\n");
    open_channel();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
