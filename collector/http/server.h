// server.h - the HTTP interface, read only, on an address of its own.
//
// Bounds: `most_connections` at once, of which half may be streams; requests of 8 KiB; who neither sends nor reads for 30 s is
//         cut off, and a stream that falls behind by 1 MiB as well.
// Texts of 1 KiB and more are compressed for who asks for gzip; the page's files once, and kept so. The event stream is not.
// Off loopback a token is needed. On loopback the name in "Host" must be a loopback one, so that no foreign page can lead a
// browser here.
#pragma once

#include "collector/http/api.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>

struct MHD_Daemon;

struct server_options {
    std::string address; // "127.0.0.1:8080", "[::1]:0"
    std::string token;   // empty: none is asked for
    std::string web;     // folder of the page's files; empty: none
    bool api = true;     // else only /metrics
    bool metrics = false;
};

class http_server {
public:
    // Throws std::runtime_error when it cannot listen, or must not.
    http_server(server_options chosen, api_sources sources);
    ~http_server();
    http_server(http_server &&) = delete;

    int port() const;

private:
    friend struct http_server_access;

    struct packed_file {
        std::int64_t size = 0, changed = 0, changed_ns = 0; // of the file
        std::shared_ptr<const std::string> bytes;
    };

    server_options chosen_;
    api_sources from_;
    std::mutex packing_;
    std::map<std::string, packed_file> packed_; // by name; only of files that are there
    bool loopback_ = true;
    std::atomic<int> streams_{0};
    MHD_Daemon *daemon_ = nullptr;
};
