#include "collector/broker_input.h"

#include "collector/report_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

constexpr auto first_delay = std::chrono::milliseconds(250);
constexpr auto longest_delay = std::chrono::milliseconds(30'000);
constexpr std::size_t most_said = 16;         // complaints between two connections
constexpr std::uint64_t most_set_aside = 100; // set-aside messages that are reported one by one

} // namespace

broker_input::broker_input(const char *name, subscribe_options chosen, handler take)
    : chosen_(std::move(chosen)), name_(name), take_(std::move(take)),
      told_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (told_ < 0) throw std::runtime_error(std::string("eventfd: ") + std::strerror(errno));
}

broker_input::~broker_input() { close(told_); }

void broker_input::committed(std::uint64_t ticket) {
    stored_ = std::max<std::uint64_t>(stored_, ticket);
    const std::uint64_t one = 1;
    (void)!write(told_, &one, sizeof(one));
}

std::string broker_input::hand_on(std::string_view topic, std::string_view payload) {
    std::string why = take_(topic, payload, ticket_ + 1);
    if (why.empty()) {
        ++ticket_;
    } else if (++set_aside_ <= most_set_aside) {
        say("a message is set aside, " + why + ": " + escaped(topic.substr(0, 200)));
        if (set_aside_ == most_set_aside) say("more of them are only counted");
    }
    return why;
}

void broker_input::wait(int milliseconds, int fd, bool read, bool write, int also) {
    const int events = (read ? POLLIN : 0) | (write ? POLLOUT : 0);
    pollfd wanted[] = {
        {also, POLLIN, 0}, {told_, POLLIN, 0}, {events != 0 ? fd : -1, static_cast<short>(events), 0}};
    (void)poll(wanted, 3, milliseconds);
    std::uint64_t count = 0;
    (void)!::read(told_, &count, sizeof(count));
}

void broker_input::say(const std::string &text) const {
    std::fprintf(stderr, "wsm-collector: %s: %s\n", name_, text.c_str());
}

void broker_input::complain(const std::string &text) {
    if (said_.size() < most_said && said_.insert(text).second) say(text);
}

void broker_input::connected() {
    said_.clear();
    delay_ = {};
    say("subscribed");
}

void broker_input::not_connected() {
    delay_ = std::clamp(2 * delay_, first_delay, longest_delay);
    next_attempt_ = clock::now() + delay_;
}

int broker_input::pause() const {
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(next_attempt_ - clock::now());
    return rest.count() > 0 ? static_cast<int>(rest.count()) + 1 : 0;
}

void broker_input::say_set_aside() const {
    if (set_aside_ > 0) say(std::to_string(set_aside_) + " messages were set aside");
}
