// driver_requests.h - the driver's private requests: counts, station tables and roam removals, answered from
// the simulator's own list, or wrongly when a test wants it so.
//
// Request and answer travel as platform/was/was_wire.h says, contents as src/driver/driver_request.h says.
#pragma once

#include "common/was_peer.h"

#include <cstdint>
#include <deque>
#include <json-c/json.h>
#include <map>
#include <optional>
#include <string>
#include <vector>

struct simulator;

class driver_requests {
public:
    explicit driver_requests(simulator &owner);

    std::string listen(const std::string &path) { return server_.listen(path); }

    // Requests of `command` fail `times` times; nothing for ever.
    void fail(int command, std::optional<std::uint64_t> times) { failing_[command] = times; }
    void fail_no_more() { failing_.clear(); }
    // What command 5 answers for this interface instead of the truth; nothing for the truth.
    void set_count(const std::string &ifname, std::optional<std::string> text);
    // What command 1 says it has filled, instead of the truth.
    void set_num(std::optional<std::uint32_t> num) { num_ = num; }

    json_object *log() const; // the caller owns it
    void clear_log() { log_.clear(); }

private:
    using request = was_question;
    struct entry {
        request asked;
        std::size_t size; // of the bytes; those of large requests are not kept
        int result;
    };

    void handle(stream_server::peer &from);
    int answer(request &asked);
    int answer_count(request &asked);
    int answer_table(request &asked);
    int roam_delete(const request &asked);
    bool fails(int command);

    simulator &owner_;
    stream_server server_;
    std::map<int, std::optional<std::uint64_t>> failing_;
    std::map<std::string, std::string> counts_;
    std::optional<std::uint32_t> num_;
    std::deque<entry> log_;
};
