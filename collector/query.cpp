#include "collector/query.h"

#include "collector/sessions.h"
#include "collector/store/open_store.h"
#include "collector/times.h"

#include <charconv>
#include <cstdio>
#include <exception>
#include <iostream>
#include <map>
#include <vector>

namespace {

constexpr const char *usage = "usage: wsm-collector query --store STORE WHAT [options]\n\n"
                              "  sessions         stays, the newest first\n"
                              "  station MAC      the stays of one station\n"
                              "  departures       how many stays ended, by reason\n"
                              "  top              stations by bytes\n\n"
                              "  --store STORE    sqlite:FILE or postgresql://...\n"
                              "  --since TIME     from then on: 2026-03-01, \"2026-03-01 14:05\", seconds "
                              "since 1970, or 30m, 24h, 7d ago\n"
                              "  --until TIME     up to then\n"
                              "  --limit N        at most N rows (100)\n"
                              "  --json, --csv    in that form\n"
                              "  --names FILE     names of stations: MAC and name in each line\n\n"
                              "Exit status: 0, 1 the store or the names cannot be read, 2 wrong usage.\n";

int wrong(const std::string &what) {
    std::fprintf(stderr, "wsm-collector query: %s\n%s", what.c_str(), usage);
    return 2;
}

template <class Int> bool whole(std::string_view text, Int &out) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
    return error == std::errc() && end == text.data() + text.size();
}

} // namespace

int run_query(int argc, char **argv) {
    std::string store, names_file, form;
    store_range range;
    std::vector<std::string> words;
    for (int i = 0; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--help") return std::fputs(usage, stdout), 0;
        if (word == "--json" || word == "--csv") {
            if (!form.empty() && form != word) return wrong("one of --json, --csv");
            form = word;
            continue;
        }
        if (!word.starts_with("--")) {
            words.push_back(word);
            continue;
        }
        if (i + 1 == argc) return wrong(word + ": unknown, or its value is missing");
        const std::string value = argv[++i];
        if (word == "--store") {
            std::string url, path;
            if (const std::string why = parse_store(value, url, path); !why.empty())
                return wrong("--store: " + why);
            store = value;
        } else if (word == "--since" || word == "--until") {
            const auto when = parse_time(value, now());
            if (!when) return wrong(word + ": not a time: " + value);
            (word == "--since" ? range.since : range.until) = *when;
        } else if (word == "--limit") {
            if (!whole(value, range.limit) || range.limit < 1)
                return wrong("--limit: a whole number above 0");
        } else if (word == "--names") {
            names_file = value;
        } else {
            return wrong("unknown option " + word);
        }
    }
    if (store.empty()) return wrong("--store: which one?");
    if (words.empty()) return wrong("what?");
    if (words.size() != (words[0] == "station" ? 2u : 1u)) return wrong("one question at a time");
    static const std::map<std::string, store_question> questions{{"sessions", store_question::sessions},
                                                                 {"station", store_question::sessions},
                                                                 {"departures", store_question::departures},
                                                                 {"top", store_question::top}};
    const auto asked = questions.find(words[0]);
    if (asked == questions.end()) return wrong("unknown question " + words[0]);
    if (words[0] == "station" && (range.mac = normal_mac(words[1])).empty())
        return wrong("not a MAC: " + words[1]);
    try {
        const station_names names = station_names::read(names_file);
        const auto reader = open_store(store, names);
        const table answer = reader->ask(asked->second, range);
        std::cout << (form == "--json"  ? as_json(answer) + "\n"
                      : form == "--csv" ? as_csv(answer)
                                        : as_text(answer));
        return std::cout.flush() ? 0 : 1;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "wsm-collector query: %s\n", error.what());
        return 1;
    }
}
