// The floor of people who come and go: a bare program that takes the daemon's place in the lab. It receives the same events at the
// same times, sleeps between them, and makes only the system calls without which the daemon's results cannot be had: reports,
// notifications and bus calls from ready bytes, the same questions to the driver and the kernel, the same files from ready bytes.
// It keeps of a station no more than where it is, and makes and logs no text. bench/README.md lists what it does.

#include "protocol/driver_request.h"
#include "protocol/station_event.h"
#include "protocol/station_report.h"
#include "protocol/was_wire.h"
#include "wlan/channel.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <libubus.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t line_size = 138;          // of a station in the backup file, on average
constexpr std::size_t notification_size = 1360; // of its members, likewise
constexpr int early_report_after = 3;           // seconds

void must(bool well, const char *what) {
    if (well) return;
    std::perror(what);
    _exit(2);
}

struct person {
    bool here = false;
    bool fresh = false; // since the last pass
    int radio = 0;
    int waits = 0;         // seconds until the early report; 0: does not wait
    std::size_t place = 0; // of its line in the file
    char ifname[21] = "";
};
std::vector<person> people;       // by the last two octets of the MAC
std::vector<std::uint16_t> lines; // whose they are, in the file's order
std::vector<std::uint16_t> waiting;
std::vector<std::size_t> gone; // lines to be taken out of the file

std::uint8_t report_image[station_report_size];
std::vector<char> notification, ip_change, lookup;
std::vector<char> file_text(4 << 20, 'x'); // the backup file
std::vector<char> table(4 << 20);          // the driver's answer
int bus = -1, route = -1, loop = -1, log_file = -1;
bool ask_neighbours = false;

sockaddr_un at(const char *path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", path);
    return address;
}

// --- what goes out ---

void send_report() {
    static const sockaddr_un client = at("/tmp/sta_client_domain"), server = at("/tmp/sta_server_domain");
    const auto size = [](const sockaddr_un &address) {
        return static_cast<socklen_t>(sizeof(address.sun_family) + std::strlen(address.sun_path));
    };
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    unlink(client.sun_path);
    must(bind(fd, reinterpret_cast<const sockaddr *>(&client), size(client)) == 0, "bind");
    must(connect(fd, reinterpret_cast<const sockaddr *>(&server), size(server)) == 0, "collector");
    must(write(fd, report_image, sizeof(report_image)) == sizeof(report_image), "report");
    close(fd);
}

