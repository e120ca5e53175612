// wsm-collector - takes the daemon's station reports, checks and decodes them, and passes them on to outputs.
#include "collector/broker_input.h"
#include "collector/hooks.h"
#include "collector/live.h"
#include "collector/names.h"
#include "collector/options.h"
#include "collector/pipeline.h"
#include "collector/query.h"
#include "collector/report_reader.h"
#include "collector/socket_input.h"
#include "collector/times.h"
#if WITH_MQTT
#include "collector/mqtt_publisher.h"
#include "collector/mqtt_subscriber.h"
#endif
#if WITH_AMQP
#include "collector/amqp_subscriber.h"
#endif
#if WITH_HASH
#include "collector/pseudonyms.h"
#endif
#if WITH_HTTP
#include "collector/http/server.h"
#endif
#if WITH_POSTGRES
#include "collector/store/postgres_store.h"
#endif
#if WITH_SQLITE
#include "collector/store/sqlite_store.h"
#endif

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <poll.h>
#include <stdexcept>
#include <sys/signalfd.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

constexpr auto patience_at_the_end = 10s; // for outputs that make no progress
constexpr auto follow_interval = 100ms;   // between two reads of a growing file
constexpr auto caught_up = 10s;           // without a message: no more are waiting at the broker

int failed(const std::string &why) {
    std::fprintf(stderr, "wsm-collector: %s\n", why.c_str());
    return 1;
}

#if WITH_HTTP
// The folder of the page's files, found relative to the installed program; empty: there is none.
std::string installed_page() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    const auto folder = program.parent_path().parent_path() / "share/wsmd/web";
    return std::filesystem::is_directory(folder, error) ? folder.string() : std::string();
}
#endif

class collector {
public:
    // `signals`: a descriptor that signals are read from.
    collector(options chosen, int signals)
        : chosen_(std::move(chosen)), road_(chosen_.rules), signals_(signals) {
        names_ = std::make_shared<station_names>(names_of(chosen_));
        if (!chosen_.hash_mac.empty()) {
#if WITH_HASH
            hide_ = [hidden = std::make_shared<const pseudonyms>(chosen_.hash_mac)](received &in) {
                hidden->apply(in);
            };
#else
            throw std::runtime_error("--hash-mac: this program was built without libcrypto");
#endif
        }
        if (!chosen_.http.empty() || !chosen_.metrics.empty()) view_ = std::make_shared<live_view>();
        add_subscription();
        add_store();
        add_http();
        if (!chosen_.mqtt.host.empty()) {
#if WITH_MQTT
            road_.add("mqtt", std::make_unique<mqtt_publisher>(chosen_.mqtt, names_), chosen_.queue);
#else
            throw std::runtime_error("--publish: this program was built without libmosquitto");
#endif
        }
        if (!chosen_.exec.empty())
            road_.add("exec", std::make_unique<hooks>(chosen_.exec, names_), chosen_.queue);
        road_.add("print", std::make_unique<printer>(chosen_.shape, chosen_.summarise), chosen_.queue);
    }

    int run() {
        const int status = input_ ? take_subscribed() : chosen_.files.empty() ? listen() : decode_files();
        return finish(status);
    }

private:
    void add_subscription() {
        [[maybe_unused]] const auto take = [this](std::string_view topic, std::string_view payload,
                                                  std::uint64_t ticket) {
            return take_published(topic, payload, ticket);
        };
        switch (chosen_.subscribe.from) {
        case subscribe_options::kind::none: return;
        case subscribe_options::kind::mqtt:
#if WITH_MQTT
            input_ = std::make_unique<mqtt_subscriber>(chosen_.subscribe, take);
            break;
#else
            throw std::runtime_error("--subscribe: this program was built without libmosquitto");
#endif
        case subscribe_options::kind::amqp:
#if WITH_AMQP
            input_ = std::make_unique<amqp_subscriber>(chosen_.subscribe, take);
            break;
#else
            throw std::runtime_error("--subscribe: this program was built without librabbitmq");
#endif
        }
        chosen_.store.committed = [this](std::uint64_t ticket) { input_->committed(ticket); };
    }

    void add_store() {
        chosen_.store.of_files = !chosen_.files.empty();
        if (!chosen_.store.url.empty()) {
#if WITH_POSTGRES
            road_.add("store", std::make_unique<postgres_store>(chosen_.store, chosen_.rules), chosen_.queue);
#else
            throw std::runtime_error("--store: this program was built without libpq");
#endif
        }
        if (chosen_.store.path.empty()) return;
#if WITH_SQLITE
        auto store = std::make_unique<sqlite_store>(chosen_.store);
        std::vector<stay> open = store->open_stays();
        if (view_) view_->begin_with(open);
        for (stay &one : open) {
            const moment when = chosen_.files.empty() ? now() : one.seen; // files have their own time
            road_.restore(std::move(one), when);
        }
        road_.begin_with(store->next_stay());
        road_.add("store", std::move(store), chosen_.queue);
#else
        throw std::runtime_error("--store: this program was built without SQLite");
#endif
    }

