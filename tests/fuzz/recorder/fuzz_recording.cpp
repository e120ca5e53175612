// The input is a recording from a stranger. It is refused, or read, shown, and used as a replay does: its messages get the
// lab's family numbers, and its own driver requests, asked again at their times, are answered.
#include "../require.h"
#include "record/show.h"
#include "replay/answers.h"
#include "replay/families.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    recording whole;
    if (!recording_read({data, size}, whole).empty()) return 0;
    require(recording_line(whole).find('\n') == std::string::npos, "a recording is one line");

    recorded_answers answers(whole);
    replayed_families families(1000);
    for (const recorded::record &one : whole.records) {
        require(record_line(one).find('\n') == std::string::npos, "a record is one line");
        if (const auto *message = std::get_if<recorded::message>(&one.what)) {
            const auto sent = families.translate(message->content);
            require(!sent || sent->size() == message->content.size(), "a message keeps its length");
        }
        if (const auto *request = std::get_if<recorded::request>(&one.what)) {
            std::vector<std::uint8_t> asked(request->asked.begin(), request->asked.end());
            asked.resize(request->size);
            const auto found = answers.find({request->cmd, request->arg, request->ifname, asked}, one.time);
            require(found && found->request->size == request->size, "what was asked has its answer");
        }
    }
    return 0;
}
