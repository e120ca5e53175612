#include "collector/http/server.h"

#include "collector/http/gzip.h"

#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr unsigned most_connections = 64;
constexpr unsigned idle_seconds = 30;
constexpr int heartbeat = 10'000;             // ms; shorter than the idle time
constexpr std::size_t request_memory = 16384; // half of it for the request
constexpr std::size_t stack = 256 * 1024;
constexpr std::size_t most_packed = 1024 * 1024; // of a file: it is read into memory for that

struct sockets_address {
    sockaddr_storage storage{};
    bool v6 = false;
    bool loopback = false;
};

// "ADDRESS:PORT", with a v6 address in brackets.
sockets_address parse_address(const std::string &text) {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos) throw std::runtime_error(text + ": ADDRESS:PORT is wanted");
    std::string host = text.substr(0, colon);
    std::uint16_t port = 0;
    const char *first = text.data() + colon + 1, *last = text.data() + text.size();
    const auto [end, error] = std::from_chars(first, last, port);
    if (error != std::errc() || end != last || first == last) throw std::runtime_error(text + ": not a port");
    if (host == "localhost") host = "127.0.0.1";
    sockets_address made;
    auto *v4 = reinterpret_cast<sockaddr_in *>(&made.storage);
    auto *v6 = reinterpret_cast<sockaddr_in6 *>(&made.storage);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        if (inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &v6->sin6_addr) != 1)
            throw std::runtime_error(text + ": not an address");
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(port);
        made.v6 = true;
        made.loopback = IN6_IS_ADDR_LOOPBACK(&v6->sin6_addr);
    } else {
        if (inet_pton(AF_INET, host.c_str(), &v4->sin_addr) != 1)
            throw std::runtime_error(text + ": not an address");
        v4->sin_family = AF_INET;
        v4->sin_port = htons(port);
        made.loopback = (ntohl(v4->sin_addr.s_addr) >> 24) == 127;
    }
    return made;
}

bool names_loopback(std::string_view host) {
    if (host.starts_with("[")) return host.substr(0, host.find(']') + 1) == "[::1]";
    const std::string_view name = host.substr(0, host.find(':'));
    return name == "localhost" || name.starts_with("127.");
}

// Takes equally long for a wrong token and for the right one.
bool same(std::string_view a, std::string_view b) {
    unsigned char differ = a.size() == b.size() ? 0 : 1;
    for (std::size_t i = 0; i < a.size(); ++i)
        differ = static_cast<unsigned char>(differ | (a[i] ^ b[b.empty() ? 0 : i % b.size()]));
    return differ == 0;
}

std::string header(MHD_Connection *connection, const char *name) {
    const char *value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value ? value : "";
}

