// collector.h - the collector: a listening socket at "/tmp/sta_server_domain".
//
// It has no thread: a report is kept by the socket's queue, written and closed by the daemon, until the test
// asks.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct collected_report {
    std::string from; // path that the sender was bound to
    std::vector<std::uint8_t> image;
};

class collector {
public:
    // `room`: reports that it lets wait before it makes the daemon wait.
    explicit collector(int room = 1024);
    ~collector();
    collector(const collector &) = delete;
    collector &operator=(const collector &) = delete;

    // What has come since the last call, in order.
    std::vector<collected_report> reports();

    // Kinds (log_type) of what has come since the last call, in order.
    std::vector<int> kinds();

private:
    int listener;
};
