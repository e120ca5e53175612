// driver_requests.h - the driver's private requests: counts, station tables and roam removals, answered from
// the simulator's own list, or wrongly when a test wants it so.
//
// Request and answer travel as protocol/was_wire.h says, contents as protocol/driver_request.h says.
#pragma once

#include "apsim/station.h"
#include "channel/request_server.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <json-c/json.h>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

class driver_requests {
public:
    // Who drops a station from a radio when the daemon has asked for it.
    using drop = std::function<void(const station &)>;

    driver_requests(station_table &stations, drop drop_station);

    // Empty, or what went wrong.
    std::string listen(const std::string &path);

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
    struct request {
        int command;
        int argument;
        std::string ifname;
        std::span<std::uint8_t> bytes; // the asker's buffer
    };
    struct entry {
        int command;
        int argument;
        std::string ifname;
        std::size_t size;
        std::vector<std::uint8_t> bytes; // the first of them
        int result;
    };

    int handle(const was_question &question);
    int answer(const request &asked);
    int answer_count(const request &asked);
    int answer_table(const request &asked);
    int roam_delete(const request &asked);
    bool fails(int command);

    station_table &stations_;
    drop drop_station_;
    request_server server_;
    std::map<int, std::optional<std::uint64_t>> failing_;
    std::map<std::string, std::string> counts_;
    std::optional<std::uint32_t> num_;
    std::deque<entry> log_;
};
