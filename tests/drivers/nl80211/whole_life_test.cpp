// A whole life of the bridge, lived again for each allocation, which fails: it does not start and says so, or the daemon
// learns in the end what is true, and nothing else.
#include "channel/messages.h"
#include "nl80211/bridge.h"
#include "nl80211/recorded.h"
#include "protocol/driver_request.h"
#include "protocol/was_wire.h"
#include "protocol/wire.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/nl80211.h>
#include <map>
#include <netlink/msg.h>
#include <set>
#include <span>
#include <string>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

struct nl_sock;

namespace {

constexpr int haste = 20; // times as fast passes the bridge's time
constexpr std::uint32_t daemon_port = 4711;
constexpr mac_address anna{{2, 0, 0, 0, 2, 1}};
constexpr mac_address ben{{2, 0, 0, 0, 2, 2}};

// --- memory ---

bool counting = false; // the bridge's allocations, not the test's own
int allocations_left = -1;
bool has_failed = false;

bool fails() {
    if (!counting || allocations_left < 0 || allocations_left-- > 0) return false;
    has_failed = true;
    return true;
}

// What the stand-ins do is not the bridge's.
class aside {
public:
    aside() { counting = false; }
    ~aside() { counting = before_; }
    aside(const aside &) = delete;

private:
    bool before_ = counting;
};

// --- the kernel ---

int listener_fd = -1;
int asker_fd = -1;
const nl_sock *listener = nullptr;
std::set<std::string> in_kernel; // addresses of the stations, six bytes each
std::deque<octets> events;
std::deque<octets> answers; // to the question that was asked last
bool overrun = false;
std::uint32_t number_of_question = 0;
int daemon_fd = -1;  // the daemon's end of its socket
int channel_fd = -1; // the bridge's

std::string key(const mac_address &mac) {
    return {reinterpret_cast<const char *>(mac.bytes), sizeof(mac.bytes)};
}
mac_address mac_of(const std::string &key) {
    return mac_address::at(reinterpret_cast<const std::uint8_t *>(key.data()));
}

void answer(const octets &content, std::uint16_t type = wireless_family) {
    answers.push_back(netlink(content, type));
}

void take_question(nlmsghdr *header) {
    genlmsghdr generic;
    std::memcpy(&generic, NLMSG_DATA(header), sizeof(generic));
    header->nlmsg_seq = ++number_of_question;
    answers.clear();
    const bool all = (header->nlmsg_flags & NLM_F_DUMP) != 0;
    if (generic.cmd == NL80211_CMD_GET_INTERFACE) answer(recorded("interface"));
    if (generic.cmd == NL80211_CMD_GET_STATION && all)
        for (const std::string &one : in_kernel) answer(with_mac(recorded("station_listed"), mac_of(one)));
    int result = 0;
    if (generic.cmd == NL80211_CMD_GET_STATION && !all) {
        const auto *bytes = reinterpret_cast<const char *>(header);
        const std::string question(bytes, header->nlmsg_len);
        const auto asked = std::find_if(in_kernel.begin(), in_kernel.end(), [&](const std::string &one) {
            return question.find(one) != std::string::npos;
        });
        if (asked == in_kernel.end())
            result = -ENOENT;
        else
            answer(with_mac(recorded("station_listed"), mac_of(*asked)));
    }
    octets end(sizeof(result));
    std::memcpy(end.data(), &result, sizeof(result));
    answer(end, result != 0 ? NLMSG_ERROR : NLMSG_DONE);
}

void tell_bridge() {
    const std::uint64_t one = 1;
    if (write(listener_fd, &one, sizeof(one)) != sizeof(one)) std::abort();
}

void kernel_says(const std::string &what, const mac_address &of) {
    const aside own;
    events.push_back(netlink(with_mac(recorded(what), of)));
    tell_bridge();
}

ssize_t hand_out(std::deque<octets> &from, void *to, std::size_t size) {
    if (from.empty()) {
        errno = EAGAIN;
        return -1;
    }
    octets next = from.front();
    from.pop_front();
    nlmsghdr header;
    std::memcpy(&header, next.data(), sizeof(header));
    header.nlmsg_seq = number_of_question;
    std::memcpy(next.data(), &header, sizeof(header));
    const std::size_t used = std::min(size, next.size());
    std::memcpy(to, next.data(), used);
    return static_cast<ssize_t>(used);
}

} // namespace

