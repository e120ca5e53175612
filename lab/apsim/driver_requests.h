// driver_requests.h - the driver's private requests: counts, station tables and roam deletes, answered from
// the simulator's own list, or wrongly if a test asks for that.
//
// Format: protocol/was_wire.h for requests and answers, protocol/driver_request.h for their content.
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
    // Called to drop a station from a radio when the daemon asks for it.
    using drop = std::function<void(const station &)>;

    driver_requests(station_table &stations, drop drop_station);

    // Returns an empty text, or what failed.
    std::string listen(const std::string &path);

    // Makes the next `times` requests of `command` fail; without a value, all of them.
    void fail(int command, std::optional<std::uint64_t> times) { failing_[command] = times; }
    void fail_no_more() { failing_.clear(); }
    // Sets a false answer of command 5 for this interface; without a value the true one is given again.
    void set_count(const std::string &ifname, std::optional<std::string> text);
    // Sets a false number of filled entries for command 1.
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
