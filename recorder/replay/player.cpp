#include "replay/player.h"

#include "replay/places.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>
#include <unistd.h>

namespace {

constexpr std::size_t queue_max = 100'000;       // messages
constexpr int look_interval = 2;                 // ms between looks for the daemon's start
constexpr int longest_wait = 1000;               // ms
constexpr std::uint32_t answer_delay_min = 1000; // µs; a shorter delay is not simulated
constexpr std::uint32_t answer_delay_max = 30'000'000;

std::int64_t monotonic_us() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

} // namespace

player::player(const recording &whole, std::uint16_t family)
    : whole_(whole), answers_(whole), families_(family), channel_({0, queue_max}),
      server_([](void *self, was_question &asked) { return static_cast<player *>(self)->answer(asked); },
              this),
      look_([this] { wait_for_daemon(); }), due_([this] { play_due(); }) {}

std::string player::open(const std::string &path, bool places_files) {
    places_files_ = places_files;
    bool speaks = false, notifies = false;
    for (const recorded::record &one : whole_.records) {
        if (const auto *message = std::get_if<recorded::bus_message>(&one.what)) {
            speaks = true;
            notifies = notifies || message->kind == record_notification;
        }
    }
    if (speaks)
        if (std::string why = bus_.open(notifies); !why.empty()) return why;
    if (const int error = channel_.open(); error != 0)
        return std::string("no netlink socket: ") + std::strerror(error);
    // What the daemon found when it started.
    for (;
         next_ < whole_.records.size() && std::holds_alternative<recorded::file>(whole_.records[next_].what);
         ++next_)
        play(whole_.records[next_]);
    if (const int error = server_.listen(path.c_str()); error != 0)
        return "cannot listen at " + path + ": " + std::strerror(error);
    look_.start(0);
    return {};
}

void player::wait_for_daemon() {
    if (has_begun_) return;
    channel_.look();
    if (channel_.listeners() == 0) {
        look_.start(look_interval);
        return;
    }
    // The first message that the recorded daemon received was the answer to its look-up of the family, which the lab's kernel
    // does not have.
    const auto first = std::ranges::find_if(whole_.records, [](const recorded::record &one) {
        return std::holds_alternative<recorded::message>(one.what);
    });
    offset_ = monotonic_us() - static_cast<std::int64_t>(first != whole_.records.end() ? first->time : 0);
    has_begun_ = true;
    play_due();
}

std::uint64_t player::now() const {
    if (!has_begun_) return 0;
    return static_cast<std::uint64_t>(std::max<std::int64_t>(monotonic_us() - offset_, 0));
}

void player::play_due() {
    if (!has_begun_ || next_ > whole_.records.size()) return;
    for (; next_ < whole_.records.size() && whole_.records[next_].time <= now(); ++next_)
        play(whole_.records[next_]);
    if (next_ < whole_.records.size()) {
        const std::uint64_t left = (whole_.records[next_].time - now() + 999) / 1000;
        due_.start(
            static_cast<int>(std::clamp<std::int64_t>(static_cast<std::int64_t>(left), 0, longest_wait)));
        return;
    }
    ++next_; // so that this is printed once
    std::printf("end of the recording: %u messages sent, %u requests answered, %u with the answer before, %u "
                "with none\n",
                counts_.messages, counts_.answers, counts_.repeated, counts_.unanswered);
    std::fflush(stdout);
}

void player::play(const recorded::record &one) {
    std::visit([this](const auto &what) { play(what); }, one.what);
}

void player::play(const recorded::message &one) {
    if (const auto message = families_.translate(one.content)) {
        channel_.look();
        channel_.send(*message);
        ++counts_.messages;
    }
}

// A message that the recorded daemon did not receive cannot be sent; the daemon only logs such an error.
void player::play(const recorded::receive_error &one) {
    std::printf("%.6f s: not played: receiving failed, %s\n", static_cast<double>(now()) / 1e6,
                std::strerror(one.number));
    std::fflush(stdout);
}

void player::play(const recorded::file &one) {
    if (!places_files_) return;
    if (const std::string why = place_file(one); !why.empty()) {
        std::printf("a recorded file has no place: %s\n", why.c_str());
        std::fflush(stdout);
    }
}

std::int32_t player::answer(const was_question &asked) {
    const std::vector<std::uint8_t> request(asked.bytes, asked.bytes + asked.size);
    // With stations from its backup file the daemon sends requests as soon as its socket is open.
    if (!has_begun_) wait_for_daemon();

    const driver_question question{asked.command, asked.argument, asked.ifname, request};
    const auto found = answers_.find(question, now());
    std::int32_t result = -1;
    if (!found) {
        ++counts_.unanswered;
        std::printf("%.6f s: no answer was recorded to request %d of %u bytes\n",
                    static_cast<double>(now()) / 1e6, question.cmd, static_cast<unsigned>(asked.size));
        std::fflush(stdout);
    } else {
        const recorded::request &recorded = *found->request;
        ++(found->is_next ? counts_.answers : counts_.repeated);
        if (found->is_next && has_begun_) offset_ = monotonic_us() - static_cast<std::int64_t>(found->time);
        // The daemon waits for its driver and does nothing else meanwhile, so we can wait as well.
        if (recorded.took >= answer_delay_min) usleep(std::min(recorded.took, answer_delay_max));
        result = recorded.result;
        const std::size_t size = std::min(asked.size, recorded.answer.size());
        std::memset(asked.bytes, 0, asked.size);
        std::copy_n(recorded.answer.begin(), size, asked.bytes);
    }
    if (due_.running()) due_.start(0); // the clock may have moved
    return result;
}