extern "C" {
// The linker's names for the functions and their stand-ins (--wrap).
// NOLINTBEGIN(bugprone-reserved-identifier)
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *old, std::size_t size);
nl_sock *__real_nl_socket_alloc();
nl_msg *__real_nlmsg_alloc();
ssize_t __real_recv(int fd, void *to, std::size_t size, int flags);
int __real_socket(int domain, int type, int protocol);
int __real_bind(int fd, const sockaddr *address, socklen_t size);
int __real_getsockname(int fd, sockaddr *address, socklen_t *size);
ssize_t __real_sendto(int fd, const void *bytes, std::size_t size, int flags, const sockaddr *to,
                      socklen_t to_size);
std::FILE *__real_fopen(const char *path, const char *mode);
int __real_uloop_timeout_set(uloop_timeout *timeout, int ms);
int __real_clock_gettime(clockid_t clock, timespec *now);

void *__wrap_malloc(std::size_t size) { return fails() ? nullptr : __real_malloc(size); }
void *__wrap_calloc(std::size_t count, std::size_t size) {
    return fails() ? nullptr : __real_calloc(count, size);
}
void *__wrap_realloc(void *old, std::size_t size) { return fails() ? nullptr : __real_realloc(old, size); }
nl_sock *__wrap_nl_socket_alloc() { return fails() ? nullptr : __real_nl_socket_alloc(); }
nl_msg *__wrap_nlmsg_alloc() { return fails() ? nullptr : __real_nlmsg_alloc(); }

// The one that listens is connected first, each time.
int __wrap_genl_connect(nl_sock *socket) {
    static int connected = 0;
    if (connected++ % 2 == 0) listener = socket;
    return 0;
}
int __wrap_genl_ctrl_resolve(nl_sock * /*socket*/, const char * /*name*/) { return wireless_family; }
int __wrap_genl_ctrl_resolve_grp(nl_sock * /*socket*/, const char * /*family*/, const char * /*group*/) {
    return 1;
}
int __wrap_nl_socket_add_membership(nl_sock * /*socket*/, int /*group*/) { return 0; }
int __wrap_nl_socket_get_fd(const nl_sock *socket) { return socket == listener ? listener_fd : asker_fd; }
int __wrap_nl_send_auto_complete(nl_sock * /*socket*/, nl_msg *message) {
    const aside own;
    take_question(nlmsg_hdr(message));
    return 1;
}
ssize_t __wrap_recv(int fd, void *to, std::size_t size, int flags) {
    const aside own;
    if (fd == asker_fd) return hand_out(answers, to, size);
    if (fd != listener_fd) return __real_recv(fd, to, size, flags);
    if (overrun) {
        overrun = false;
        errno = ENOBUFS;
        return -1;
    }
    std::uint64_t count = 0;
    if (events.empty()) (void)!read(listener_fd, &count, sizeof(count));
    return hand_out(events, to, size);
}