void add_headers(MHD_Response *response, const std::string &type) {
    const std::pair<const char *, const char *> fixed[] = {
        {"Content-Type", type.c_str()},
        {"Cache-Control", "no-store"},
        {"X-Content-Type-Options", "nosniff"},
        {"X-Frame-Options", "DENY"},
        {"Referrer-Policy", "no-referrer"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Content-Security-Policy",
         "default-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    };
    for (const auto &[name, value] : fixed) MHD_add_response_header(response, name, value);
}

MHD_Result send(MHD_Connection *connection, MHD_Response *response, int status) {
    const MHD_Result result = MHD_queue_response(connection, static_cast<unsigned>(status), response);
    MHD_destroy_response(response);
    return result;
}

MHD_Response *response_of(std::string_view body) {
    return MHD_create_response_from_buffer(body.size(), const_cast<char *>(body.data()),
                                           MHD_RESPMEM_MUST_COPY);
}

// `packed`, if it is not empty, is sent to a client that accepts gzip.
MHD_Response *response_of(std::string_view body, std::string_view packed) {
    MHD_Response *response = response_of(packed.empty() ? body : packed);
    if (!response) return nullptr;
    MHD_add_response_header(response, "Vary", "Accept-Encoding");
    if (!packed.empty()) MHD_add_response_header(response, "Content-Encoding", "gzip");
    return response;
}

bool may_pack(MHD_Connection *connection, std::string_view type, std::size_t size) {
    return size >= gzip_least && worth_gzip(type) && takes_gzip(header(connection, "Accept-Encoding"));
}

MHD_Result send_text(MHD_Connection *connection, const api_answer &answer) {
    const bool pack = may_pack(connection, answer.type, answer.body.size());
    MHD_Response *response = response_of(answer.body, pack ? gzip(answer.body) : std::string());
    if (!response) return MHD_NO;
    add_headers(response, answer.type);
    if (answer.status == 401) MHD_add_response_header(response, "WWW-Authenticate", "Bearer");
    if (answer.status == 405) MHD_add_response_header(response, "Allow", "GET, HEAD");
    return send(connection, response, answer.status);
}

std::string error_body(const char *why) { return std::string(R"({"error":")") + why + "\"}"; }

const char *type_of(std::string_view name) {
    constexpr std::pair<std::string_view, const char *> types[] = {
        {".html", "text/html; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".mjs", "text/javascript; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
        {".ico", "image/x-icon"},
        {".json", "application/json"},
        {".woff2", "font/woff2"},
        {".webmanifest", "application/manifest+json"},
        {".txt", "text/plain; charset=utf-8"}};
    for (const auto &[ending, type] : types)
        if (name.ends_with(ending)) return type;
    return "application/octet-stream";
}

// Letters, digits and . _ - in each part, none of which begins with a dot.
bool plain_path(std::string_view path) {
    char before = '/';
    for (const char c : path) {
        const bool word = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                          c == '_' || c == '-';
        if (!word && c != '/' && (c != '.' || before == '/')) return false;
        if (c == '/' && before == '/') return false;
        before = c;
    }
    return !path.empty();
}

struct stream {
    std::shared_ptr<live_view::subscription> events;
    std::atomic<int> *count;
    std::string left = "retry: 2000\n\n";
};

ssize_t read_stream(void *self, std::uint64_t, char *out, std::size_t size) {
    auto &from = *static_cast<stream *>(self);
    if (from.left.empty()) {
        bool over = false;
        from.left = from.events->next(heartbeat, over);
        if (over) return MHD_CONTENT_READER_END_OF_STREAM;
        if (from.left.empty()) from.left = ":\n\n"; // still there
    }
    const std::size_t some = std::min(size, from.left.size());
    std::memcpy(out, from.left.data(), some);
    from.left.erase(0, some);
    return static_cast<ssize_t>(some);
}

void end_stream(void *self) {
    auto *from = static_cast<stream *>(self);
    --*from->count;
    delete from;
}

MHD_Result collect_argument(void *into, MHD_ValueKind, const char *name, const char *value) {
    (*static_cast<api_arguments *>(into))[name] = value ? value : "";
    return MHD_YES;
}

} // namespace

struct http_server_access {
    static MHD_Result handle(void *self, MHD_Connection *connection, const char *url, const char *method,
                             const char *, const char *, std::size_t *body, void **state) {
        static int seen;
        if (*state == nullptr) { // the headers have arrived; the body, if any, has not
            *state = &seen;
            return MHD_YES;
        }
        if (*body != 0) {
            *body = 0; // read and ignored
            return MHD_YES;
        }
        return static_cast<http_server *>(self)->chosen_.address.empty()
                   ? MHD_NO
                   : serve(*static_cast<http_server *>(self), connection, url, method);
    }

    static MHD_Result refuse(MHD_Connection *connection, int status, const char *why) {
        return send_text(connection, {status, "application/json", error_body(why)});
    }

    static bool allowed(const http_server &server, MHD_Connection *connection) {
        if (server.chosen_.token.empty()) return true;
        constexpr std::string_view bearer = "Bearer ";
        const std::string given = header(connection, "Authorization");
        if (given.starts_with(bearer) &&
            same(std::string_view(given).substr(bearer.size()), server.chosen_.token))
            return true;
        const char *cookie = MHD_lookup_connection_value(connection, MHD_COOKIE_KIND, "wsm_token");
        return cookie && same(cookie, server.chosen_.token);
    }

    static MHD_Result serve(http_server &server, MHD_Connection *connection, const std::string &path,
                            std::string_view method) {
        if (method != "GET" && method != "HEAD") return refuse(connection, 405, "this is read only");
        if (server.loopback_ && server.chosen_.token.empty() && !names_loopback(header(connection, "Host")))
            return refuse(connection, 421, "this host is not served");
        api_arguments arguments;
        MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, collect_argument, &arguments);
        // A browser is given the token once, in the address, and keeps it as a cookie that no script can read.
        if (const auto token = arguments.find("token");
            path == "/" && token != arguments.end() && !server.chosen_.token.empty()) {
            if (!same(token->second, server.chosen_.token))
                return refuse(connection, 401, "another token is needed");
            MHD_Response *response = MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT);
            add_headers(response, "text/plain");
            MHD_add_response_header(response, "Location", "/");
            MHD_add_response_header(
                response, "Set-Cookie",
                ("wsm_token=" + server.chosen_.token + "; Path=/; HttpOnly; SameSite=Strict").c_str());
            return send(connection, response, 303);
        }
        if (!allowed(server, connection)) return refuse(connection, 401, "a token is needed");
        if (server.chosen_.metrics && path == "/metrics")
            return send_text(connection,
                             {200, "text/plain; version=0.0.4; charset=utf-8", write_metrics(server.from_)});
        if (!server.chosen_.api) return refuse(connection, 404, "nothing is there");
        if (path == "/api/v1/events") return events(server, connection);
        if (path.starts_with("/api/"))
            return send_text(connection, answer_api(server.from_, path, arguments));
        return file(server, connection, path);
    }

    static MHD_Result events(http_server &server, MHD_Connection *connection) {
        if (++server.streams_ > static_cast<int>(most_connections / 2)) {
            --server.streams_;
            return refuse(connection, 503, "too many streams");
        }
        auto made = std::make_unique<stream>();
        made->events = server.from_.view->subscribe();
        made->count = &server.streams_;
        MHD_Response *response =
            MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, 16384, read_stream, made.get(), end_stream);
        if (!response) {
            --server.streams_;
            return MHD_NO;
        }
        (void)made.release();
        add_headers(response, "text/event-stream");
        return send(connection, response, 200);
    }

    // A file of the page, compressed once until it changes. Empty: it is sent uncompressed.
    static std::shared_ptr<const std::string> packed(http_server &server, const std::string &name, int fd,
                                                     const struct stat &about) {
        const std::lock_guard lock(server.packing_);
        http_server::packed_file &kept = server.packed_[name];
        if (kept.bytes && kept.size == about.st_size && kept.changed == about.st_mtim.tv_sec &&
            kept.changed_ns == about.st_mtim.tv_nsec)
            return kept.bytes;
        std::string plain(static_cast<std::size_t>(about.st_size), '\0');
        const bool whole = pread(fd, plain.data(), plain.size(), 0) == about.st_size;
        kept = {about.st_size, about.st_mtim.tv_sec, about.st_mtim.tv_nsec,
                std::make_shared<const std::string>(whole ? gzip(plain) : std::string())};
        return kept.bytes;
    }

    static MHD_Result file(http_server &server, MHD_Connection *connection, const std::string &path) {
        const std::string name = path == "/" ? "index.html" : path.substr(1);
        if (server.chosen_.web.empty() || !plain_path(name))
            return refuse(connection, 404, "nothing is there");
        const int fd = open((server.chosen_.web + "/" + name).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        struct stat about {};
        if (fd < 0 || fstat(fd, &about) != 0 || !S_ISREG(about.st_mode)) {
            if (fd >= 0) close(fd);
            return refuse(connection, 404, "nothing is there");
        }
        const auto size = static_cast<std::size_t>(about.st_size);
        std::shared_ptr<const std::string> small;
        if (size <= most_packed && may_pack(connection, type_of(name), size))
            small = packed(server, name, fd, about);
        MHD_Response *response = nullptr;
        if (small && !small->empty()) {
            response = response_of({}, *small);
            close(fd);
        } else {
            response = MHD_create_response_from_fd(size, fd); // which closes it
            if (!response) close(fd);
            if (response) MHD_add_response_header(response, "Vary", "Accept-Encoding");
        }
        if (!response) return MHD_NO;
        add_headers(response, type_of(name));
        return send(connection, response, 200);
    }
};

