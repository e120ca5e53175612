// server.h - the HTTP interface, read only, on its own address.
//
// Bounds: `most_connections` at once, of which half may be streams; requests of 8 KiB; a client that neither sends nor reads
//         for 30 s is disconnected, and so is a stream that falls behind by 1 MiB.
// Texts of 1 KiB and more are compressed for clients that accept gzip; the page's files are compressed once and kept. The event
// stream is not compressed.
// An address that is not loopback needs a token. On loopback the name in "Host" must be a loopback name, so that a foreign web
// page cannot make a browser read from here.
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
    std::string token;   // empty: no token is needed
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