// The socket that the daemon hears: a pair, since not everybody may send to others over netlink.
int __wrap_socket(int domain, int type, int protocol) {
    if (domain != AF_NETLINK) return __real_socket(domain, type, protocol);
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) return -1;
    daemon_fd = ends[0];
    return channel_fd = ends[1];
}
int __wrap_bind(int fd, const sockaddr *address, socklen_t size) {
    return fd == channel_fd ? 0 : __real_bind(fd, address, size);
}
int __wrap_getsockname(int fd, sockaddr *address, socklen_t *size) {
    return fd == channel_fd ? 0 : __real_getsockname(fd, address, size);
}
ssize_t __wrap_sendto(int fd, const void *bytes, std::size_t size, int flags, const sockaddr *to,
                      socklen_t to_size) {
    return fd == channel_fd ? send(fd, bytes, size, flags)
                            : __real_sendto(fd, bytes, size, flags, to, to_size);
}
// Its port is in the kernel's table, and a process of its name has it.
std::FILE *__wrap_fopen(const char *path, const char *mode) {
    const aside own;
    const std::string name(path);
    char text[160] = "";
    if (name == "/proc/net/netlink")
        std::snprintf(text, sizeof(text), "sk Eth Pid Groups\n0 16 %u 00008000 0 0 0 2 0 99\n", daemon_port);
    else if (name == "/proc/" + std::to_string(daemon_port) + "/comm")
        std::snprintf(text, sizeof(text), "wsmd\n");
    else
        return __real_fopen(path, mode);
    std::FILE *file = std::tmpfile();
    std::fputs(text, file);
    std::rewind(file);
    return file;
}
std::FILE *__wrap_fopen64(const char *path, const char *mode) { return __wrap_fopen(path, mode); }
int __wrap_uloop_timeout_set(uloop_timeout *timeout, int ms) {
    return __real_uloop_timeout_set(timeout, (ms + haste - 1) / haste);
}
int __wrap_clock_gettime(clockid_t clock, timespec *now) {
    static std::int64_t begin = 0;
    const int result = __real_clock_gettime(clock, now);
    if (clock != CLOCK_MONOTONIC) return result;
    const std::int64_t ns = std::int64_t{now->tv_sec} * 1'000'000'000 + now->tv_nsec;
    if (begin == 0) begin = ns;
    const std::int64_t hasty = begin + (ns - begin) * haste;
    now->tv_sec = static_cast<decltype(now->tv_sec)>(hasty / 1'000'000'000);
    now->tv_nsec = static_cast<decltype(now->tv_nsec)>(hasty % 1'000'000'000);
    return result;
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

// Its network "wlan1": who has attached is told of the stations.
class hostapd {
public:
    explicit hostapd(const std::string &folder) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof(address.sun_path), "%s/wlan1", folder.c_str());
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
    }
    hostapd(hostapd &&) = delete;
    ~hostapd() { close(fd_); }

    void serve() {
        char words[128];
        for (;;) {
            peer_size_ = sizeof(peer_);
            const ssize_t got =
                recvfrom(fd_, words, sizeof(words), 0, reinterpret_cast<sockaddr *>(&peer_), &peer_size_);
            if (got < 0) return;
            const std::string command(words, static_cast<std::size_t>(got));
            say_to_peer(command == "PING" ? "PONG\n" : "OK\n");
            if (command.rfind("SET", 0) == 0) known_ = {peer_, peer_size_};
        }
    }
    bool is_heard() const { return known_.second != 0; }
    void say(const std::string &line) {
        peer_ = known_.first;
        peer_size_ = known_.second;
        say_to_peer(line);
    }

private:
    void say_to_peer(const std::string &line) const {
        (void)!sendto(fd_, line.data(), line.size(), 0, reinterpret_cast<const sockaddr *>(&peer_),
                      peer_size_);
    }

    int fd_;
    sockaddr_un peer_{};
    socklen_t peer_size_ = 0;
    std::pair<sockaddr_un, socklen_t> known_{};
};

std::string hex(const mac_address &mac) {
    char text[13];
    for (int i = 0; i < 6; ++i) std::snprintf(text + 2 * i, 3, "%02x", mac.bytes[i]);
    return text;
}

constexpr int ended_at_start = 10;
constexpr int nothing_failed = 11;

class one_life {
public:
    one_life(int nth, const std::string &folder)
        : path_(folder + "/was.sock"), memory_(folder + "/stations"), hostapd_(folder),
          bridge_({folder.c_str(), "/nowhere", "wsmd", memory_.c_str(), {}, 0}) {
        listener_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        asker_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        uloop_init();
        allocations_left = nth;
        counting = true;
        const char *fault = bridge_.start(path_.c_str());
        counting = false;
        if (fault) {
            EXPECT_TRUE(has_failed) << fault;
            std::exit(testing::Test::HasFailure() ? 2 : ended_at_start);
        }
        live();
        using testing::ElementsAre;
        EXPECT_THAT(heard_,
                    testing::AnyOf(ElementsAre(hex(anna) + " on", hex(ben) + " on", hex(anna) + " off 307"),
                                   ElementsAre(hex(ben) + " on", hex(anna) + " on", hex(anna) + " off 307")));
        if (testing::Test::HasFailure()) std::exit(2);
        std::exit(has_failed ? 0 : nothing_failed);
    }

private:
    void live() {
        until([&] { return hostapd_.is_heard() && told_; }, "hostapd and the daemon to know of the bridge");
        come(anna);
        come(ben);
        until([&] { return heard_.size() >= 2; }, "their arrivals");
        ask_table();
        until([&] { return in_memory() == 2; }, "both to be remembered");
        leave(anna);
        until([&] { return heard_.size() >= 3; }, "a departure");
        ask_table();
        until([&] { return in_memory() == 1; }, "one to be remembered");
        counting = true;
        bridge_.stop();
        counting = false;
    }

    // Runs the bridge until it is so. What it lost for want of memory it finds when it lists the stations, each minute.
    void until(const std::function<bool()> &is_so, const char *what) {
        timespec begin{};
        __real_clock_gettime(CLOCK_MONOTONIC, &begin);
        while (!is_so()) {
            counting = true;
            uloop_run_timeout(2);
            counting = false;
            hostapd_.serve();
            hear();
            timespec now{};
            __real_clock_gettime(CLOCK_MONOTONIC, &now);
            if (now.tv_sec - begin.tv_sec < 120) continue;
            ADD_FAILURE() << "waited for " << what;
            std::exit(2);
        }
    }

    // What the daemon gets: the announcement, and events.
    void hear() {
        std::uint8_t bytes[2048];
        for (;;) {
            const ssize_t got = __real_recv(daemon_fd, bytes, sizeof(bytes), 0);
            if (got <= 0) return;
            told_ = true;
            if (static_cast<std::size_t>(got) != event_message_size) continue;
            station_event event{};
            station_event_decode(std::span<const std::uint8_t, station_event_size>(
                                     bytes + station_event_offset, station_event_size),
                                 event);
            const std::string client =
                hex(mac_address::at(reinterpret_cast<const std::uint8_t *>(event.mac)));
            heard_.push_back(event.assoc == 1 ? client + " on"
                                              : client + " off " + std::to_string(event.off_reason_code));
        }
    }

    // The daemon's two requests; one whose connection is closed, for want of memory, is made again.
    void ask_table() {
        const std::size_t size =
            table_header_size + in_kernel.size() * (table_basic_size + table_extended_size);
        std::vector<std::uint8_t> count(1024);
        std::vector<std::uint8_t> table(size);
        wire::put<std::uint32_t>(table.data() + table_num_offset,
                                 static_cast<std::uint32_t>(in_kernel.size()));
        wire::put<std::uint32_t>(table.data() + table_mask_offset, table_basic | table_extended);
        until([&] { return ask(driver_station_count, count) && ask(driver_station_table, table); },
              "a table");
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(count.data())),
                  std::to_string(in_kernel.size()));
        EXPECT_EQ(wire::get<std::uint32_t>(table.data() + table_num_offset), in_kernel.size());
        std::set<std::string> listed;
        for (std::size_t i = 0; i < in_kernel.size(); ++i) {
            const driver_basic entry =
                driver_basic_decode(table.data() + table_header_size + i * table_basic_size);
            listed.insert(key(mac_address::at(entry.mac)));
        }
        EXPECT_EQ(listed, in_kernel);
    }

    // False when there was no answer, or an error.
    bool ask(std::int32_t command, std::vector<std::uint8_t> &bytes) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", path_.c_str());
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
        std::vector<std::uint8_t> question(was_request_header);
        wire::put<std::int32_t>(question.data() + was_request_cmd, command);
        wire::put<std::uint32_t>(question.data() + was_request_size,
                                 static_cast<std::uint32_t>(bytes.size()));
        std::memcpy(question.data() + was_request_ifname, "wlan1", 5);
        question.insert(question.end(), bytes.begin(), bytes.end());
        EXPECT_EQ(send(fd, question.data(), question.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(question.size()));
        std::vector<std::uint8_t> answer;
        bool is_over = false;
        until(
            [&] {
                std::uint8_t part[4096];
                const ssize_t got = __real_recv(fd, part, sizeof(part), 0);
                if (got > 0) answer.insert(answer.end(), part, part + got);
                return is_over = got == 0 || (got < 0 && errno == ECONNRESET);
            },
            "the bridge's answer");
        close(fd);
        if (answer.size() != was_answer_header + bytes.size() || wire::get<std::int32_t>(answer.data()) != 0)
            return false;
        std::copy(answer.begin() + was_answer_header, answer.end(), bytes.begin());
        return true;
    }

    // How many stations a bridge that starts now would know of.
    std::size_t in_memory() const {
        bridge_memory memory{};
        return memory_load(memory_.c_str(), memory) ? memory.stations.size() : 0;
    }

    void come(const mac_address &mac) {
        in_kernel.insert(key(mac));
        hostapd_.say("<3>AP-MGMT-FRAME-RECEIVED buf=b0003a01020000000100" + hex(mac) +
                     "0200000001000000000001000000");
        kernel_says("new_station_event", mac);
        kernel_says("assoc_response_sent", mac);
        hostapd_.say("<3>AP-STA-CONNECTED " + std::string(mac_text(mac).text));
    }

    void leave(const mac_address &mac) {
        in_kernel.erase(key(mac));
        hostapd_.say("<3>AP-MGMT-FRAME-RECEIVED buf=c0003a01020000000100" + hex(mac) +
                     "02000000010000000300");
        hostapd_.say("<3>AP-STA-DISCONNECTED " + std::string(mac_text(mac).text));
        kernel_says("del_station_event", mac);
    }

    std::string path_, memory_;
    hostapd hostapd_;
    bridge bridge_;
    bool told_ = false;
    std::vector<std::string> heard_;
};

