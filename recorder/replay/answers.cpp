#include "replay/answers.h"

namespace {

// µs: half of the shortest period in which a daemon asks.
constexpr std::uint64_t about = 500'000;

// Zeros at the end of a request do not count, its size does.
std::string key_of(const driver_question &question, std::size_t size) {
    std::string_view asked(reinterpret_cast<const char *>(question.asked.data()), question.asked.size());
    asked = asked.substr(0, asked.find_last_not_of('\0') + 1); // npos + 1 is 0: all zeros
    std::string key =
        std::to_string(question.cmd) + ' ' + std::to_string(question.arg) + ' ' + std::to_string(size) + ' ';
    return key.append(question.ifname).append(1, '\0').append(asked);
}

} // namespace

recorded_answers::recorded_answers(const recording &whole) {
    for (const recorded::record &one : whole.records)
        if (const auto *request = std::get_if<recorded::request>(&one.what))
            by_question_[key_of({request->cmd, request->arg, request->ifname, request->asked}, request->size)]
                .answers.push_back({one.time, request});
}

std::optional<recorded_answers::found> recorded_answers::find(const driver_question &question,
                                                              std::uint64_t now) {
    const auto at = by_question_.find(key_of(question, question.asked.size()));
    if (at == by_question_.end()) return {};
    auto &[answers, next] = at->second;
    // The daemon may ask less often than the recorded one: answers from long ago are skipped.
    while (next + 1 < answers.size() && answers[next].time + about < now && answers[next + 1].time <= now)
        ++next;
    if (next < answers.size() && (answers[next].time <= now + about || next == 0)) {
        const answer &chosen = answers[next++];
        const bool is_about_now = chosen.time <= now + about && now <= chosen.time + about;
        return found{chosen.request, chosen.time, is_about_now};
    }
    return found{answers[next - 1].request, answers[next - 1].time, false};
}