http_server::http_server(server_options chosen, api_sources sources)
    : chosen_(std::move(chosen)), from_(std::move(sources)) {
    const sockets_address at = parse_address(chosen_.address);
    loopback_ = at.loopback;
    if (chosen_.api && !loopback_ && chosen_.token.empty())
        throw std::runtime_error(chosen_.address +
                                 " can be reached from other machines: a token file is needed");
    const unsigned flags = MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_POLL |
                           static_cast<unsigned>(at.v6 ? MHD_USE_IPv6 : MHD_NO_FLAG);
    sigset_t all, before; // signals are for the main thread
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    daemon_ = MHD_start_daemon(
        flags, 0, nullptr, nullptr, &http_server_access::handle, this, MHD_OPTION_SOCK_ADDR, &at.storage,
        MHD_OPTION_CONNECTION_LIMIT, most_connections, MHD_OPTION_CONNECTION_TIMEOUT, idle_seconds,
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, request_memory, MHD_OPTION_THREAD_STACK_SIZE, stack,
        MHD_OPTION_LISTENING_ADDRESS_REUSE, 1u, MHD_OPTION_END);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (!daemon_) throw std::runtime_error("cannot listen at " + chosen_.address);
}

http_server::~http_server() {
    from_.view->close();
    MHD_stop_daemon(daemon_);
}

int http_server::port() const { return MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT)->port; }