void send_to_bus(const std::vector<char> &message) {
    must(send(bus, message.data(), message.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(message.size()),
         "bus");
}

// As many answers of the broker as were asked for: each is a status of 20 bytes.
void wait_for_statuses(std::size_t count) {
    constexpr std::size_t status_size = 20;
    char bytes[4096];
    for (std::size_t got = 0; got < count * status_size;) {
        const ssize_t n = recv(bus, bytes, sizeof(bytes), 0);
        must(n > 0, "status");
        got += static_cast<std::size_t>(n);
    }
}

void log_line() {
    static const char line[124] = "a line of the log\n";
    must(write(log_file, line, sizeof(line) - 1) > 0, "log");
}

// One connection; the request in one piece, and the answer as it comes.
void ask_driver(int command, const char *ifname, std::size_t size) {
    static const sockaddr_un driver = at(was_socket_path);
    std::uint8_t head[was_request_header] = {};
    wire::put<std::int32_t>(head + was_request_cmd, command);
    wire::put<std::uint32_t>(head + was_request_size, static_cast<std::uint32_t>(size));
    std::memcpy(head + was_request_ifname, ifname, std::strlen(ifname));
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    must(connect(fd, reinterpret_cast<const sockaddr *>(&driver), sizeof(driver)) == 0, "driver");
    iovec parts[2] = {{head, sizeof(head)}, {table.data(), size}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    const std::size_t all = sizeof(head) + size;
    std::size_t sent = 0;
    while (sent < all) {
        const ssize_t n = sent == 0
                              ? sendmsg(fd, &message, MSG_NOSIGNAL)
                              : send(fd, table.data() + (sent - sizeof(head)), all - sent, MSG_NOSIGNAL);
        must(n > 0, "request");
        sent += static_cast<std::size_t>(n);
    }
    for (std::size_t got = 0; got < was_answer_header + size;) {
        const ssize_t n = recv(fd, table.data() + got, was_answer_header + size - got, 0);
        if (n <= 0) break;
        got += static_cast<std::size_t>(n);
    }
    close(fd);
}

// How many stations a radio has, and their table.
void read_table(int radio, unsigned mask) {
    const char *ifname = radio == 0 ? "ath0" : "ath1";
    std::memset(table.data(), 0, driver_count_size);
    ask_driver(driver_station_count, ifname, driver_count_size);
    const auto count = static_cast<std::uint32_t>(std::atoi(table.data() + was_answer_header));
    if (count == 0) return;
    const std::size_t entry = table_basic_size + ((mask & table_extended) ? table_extended_size : 0);
    wire::put(reinterpret_cast<std::uint8_t *>(table.data()) + table_num_offset, count);
    wire::put(reinterpret_cast<std::uint8_t *>(table.data()) + table_mask_offset, mask);
    ask_driver(driver_station_table, ifname, table_header_size + count * entry);
}

// A change of the configuration counts at the next event.
void look_at_configuration() {
    struct stat status {};
    for (const char *path :
         {"/etc/config/wifiinfo", "/tmp/.uci/wifiinfo", "/var/run/uci/wifiinfo", "/etc/config/wireless"})
        (void)stat(path, &status);
}

void read_leases() {
    const int fd = open("/tmp/dhcp.leases", O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (fd < 0 || fstat(fd, &status) != 0) return;
    const auto size = std::min(static_cast<std::size_t>(status.st_size), table.size());
    must(read(fd, table.data(), size) == static_cast<ssize_t>(size), "leases");
    close(fd);
}

// --- events ---

void arrives(const station_event &event, std::uint16_t number) {
    if (people.size() <= number) people.resize(number + 1U);
    person &one = people[number];
    char text[32];
    const int ap_mac = open("/proc/tk_sys/sys_mac", O_RDONLY | O_CLOEXEC);
    (void)!read(ap_mac, text, sizeof(text));
    close(ap_mac);
    look_at_configuration();
    struct sysinfo system {};
    sysinfo(&system);
    if (one.here && one.radio != event.radio_id) {
        auto *request = reinterpret_cast<std::uint8_t *>(table.data());
        std::snprintf(table.data(), roam_delete_mac_size, "02:60:00:00:%02x:%02x", number >> 8U,
                      number & 255U);
        wire::put(request + roam_delete_radio_offset, one.radio);
        ask_driver(driver_roam_delete, one.ifname, roam_delete_size);
        send_report();
    }
    send_report();
    send_to_bus(notification);
    if (!one.here) one.fresh = true;
    one.here = true;
    one.radio = event.radio_id != 0 ? 1 : 0;
    std::memcpy(one.ifname, event.ifname, sizeof(one.ifname));
    if (one.waits == 0) waiting.push_back(number);
    one.waits = early_report_after;
    ask_neighbours = true;
}

void leaves(const station_event &event, std::uint16_t number) {
    if (people.size() <= number) return log_line();
    person &one = people[number];
    if (!one.here || std::strcmp(one.ifname, event.ifname) != 0) return log_line();
    look_at_configuration();
    send_report();
    send_to_bus(notification);
    one.here = false;
    one.waits = 0;
    if (one.place < lines.size() && lines[one.place] == number) gone.push_back(one.place);
}

// The lines of those that left together: a note of the place, so that nothing is lost when the program is killed meanwhile, then
// the rest of the file moves up.
void take_lines_out() {
    if (gone.empty()) return;
    const std::size_t first = *std::min_element(gone.begin(), gone.end()),
                      old_size = lines.size() * line_size;
    for (const std::size_t place : gone) lines[place] = UINT16_MAX;
    lines.erase(std::remove(lines.begin() + static_cast<long>(first), lines.end(), UINT16_MAX), lines.end());
    for (std::size_t i = first; i < lines.size(); ++i) people[lines[i]].place = i;
    gone.clear();
    const int fd = open("/tmp/sta_sta.info", O_RDWR | O_NOFOLLOW | O_CLOEXEC);
    struct stat status {};
    must(fstat(fd, &status) == 0, "backup file"); // another program may have written it
    static const char note[] = "\0gap 16698 138";
    const std::size_t from = first * line_size, size = lines.size() * line_size;
    must(pwrite(fd, note, sizeof(note), static_cast<off_t>(old_size)) > 0 &&
             (size == from || pwrite(fd, file_text.data(), size - from, static_cast<off_t>(from)) > 0) &&
             ftruncate(fd, static_cast<off_t>(size)) == 0,
         "backup file");
    close(fd);
}

void receive_events() {
    std::uint8_t message[2068];
    for (;;) {
        const ssize_t got = recv(sta_nl.socket, message, sizeof(message), MSG_DONTWAIT);
        if (got <= 0) break;
        if (!sta_nl_is_event(message)) {
            sta_nl_take_announcement(message, static_cast<std::size_t>(got));
            continue;
        }
        station_event event;
        station_event_decode(std::span{message}.subspan<station_event_offset, station_event_size>(), event);
        const auto number = static_cast<std::uint16_t>(event.mac[4] << 8 | event.mac[5]);
        event.assoc == 1 ? arrives(event, number) : leaves(event, number);
    }
    take_lines_out();
}

// --- timers ---

void make_early_reports() {
    bool wanted[2] = {};
    std::size_t due = 0;
    for (const std::uint16_t number : waiting) {
        person &one = people[number];
        if (one.waits == 0 || --one.waits > 0) continue;
        wanted[one.radio] = true;
        ++due;
    }
    std::erase_if(waiting, [](std::uint16_t number) { return people[number].waits == 0; });
    if (due == 0) return;
    for (const int radio : {0, 1})
        if (wanted[radio]) read_table(radio, table_basic | table_extended);
    look_at_configuration();
    while (due-- > 0) send_report();
}

void write_file(const char *path, const char *bytes, std::size_t size, int flags) {
    const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | flags, 0666);
    must(size == 0 || write(fd, bytes, size) == static_cast<ssize_t>(size), path);
    close(fd);
}

void pass() {
    for (const int radio : {0, 1}) read_table(radio, table_basic);
    look_at_configuration();
    struct stat status {};
    (void)stat("/etc/config/sysinfo", &status);
    std::size_t fresh = 0, count = 0;
    lines.clear();
    for (std::size_t number = 0; number < people.size(); ++number) {
        person &one = people[number];
        if (!one.here) continue;
        fresh += one.fresh ? 1 : 0;
        one.fresh = false;
        one.place = count++;
        lines.push_back(static_cast<std::uint16_t>(number));
    }
    if (fresh > 0) {
        read_leases();
        for (std::size_t i = 0; i < fresh; ++i) send_to_bus(ip_change);
        wait_for_statuses(fresh);
    }
    (void)lstat("/tmp/sta_sta.info", &status);
    unlink("/tmp/sta_sta_tmp.info");
    write_file("/tmp/sta_sta_tmp.info", file_text.data(), count * line_size, O_EXCL);
    must(std::rename("/tmp/sta_sta_tmp.info", "/tmp/sta_sta.info") == 0, "rename");
    (void)lstat("/tmp/sta_sta.info", &status);
    char text[64];
    const int length = std::snprintf(text, sizeof(text), "0 0 0 0 %zu\n", count);
    write_file("/tmp/sta_devc.info", text, static_cast<std::size_t>(length), 0);
}

void log_up() {
    for (const int radio : {0, 1}) read_table(radio, table_basic | table_extended);
    look_at_configuration();
    for (const person &one : people) {
        if (!one.here) continue;
        send_report();
        send_to_bus(notification);
    }
}

void look_at_files() {
    static timespec seen{};
    struct stat status {};
    (void)stat("/etc/config/wsmd", &status);
    if (stat("/tmp/dhcp.leases", &status) != 0 || status.st_mtim.tv_sec == seen.tv_sec) return;
    seen = status.st_mtim;
    read_leases();
}

void ask_for_neighbours() {
    if (!ask_neighbours) return;
    ask_neighbours = false;
    struct {
        nlmsghdr header;
        ndmsg body;
    } request{};
    request.header.nlmsg_len = sizeof(request);
    request.header.nlmsg_type = RTM_GETNEIGH;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    must(send(route, &request, sizeof(request), 0) == sizeof(request), "neighbours");
    (void)recv(route, table.data(), 32768, MSG_DONTWAIT);
}

// All that is due each second, in one wake-up.
void tick(unsigned second) {
    make_early_reports();
    ask_for_neighbours();
    if (second % 3 == 0) { // whether a DHCP monitor is there now
        send_to_bus(lookup);
        wait_for_statuses(1);
        log_line();
    }
    if (second % 5 == 0) pass();
    if (second % 10 == 0) look_at_files();
    if (second % 60 == 0) log_up();
}

// --- start ---

std::vector<char> frame(ubus_msg_type type, std::uint32_t peer, const blob_attr *root) {
    ubus_msghdr header{};
    header.type = static_cast<std::uint8_t>(type);
    header.peer = cpu_to_be32(peer);
    const std::size_t size = blob_raw_len(root);
    std::vector<char> bytes(sizeof(header) + size);
    std::memcpy(bytes.data(), &header, sizeof(header));
    std::memcpy(bytes.data() + sizeof(header), root, size);
    return bytes;
}

void make_messages(std::uint32_t object) {
    blob_buf content{}, buf{};
    blob_buf_init(&content, 0);
    blobmsg_add_string(&content, "notify_sta_status", std::string(notification_size, 'x').c_str());
    blob_buf_init(&buf, 0);
    blob_put_int32(&buf, UBUS_ATTR_OBJID, object);
    blob_put_string(&buf, UBUS_ATTR_METHOD, "notify");
    blob_put(&buf, UBUS_ATTR_DATA, blob_data(content.head), static_cast<unsigned>(blob_len(content.head)));
    blob_put_int8(&buf, UBUS_ATTR_NO_REPLY, 1);
    notification = frame(UBUS_MSG_NOTIFY, object, buf.head);

    blob_buf_init(&content, 0);
    blobmsg_add_string(&content, "id", "ip_change");
    void *data = blobmsg_open_table(&content, "data");
    blobmsg_add_string(&content, "mac", "02:60:00:00:00:00");
    blobmsg_add_string(&content, "before_ip", "0.0.0.0");
    blobmsg_add_string(&content, "changed_ip", "0.0.0.0"); // listeners stop at that
    blobmsg_add_string(&content, "changed_time", "2000-01-01 00:00:00");
    blobmsg_close_table(&content, data);
    blob_buf_init(&buf, 0);
    blob_put_int32(&buf, UBUS_ATTR_OBJID, UBUS_SYSTEM_OBJECT_EVENT);
    blob_put_string(&buf, UBUS_ATTR_METHOD, "send");
    blob_put(&buf, UBUS_ATTR_DATA, blob_data(content.head), static_cast<unsigned>(blob_len(content.head)));
    ip_change = frame(UBUS_MSG_INVOKE, UBUS_SYSTEM_OBJECT_EVENT, buf.head);

    blob_buf_init(&buf, 0);
    blob_put_string(&buf, UBUS_ATTR_OBJPATH, "dhcpmon.client.notify");
    lookup = frame(UBUS_MSG_LOOKUP, 0, buf.head);
}

void watch(int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    must(epoll_ctl(loop, EPOLL_CTL_ADD, fd, &event) == 0, "epoll");
}

void open_everything() {
    loop = epoll_create1(EPOLL_CLOEXEC);
    must(sta_nl_open() == 0, "netlink");
    static ubus_object object;
    static ubus_object_type type = {"sta", 0, nullptr, 0};
    object.name = "sta";
    object.type = &type;
    ubus_context *context = ubus_connect(nullptr);
    must(context && ubus_add_object(context, &object) == 0, "bus");
    bus = context->sock.fd;
    must(fcntl(bus, F_SETFL, 0) == 0, "bus"); // answers are waited for
    route = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_NEIGH;
    must(bind(route, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0, "neighbours");
    log_file = open("/tmp/sta.log", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    make_messages(object.id);
    for (const int fd : {sta_nl.socket, bus, route}) watch(fd);
}

std::int64_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

} // namespace

int main() {
    std::signal(SIGTERM, [](int) { _exit(1); });
    open_everything();
    unsigned second = 0;
    for (std::int64_t next = now_ms() + 1000;;) {
        epoll_event events[4];
        const int count =
            epoll_wait(loop, events, 4, static_cast<int>(std::max<std::int64_t>(0, next - now_ms())));
        for (int i = 0; i < count; ++i) {
            if (events[i].data.fd == sta_nl.socket)
                receive_events();
            else
                (void)recv(events[i].data.fd, table.data(), 32768, MSG_DONTWAIT);
        }
        if (now_ms() < next) continue;
        next += 1000;
        tick(++second);
    }
}
