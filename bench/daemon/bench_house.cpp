#include "bench_house.h"

#include "life/members.h"
#include "model/members.h"
#include "model/table.h"
#include "protocol/driver_request.h"
#include "protocol/station_report.h"
#include "support/places.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"
#include "was/was.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::vector<driver_basic> driver_stations[2]; // by radio

sockaddr_un unix_address(const char *path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", path);
    return address;
}

[[noreturn]] void give_up(const char *what) {
    std::perror(what);
    std::exit(EXIT_FAILURE);
}

void start_collector() {
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = unix_address("/tmp/sta_server_domain");
    if (bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(listener, 4096) != 0)
        give_up("collector");
    if (const pid_t pid = fork(); pid != 0) {
        if (pid < 0) give_up("fork");
        close(listener);
        return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) {
        const int report = accept(listener, nullptr, nullptr);
        char bytes[station_report_size];
        while (report >= 0 && read(report, bytes, sizeof(bytes)) > 0) {
        }
        close(report);
    }
}

void mac_of(int number, std::uint8_t (&mac)[6]) {
    const auto bits = static_cast<std::uint32_t>(number);
    const std::uint8_t bytes[6] = {
        2, 0, 0, 0, static_cast<std::uint8_t>(bits >> 8), static_cast<std::uint8_t>(bits)};
    std::memcpy(mac, bytes, sizeof(mac));
}

} // namespace

// The driver: like the simulator, but inside the process.
extern "C" int was_ext_ioctl_msg(void *buf, int size, const char *ifname, int cmd, int /*arg*/) {
    const std::vector<driver_basic> &listed = driver_stations[std::strcmp(ifname, "ath0") == 0 ? 0 : 1];
    auto *bytes = static_cast<std::uint8_t *>(buf);
    if (cmd == driver_station_count) {
        std::snprintf(static_cast<char *>(buf), static_cast<std::size_t>(size), "%zu", listed.size());
        return 0;
    }
    if (cmd != driver_station_table) return -1;
    for (std::size_t i = 0; i < listed.size(); ++i)
        driver_basic_encode(listed[i], bytes + table_header_size + i * table_basic_size);
    return 0;
}

void open_bench_house() {
    std::vector<std::pair<std::string, std::string>> packages;
    for (const fs::directory_entry &entry : fs::directory_iterator(WSMD_CONFIG_DIR))
        packages.emplace_back(entry.path().filename(), read_whole(entry.path()));
    enter_places();
    for (const auto &[name, text] : packages) write_whole("/etc/config/" + name, text);
    std::signal(SIGPIPE, SIG_IGN);
    uloop_init();
    dbg_init("bench", "/tmp/sta.log", 10);
    g_main_id = dbg_module_reg("bench"); // its threshold stays at 3
    sta_max_num = 1 << 20;
    start_collector();
    sleep(4); // newly changed files are read again each time: those of an access point are older
}

void populate(int count) {
    sta_info_t *sta = nullptr;
    sta_info_t *next = nullptr;
    list_for_each_entry_safe (sta, next, &g_sta_sta_master.list, list) {
        sta_members_unlink(sta);
        sta_sta_free(sta);
    }
    g_sta_sta_master.online = 0;
    (void)unlink("/tmp/sta_sta.info");
    std::string leases;
    for (std::vector<driver_basic> &radio : driver_stations) radio.clear();
    for (int i = 0; i < count; ++i) {
        driver_basic entry{};
        mac_of(i, entry.mac);
        entry.rssi = -60;
        entry.channel = 36;
        entry.rx_bytes = 1000000 + static_cast<std::uint64_t>(i);
        driver_stations[i % 2].push_back(entry);

        char mac[18];
        std::snprintf(mac, sizeof(mac), "02:00:00:00:%02x:%02x", static_cast<unsigned>(i) >> 8 & 255,
                      static_cast<unsigned>(i) & 255);
        sta = sta_sta_new(mac, "Lobby");
        sta->radio_id = i % 2;
        sta->status = sta_status_online;
        sta->name = sta_strdup("a-client-of-the-benchmark");
        sta_put_text(sta->ifname, i % 2 == 0 ? "ath0" : "ath1");
        sta_put_text(sta->ip, "192.168.1.20");
        sta_members_link(sta);
        ++g_sta_sta_master.online;
    }
}

void ask_driver() {
    static std::vector<std::uint8_t> table(driver_count_size);
    for (const char *ifname : {"ath0", "ath1"}) {
        was_ext_ioctl_msg(table.data(), driver_count_size, ifname, driver_station_count, 0);
        const auto count =
            static_cast<std::uint32_t>(sta_number(reinterpret_cast<const char *>(table.data())));
        const std::size_t size = table_header_size + count * (table_basic_size + table_extended_size);
        if (table.size() < size) table.resize(size);
        wire::put(table.data() + table_num_offset, count);
        wire::put(table.data() + table_mask_offset, std::uint32_t{table_basic | table_extended});
        was_ext_ioctl_msg(table.data(), static_cast<int>(size), ifname, driver_station_table, 0);
        benchmark::DoNotOptimize(table.data());
    }
}

std::size_t driver_list_bytes() {
    std::size_t bytes = 0;
    for (const std::vector<driver_basic> &radio : driver_stations)
        bytes += radio.capacity() > 0 ? malloc_usable_size(const_cast<driver_basic *>(radio.data())) : 0;
    return bytes;
}

std::string read_whole(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void write_whole(const std::string &path, const std::string &bytes) {
    std::ofstream out(path, std::ios::binary);
    out << bytes;
    if (!out.flush()) give_up(path.c_str());
}

void send_ready_report(const std::uint8_t *image) {
    static const sockaddr_un client = unix_address("/tmp/sta_client_domain");
    static const sockaddr_un server = unix_address("/tmp/sta_server_domain");
    const int report = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    unlink(client.sun_path);
    if (bind(report, reinterpret_cast<const sockaddr *>(&client), sizeof(client)) != 0 ||
        connect(report, reinterpret_cast<const sockaddr *>(&server), sizeof(server)) != 0 ||
        write(report, image, station_report_size) != station_report_size)
        give_up("report");
    close(report);
}

void growing_sizes(benchmark::internal::Benchmark *benchmark) {
    for (const int count : {64, 128, 256, 512, 1024, 2048, 4096}) benchmark->Arg(count);
    benchmark->Unit(benchmark::kMicrosecond);
}

void report_per_station(benchmark::State &state) {
    state.counters["per_station"] =
        benchmark::Counter(static_cast<double>(state.range(0)),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