    // In the form of --store's argument.
    std::string store_named() const {
        return chosen_.store.path.empty() ? chosen_.store.url : "sqlite:" + chosen_.store.path;
    }

    void add_http() {
        if (!view_) return;
        if (input_)
            std::fprintf(stderr,
                         "wsm-collector: live: what this collector receives is shown; if others share its "
                         "queue, give it one of its own\n");
#if WITH_HTTP
        view_->write = [names = names_](const change &what) { return event_text(what, *names); };
        api_sources from{view_, names_, store_named(), {}, now(), chosen_.metrics_stations};
        from.outputs = [this] { return road_.figures(); };
        server_options how;
        if (!chosen_.token_file.empty()) how.token = read_token(chosen_.token_file);
        how.web = chosen_.web.empty() ? installed_page() : chosen_.web;
        how.metrics = chosen_.metrics.empty() || chosen_.metrics == chosen_.http;
        how.address = chosen_.http;
        road_.add("live", std::make_unique<live_output>(view_), chosen_.queue);
        if (!how.address.empty()) serve(how, from, "http");
        if (how.metrics) return;
        how.api = false;
        how.metrics = true;
        how.address = chosen_.metrics;
        serve(how, from, "metrics");
#else
        throw std::runtime_error("--http, --metrics: this program was built without libmicrohttpd and zlib");
#endif
    }

#if WITH_HTTP
    void serve(const server_options &how, const api_sources &from, const char *what) {
        servers_.push_back(std::make_unique<http_server>(how, from));
        if (how.address.ends_with(":0")) // the system has chosen a port: print it
            std::fprintf(stderr, "wsm-collector: %s: port %d\n", what, servers_.back()->port());
    }

    static std::string read_token(const std::string &path) {
        std::ifstream file(path);
        std::string token;
        std::getline(file, token);
        const auto plain = [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_' || c == '.';
        };
        if (token.size() < 16 || !std::all_of(token.begin(), token.end(), plain))
            throw std::runtime_error(path + ": the first line is no token: 16 or more of A-Z a-z 0-9 . _ -");
        return token;
    }
#endif

    received message_of(std::string bytes, moment at) const {
        received in = take_message(std::move(bytes), at);
        if (hide_) hide_(in);
        if (in.report && chosen_.shape != form::raw)
            std::string().swap(in.bytes); // saves half the memory of a queue
        return in;
    }

    bool enough() const { return chosen_.count != 0 && road_.counters().reports >= chosen_.count; }

    bool stopped() {
        signalfd_siginfo info;
        while (read(signals_, &info, sizeof(info)) == sizeof(info))
            info.ssi_signo == SIGHUP &&reloadable() ? reload() : void(stop_ = true);
        return stop_;
    }

    // Without a file there is nothing to reload: SIGHUP ends the program, as when its terminal closes.
    bool reloadable() const { return !chosen_.config.empty() || !chosen_.names.empty(); }

    static station_names names_of(const options &from) {
        return station_names::read(from.drop_names ? std::string() : from.names);
    }

    // Reads again what can change while running: the rules of stays, and names. On an error nothing changes.
    void reload() {
        options again;
        std::string why = read_options_again(chosen_, again);
        try {
            if (why.empty()) names_->replace(names_of(again));
        } catch (const std::exception &error) {
            why = error.what();
        }
        if (!why.empty()) {
            std::fprintf(stderr, "wsm-collector: not reloaded: %s\n", why.c_str());
            return;
        }
        chosen_.rules = again.rules;
        road_.set_rules(again.rules);
        std::fprintf(stderr, "wsm-collector: reloaded\n");
    }

    int listen() {
        socket_input input([this](std::string message) {
            if (!enough()) road_.take(message_of(std::move(message), now()));
        });
        if (const std::string why = input.listen(chosen_.socket); !why.empty()) return failed(why);
        while (!enough() && !stopped())
            if (!input.serve(road_.tick(now()), signals_))
                return failed(std::string("waiting: ") + std::strerror(errno));
        input.drain(); // reports that arrived before the signal
        return 0;
    }