// Its exit status, each in a process of its own; several at a time, since they mostly wait.
std::map<int, int> live_all(int first, int count) {
    std::map<pid_t, int> running;
    std::map<int, int> ended;
    for (int nth = first; nth < first + count; ++nth) {
        const pid_t pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            static std::string whole = std::filesystem::temp_directory_path() / "bridge-life-XXXXXX";
            if (!mkdtemp(whole.data())) _exit(3);
            std::atexit([] { std::filesystem::remove_all(whole); });
            SCOPED_TRACE("allocation " + std::to_string(nth));
            const one_life life(nth, whole);
        }
        running[pid] = nth;
    }
    for (int status = 0; !running.empty();) {
        const pid_t pid = wait(&status);
        ended[running[pid]] = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        running.erase(pid);
    }
    return ended;
}

TEST(whole_life, ends_in_the_truth_whichever_allocation_fails) {
    constexpr int at_once = 8;
    int failed = 0;
    for (int first = 0; first < 1000; first += at_once)
        for (const auto &[nth, status] : live_all(first, at_once)) {
            ASSERT_THAT(status, testing::AnyOf(0, ended_at_start, nothing_failed)) << "allocation " << nth;
            if (status != nothing_failed) {
                ++failed;
                continue;
            }
            EXPECT_GT(failed, 15);
            return;
        }
    FAIL() << "it allocates without end";
}

} // namespace
