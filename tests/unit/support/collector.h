// collector.h - the collector: a listening socket at "/tmp/sta_server_domain".
//
// It has no thread: the daemon writes a report and closes its connection, and the socket's queue keeps it until
// the test reads it.
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
    // `room`: how many reports can wait before the daemon has to wait.
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