    // Returns an empty text, or why it is not a report.
    std::string take_published(std::string_view topic, std::string_view payload, std::uint64_t ticket) {
        received in;
        if (std::string why = read_report(payload, topic, in); !why.empty()) {
            road_.feed({now(), std::string(payload), {}}); // counted as a message that is not a report
            return why;
        }
        in.at = sound_time(in.from->told, now());
        in.ticket = ticket;
        if (chosen_.shape == form::raw) in.bytes = image_of(*in.report);
        if (hide_) hide_(in);
        last_at_ = in.at;
        last_came_ = std::chrono::steady_clock::now();
        road_.feed(std::move(in));
        if (!chosen_.store.wanted()) input_->committed(ticket); // the outputs have it, and that is all
        return {};
    }

    static std::string image_of(const station_report &report) {
        std::string image(station_report_size, '\0');
        auto *first = reinterpret_cast<std::uint8_t *>(image.data());
        station_report_encode(report,
                              std::span<std::uint8_t, station_report_size>(first, station_report_size));
        return image;
    }

    int take_subscribed() {
        while (!enough() && !stopped()) {
            // While old messages arrive, their time counts, so that no station seems to have been silent meanwhile.
            const bool old = std::chrono::steady_clock::now() - last_came_ < caught_up;
            const int due = road_.tick(old ? last_at_ : now());
            constexpr int often = 1000; // ms
            input_->serve(due < 0 ? often : std::min(due, often), signals_);
        }
        return 0;
    }

    // Reads images up to the end of the file. `rest`: the bytes after the last complete image, of the previous call and
    // of this one. False: the file cannot be read.
    bool decode(int file, std::string &rest) {
        char chunk[64 * station_report_size];
        while (!enough()) {
            pollfd either[] = {{file, POLLIN, 0}, {signals_, POLLIN, 0}};
            if (poll(either, 2, -1) < 0 && errno != EINTR) return false;
            if (stopped()) break;
            const ssize_t got = read(file, chunk, sizeof(chunk));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return got == 0;
            rest.append(chunk, static_cast<std::size_t>(got));
            std::size_t at = 0;
            for (; rest.size() - at >= station_report_size && !enough(); at += station_report_size)
                road_.feed(message_of(rest.substr(at, station_report_size), 0));
            rest.erase(0, at);
        }
        return true;
    }

    int decode_files() {
        for (const std::string &name : chosen_.files) {
            if (enough() || stopped()) break;
            const int file = name == "-" ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC);
            std::string rest;
            bool good = file >= 0 && decode(file, rest);
            while (good && chosen_.follow && &name == &chosen_.files.back() && !enough() && !stopped()) {
                std::this_thread::sleep_for(follow_interval);
                good = decode(file, rest);
            }
            if (file > STDIN_FILENO) close(file);
            if (!good) return failed("cannot read " + name);
            if (!rest.empty() && !enough()) road_.feed(message_of(rest, 0));
        }
        return 0;
    }

    int finish(int status) {
#if WITH_HTTP
        servers_.clear();
#endif
        std::vector<std::string> dropped;
        const worker::ending ending = road_.finish(patience_at_the_end, dropped);
        if (input_) input_->finish();
        for (const std::string &line : dropped) std::fprintf(stderr, "wsm-collector: %s\n", line.c_str());
        const unsigned long long wrong = road_.counters().wrong_size;
        if (wrong > 0) std::fprintf(stderr, "wsm-collector: %llu messages were no reports\n", wrong);
        if (status == 0) status = ending != worker::ending::done ? 1 : wrong > 0 ? 3 : 0;
        if (ending == worker::ending::stuck) std::_Exit(status);
        return status;
    }

    options chosen_;
    std::shared_ptr<station_names> names_;
    std::shared_ptr<live_view> view_;
    std::function<void(received &)> hide_; // replaces MACs and names, if that is wanted
    std::unique_ptr<broker_input> input_;  // null: the socket, or files
    moment last_at_ = 0;                   // of the last message from the broker
    std::chrono::steady_clock::time_point last_came_{};
    pipeline road_;
#if WITH_HTTP
    std::vector<std::unique_ptr<http_server>> servers_;
#endif
    int signals_;
    bool stop_ = false;
};

// Signals are blocked and read from the descriptor, so that one that arrives while the store is opened is not lost.
int hold_signals() {
    std::signal(SIGPIPE, SIG_IGN); // a reader that has closed is noticed when writing
    sigset_t wanted;
    sigemptyset(&wanted);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&wanted, number);
    sigprocmask(SIG_BLOCK, &wanted, nullptr);
    return signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK);
}

} // namespace

int main(int argc, char **argv) {
    std::ios::sync_with_stdio(false);
    if (argc > 1 && std::string_view(argv[1]) == "query") {
        return run_query(argc - 2, argv + 2);
    }
    const int signals = hold_signals();
    const options chosen = parse_options(argc, argv);
    try {
        return collector(chosen, signals).run();
    } catch (const std::exception &error) {
        return failed(error.what());
    }
}
