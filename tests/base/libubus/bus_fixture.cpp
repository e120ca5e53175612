#include "bus_fixture.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <libubox/blobmsg_json.h>

namespace {

constexpr std::chrono::seconds patience{10};

sockaddr_un address_of(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path.c_str());
    return address;
}

bool is_listening(const std::string &path) {
    const sockaddr_un address = address_of(path);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    const bool good = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    close(fd);
    return good;
}

bool is_readable(int fd) {
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) == 1;
}

} // namespace

broker_process::broker_process(std::string socket) : pid_(fork()) {
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that crashes leaves no broker behind
        // The broker lets root do everything. A user who is not root becomes root in a user namespace.
        if (geteuid() == 0)
            execl(UBUSD_PROGRAM, "ubusd", "-s", socket.c_str(), nullptr);
        else
            execlp("unshare", "unshare", "--map-root-user", UBUSD_PROGRAM, "-s", socket.c_str(), nullptr);
        _exit(127);
    }
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!is_listening(socket) && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

broker_process::~broker_process() {
    if (pid_ < 0) return;
    ::kill(pid_, SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
    EXPECT_EQ(status, 0) << "the broker did not end well";
}

void broker_process::kill() {
    ::kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

bool run_until(const std::function<bool()> &condition) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        uloop_run_timeout(10);
    }
    return true;
}

conversation::~conversation() { close(fd_); }

void conversation::say(const bytes &data) {
    EXPECT_EQ(send(fd_, data.data(), data.size(), MSG_NOSIGNAL), static_cast<ssize_t>(data.size()));
}

bytes conversation::hear() {
    bytes message(12);
    std::size_t have = 0;
    while (have < message.size() && is_readable(fd_)) {
        const ssize_t n = recv(fd_, message.data() + have, message.size() - have, 0);
        if (n <= 0) break;
        have += static_cast<std::size_t>(n);
        if (have == 12) {
            const std::size_t root =
                std::size_t{message[9]} << 16 | std::size_t{message[10]} << 8 | message[11];
            message.resize(8 + root);
        }
    }
    EXPECT_EQ(have, message.size()) << "the client said less than a message";
    return message;
}

void conversation::confirm(const bytes &request) {
    answer(request, {0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 12, 1, 0, 0, 8, 0, 0, 0, 0});
}

void conversation::answer(const bytes &request, bytes data) {
    std::copy(request.begin() + 2, request.begin() + 8, data.begin() + 2);
    say(data);
}

bool conversation::is_left() {
    char byte;
    return is_readable(fd_) && recv(fd_, &byte, 1, 0) <= 0;
}

scripted_broker::scripted_broker(std::function<void(conversation &)> script) {
    const sockaddr_un address = address_of(socket());
    listener_ = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address) || listen(listener_, 1))
        std::abort();
    thread_ = std::thread([this, script] {
        if (!is_readable(listener_)) return;
        conversation with_client(accept(listener_, nullptr, nullptr));
        script(with_client);
    });
}

scripted_broker::~scripted_broker() {
    thread_.join();
    close(listener_);
}

std::string json(blob_attr *msg) {
    char *text = blobmsg_format_json(msg, true);
    std::string copy = text;
    std::free(text);
    return copy;
}

fields::fields(const std::string &json) {
    blob_buf_init(&buf_, 0);
    if (!blobmsg_add_json_from_string(&buf_, json.c_str())) std::abort();
}
