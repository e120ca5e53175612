// wsm-collector - takes the daemon's station reports, checks, decodes and prints them.
#include "collector/report_writer.h"
#include "collector/summary.h"
#include "common/stream_server.h"
#include "protocol/station_report.h"

#include <charconv>
#include <cstdio>
#include <fstream>
#include <getopt.h>
#include <iostream>
#include <iterator>
#include <sstream>

namespace {

constexpr const char *usage =
    "usage: wsm-collector [options]\n"
    "       wsm-collector [options] FILE...\n"
    "Takes station reports and prints one line for each, until SIGINT or SIGTERM.\n"
    "With files: decodes images saved one behind the other, - for the standard input.\n\n"
    "  --json           one JSON object per line, with every field\n"
    "  --csv            comma-separated values, with every field, under a heading\n"
    "  --raw            the images as they came, for a file to decode later\n"
    "  --follow         go on reading the last file as it grows\n"
    "  --summary        at the end, what the reports say about each station\n"
    "  --count N        end after N reports\n"
    "  --socket PATH    where to listen (/tmp/sta_server_domain)\n"
    "  --help\n\n"
    "Exit status: 0 all reports were sound, 1 it could not listen or read, 2 wrong usage,\n"
    "3 a message of another size than a report came.\n";

constexpr int follow_interval = 100; // ms between two looks at a growing file

enum class form { line, json, csv, raw };

struct options {
    form shape = form::line;
    bool summarise = false;
    bool follow = false;
    unsigned long long count = 0; // 0: no end
    std::string socket = "/tmp/sta_server_domain";
};

[[noreturn]] void wrong_usage(const char *what) {
    std::fprintf(stderr, "wsm-collector: %s\n%s", what, usage);
    std::exit(2);
}

options parse(int argc, char **argv) {
    enum { json = 1, csv, raw, follow, summarise, count, sock, help };
    constexpr option known[] = {
        {"json", no_argument, nullptr, json},
        {"csv", no_argument, nullptr, csv},
        {"raw", no_argument, nullptr, raw},
        {"follow", no_argument, nullptr, follow},
        {"summary", no_argument, nullptr, summarise},
        {"count", required_argument, nullptr, count},
        {"socket", required_argument, nullptr, sock},
        {"help", no_argument, nullptr, help},
        {nullptr, 0, nullptr, 0},
    };
    options chosen;
    const auto shape = [&chosen](form wanted) {
        if (chosen.shape != form::line && chosen.shape != wanted) wrong_usage("one of --json, --csv, --raw");
        chosen.shape = wanted;
    };
    for (int which = 0; (which = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        switch (which) {
        case json: shape(form::json); break;
        case csv: shape(form::csv); break;
        case raw: shape(form::raw); break;
        case follow: chosen.follow = true; break;
        case summarise: chosen.summarise = true; break;
        case count: {
            const std::string_view text = optarg;
            const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), chosen.count);
            if (error != std::errc() || end != text.data() + text.size() || chosen.count == 0)
                wrong_usage("--count: a whole number above 0");
            break;
        }
        case sock: chosen.socket = optarg; break;
        case help: std::fputs(usage, stdout); std::exit(0);
        default: wrong_usage("unknown option");
        }
    }
    if (chosen.follow && optind == argc) wrong_usage("--follow: which file?");
    return chosen;
}

class printer {
public:
    explicit printer(const options &chosen) : chosen_(chosen) {
        if (chosen_.shape == form::csv) std::cout << report_csv_heading() << std::endl;
    }

    // One message as it came, of any size. True when it was a report.
    bool take(std::string_view message) {
        if (message.size() != station_report_size) {
            ++wrong_;
            const std::string size = std::to_string(message.size());
            if (chosen_.shape == form::json)
                std::cout << R"({"error":"size","bytes":)" << size << '}' << std::endl;
            else
                std::cerr << "wsm-collector: a message of " << size << " bytes is no report" << std::endl;
            return false;
        }
        station_report sta;
        const auto *bytes = reinterpret_cast<const std::uint8_t *>(message.data());
        station_report_decode(std::span<const std::uint8_t, station_report_size>(bytes, station_report_size),
                              sta);
        ++reports_;
        summary_.add(sta);
        switch (chosen_.shape) {
        case form::line: std::cout << report_line(sta) << std::endl; break;
        case form::json: std::cout << report_json(sta) << std::endl; break;
        case form::csv: std::cout << report_csv(sta) << std::endl; break;
        case form::raw: std::cout << message << std::flush; break;
        }
        return true;
    }
    bool enough() const { return chosen_.count != 0 && reports_ >= chosen_.count; }

    // Prints what belongs at the end; returns the exit status.
    int finish() const {
        std::ostream &out = chosen_.shape == form::line ? std::cout : std::cerr; // never in between data
        if (chosen_.summarise) out << summary_.text();
        out.flush();
        if (wrong_ > 0) std::cerr << "wsm-collector: " << wrong_ << " messages were no reports" << std::endl;
        return std::cout ? wrong_ > 0 ? 3 : 0 : 1;
    }

private:
    const options &chosen_;
    summary summary_;
    unsigned long long reports_ = 0;
    unsigned long long wrong_ = 0;
};

int failed(const std::string &why) {
    std::fprintf(stderr, "wsm-collector: %s\n", why.c_str());
    return 1;
}

// Images one behind the other. Returns what is left behind the last whole one.
std::string decode(std::istream &in, std::string bytes, printer &out) {
    bytes.append(std::istreambuf_iterator<char>(in), {});
    std::size_t at = 0;
    for (; bytes.size() - at >= station_report_size && !out.enough(); at += station_report_size)
        out.take(std::string_view(bytes).substr(at, station_report_size));
    return bytes.substr(at);
}

int decode_files(const options &chosen, char **names, printer &out) {
    for (; *names && !out.enough(); ++names) {
        std::ifstream file;
        const bool from_stdin = std::string_view(*names) == "-";
        if (!from_stdin) file.open(*names, std::ios::binary);
        if (!file) return failed(std::string("cannot read ") + *names);
        std::istream &in = from_stdin ? std::cin : file;
        std::string rest = decode(in, {}, out);
        if (chosen.follow && !names[1]) {
            if (uloop_init() != 0) return failed("no event loop");
            timer more([&] {
                in.clear(); // the end that was met is not the end any more
                rest = decode(in, std::move(rest), out);
                out.enough() ? uloop_end() : more.start(follow_interval);
            });
            more.start(0);
            uloop_run();
        }
        if (!rest.empty() && !out.enough()) out.take(rest);
    }
    return out.finish();
}

int listen(const options &chosen, printer &out) {
    if (uloop_init() != 0) return failed("no event loop");
    stream_server server([&out](stream_server::peer &from) {
        // A report is over when its connection is; what is far too long needs not be waited for.
        if (!from.ended && from.in.size() <= station_report_size) return;
        from.close = true;
        if (!out.enough()) out.take(from.in);
        if (out.enough()) uloop_end();
    });
    if (const std::string why = server.listen(chosen.socket); !why.empty()) return failed(why);
    uloop_run();
    server.drain(); // what had arrived when the signal came
    return out.finish();
}

} // namespace

int main(int argc, char **argv) {
    std::ios::sync_with_stdio(false);
    const options chosen = parse(argc, argv);
    printer out(chosen);
    return optind < argc ? decode_files(chosen, argv + optind, out) : listen(chosen, out);
}
