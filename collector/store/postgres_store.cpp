#include "collector/store/postgres_store.h"

#include "collector/report_writer.h"
#include "collector/store/packed_image.h"
#include "collector/store/postgres_schema.h"
#include "collector/times.h"

#include <algorithm>
#include <cstdio>
#include <random>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr std::size_t most_rows = 2000; // of a batch
constexpr auto most_waiting = 100ms;    // a broker should not wait a second for acknowledgements
constexpr auto first_delay = 100ms, last_delay = 5000ms; // between two attempts
constexpr auto for_ever = std::chrono::milliseconds(365 * 24h);
constexpr auto at_the_end = 5s; // patience when the program ends
constexpr auto prune_interval = 60s;
constexpr std::size_t longest_name = 64;
constexpr const char *copy_refused = "COPY refused(why, ap, boot, seq, image) FROM STDIN (FORMAT binary)";
constexpr moment latest = 4'000'000'000 * second; // the year 2096
constexpr moment behind = 60 * second; // a collector so far behind is catching up: the clock ends no stays

void say(const std::string &text) { std::fprintf(stderr, "wsm-collector: store: %s\n", text.c_str()); }

std::string random_name() {
    std::random_device device;
    char text[17];
    (void)std::snprintf(text, sizeof(text), "%08x%08x", device(), device());
    return text;
}

// Cuts the text at a character's end.
void shorten(std::string &text) {
    if (text.size() <= longest_name) return;
    std::size_t end = longest_name;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) --end;
    text.resize(end);
}

std::string packed(const station_report &report) {
    std::string image(station_report_size, '\0');
    station_report_encode(report, std::span<std::uint8_t, station_report_size>(
                                      reinterpret_cast<std::uint8_t *>(image.data()), station_report_size));
    return pack_image(image);
}

} // namespace

postgres_store::postgres_store(store_options chosen, const session_rules &rules)
    : chosen_(std::move(chosen)), boot_(random_name()), stays_(rules, chosen_.sample * second) {
    try {
        open();
    } catch (const postgres_error &error) {
        db_.reset();
        if (chosen_.of_files || !error.state().empty()) throw;
        say(std::string(error.what()) + ": tried again");
        failing_ = true;
    }
}

void postgres_store::open() {
    days_.forget();
    db_.reset();
    db_ = std::make_unique<postgres>(chosen_.url);
    // Queries look for few stations in large tables, whatever the planner's statistics say.
    if (db_->run("SHOW server_encoding").bytes(0, 0) != "UTF8")
        throw store_error("the encoding of the database is not UTF8");
    db_->script(
        "SET jit = off; SET enable_seqscan = off; SET enable_hashjoin = off; SET enable_mergejoin = off");
    bring_up_to_date(*db_, postgres_schema);
    db_->script("CREATE TEMP TABLE incoming (LIKE report) ON COMMIT DELETE ROWS;"
                "CREATE TEMP TABLE folded (LIKE stay) ON COMMIT DELETE ROWS");
}

// Repeats the work until it succeeds, at least once. False: it did not within that time.
template <class Work> bool postgres_store::tried(Work work, std::chrono::milliseconds patience) {
    const auto end = clock::now() + patience;
    for (std::chrono::milliseconds delay = first_delay;; delay = std::min(2 * delay, last_delay)) {
        try {
            if (!db_) open();
            work();
            if (failing_) say("goes on");
            failing_ = false;
            return true;
        } catch (const store_error &error) {
            if (!failing_) say(std::string(error.what()) + ": kept until it can be written");
            failing_ = true;
            db_.reset();
        }
        if (clock::now() + delay > end) return false;
        std::this_thread::sleep_for(delay);
    }
}

moment postgres_store::time() const {
    if (chosen_.of_files) return newest_;
    const moment wall = now();
    const bool catching_up = newest_ != 0 && newest_ < wall - behind && clock::now() - came_ < last_delay;
    return catching_up ? newest_ : wall;
}

moment postgres_store::horizon() const {
    if (chosen_.keep_days == 0) return 0;
    const moment today = chosen_.of_files ? std::min(newest_, now()) : now();
    return std::max<moment>(0, today / one_day - chosen_.keep_days) * one_day;
}

void postgres_store::take(const message &one) {
    if (!one.in) return;
    if (rows_.empty()) first_ = clock::now();
    if (one.in->report) add(*one.in);
    ticket_ = std::max(ticket_, one.in->ticket);
    if (rows_.size() >= most_rows) write(for_ever);
}

// Why a report cannot be stored; empty if it can.
std::string postgres_store::trouble(const row &of) const {
    if (of.key.ap.size() > longest_name || of.key.boot.size() > longest_name)
        return "the name of its access point or of its run is too long";
    if (of.key.seq < 0) return "its number is too large";
    if (of.key.at < horizon())
        return "it is older than --keep says, or the clock of its access point is wrong";
    return {};
}

void postgres_store::add(const received &in) {
    const station_report &report = *in.report;
    row made;
    made.kind = report.log_type;
    made.image = packed(report);
    std::string mac;
    if (!impossible(report, mac)) made.mac = mac;
    moment told = 0;
    if (in.from) {
        // The key must depend only on the report itself, since it may come again, on another day.
        told = in.from->told;
        made.key = {in.at, escaped(in.from->access_point), escaped(in.from->boot),
                    static_cast<std::int64_t>(in.from->seq)};
    } else {
        const std::string ap = normal_mac(std::string_view(report.ap_mac).substr(0, 17));
        told = in.at != 0 ? in.at : std::max(newest_, made_at(report));
        made.key = {told, ap.empty() ? "unknown" : ap, boot_, static_cast<std::int64_t>(++seq_)};
    }
    made.key.at = std::clamp<moment>(made.key.at, 1, latest);
    made.day = std::clamp<moment>(told, 1, latest) / one_day;
    newest_ = std::max(newest_, made.key.at);
    came_ = clock::now();
    made.why = trouble(made);
    rows_.push_back(std::move(made));
}

// True: everything is written.
bool postgres_store::write(std::chrono::milliseconds patience) {
    if (!rows_.empty() && !tried([this] { attempt(); }, patience)) return false;
    if (ticket_ > committed_) {
        committed_ = ticket_;
        if (chosen_.committed) chosen_.committed(committed_);
    }
    return true;
}

void postgres_store::attempt() {
    std::set<std::int64_t> days;
    for (const row &one : rows_) {
        if (!one.why.empty()) continue;
        days.insert(one.day);
        days.insert(one.key.at / one_day); // of its sample
    }
    days_.prepare(*db_, days, chosen_.of_files ? newest_ : now());
    insert(0, rows_.size());
    rows_.clear();
}

// If a value is refused, the rows are halved until it is found.
void postgres_store::insert(std::size_t first, std::size_t count) {
    if (count == 0) return;
    copy_rows out, aside;
    std::uint64_t set_aside = 0;
    std::string why;
    for (std::size_t i = first; i < first + count; ++i) {
        const row &one = rows_[i];
        if (!one.why.empty()) {
            refuse(aside, one, one.why);
            why = one.why;
            ++set_aside;
            continue;
        }
        out.row(8).day(one.day).add(one.key.ap).add(one.key.boot).add(one.key.seq).add(one.key.at);
        out.add(one.mac).add(one.kind).add(one.image);
    }
    try {
        transaction doing(*db_);
        db_->copy(copy_refused, aside);
        db_->copy("COPY incoming FROM STDIN (FORMAT binary)", out);
        // In key order, so that two collectors with the same reports do not deadlock.
        db_->script(
            "WITH fresh AS (INSERT INTO report SELECT * FROM incoming ORDER BY day, ap, boot, seq"
            " ON CONFLICT DO NOTHING RETURNING mac, at)"
            " INSERT INTO pending(shard, macs, ats) SELECT station_shard(mac), array_agg(mac), array_agg(at)"
            " FROM (SELECT mac, min(at) AS at FROM fresh WHERE mac <> '' GROUP BY mac) AS of GROUP BY 1");
        doing.commit();
        count_refused(why, set_aside);
    } catch (const postgres_error &error) {
        if (!error.of_value()) throw;
        if (count == 1) {
            copy_rows alone;
            refuse(alone, rows_[first], escaped(error.what()));
            db_->copy(copy_refused, alone);
            return count_refused(escaped(error.what()), 1);
        }
        insert(first, count / 2);
        insert(first + count / 2, count - count / 2);
    }
}

void postgres_store::refuse(copy_rows &to, const row &what, const std::string &why) {
    std::string ap = what.key.ap, boot = what.key.boot;
    shorten(ap);
    shorten(boot);
    const std::string seq = std::to_string(static_cast<std::uint64_t>(what.key.seq));
    to.row(5).add(why).add(ap).add(boot).add(seq).add(what.image);
}

void postgres_store::count_refused(const std::string &why, std::uint64_t count) {
    if (count > 0 && refused_ == 0)
        say("a report was refused: " + why +
            "; it is in the table `refused`, as are others, which the end counts");
    refused_ += count;
}

void postgres_store::settle() {
    const auto since = clock::now();
    const auto most = std::min<std::chrono::milliseconds>(std::chrono::seconds(chosen_.commit), most_waiting);
    if (since < next_) return;
    if ((rows_.empty() || since - first_ >= most) && !write(0ms)) {
        // There is room for more messages, and a stop would be noticed.
        delay_ = std::clamp<std::chrono::milliseconds>(2 * delay_, first_delay, last_delay);
        next_ = clock::now() + delay_;
        return;
    }
    delay_ = 0ms;
    if (since - folded_ < std::min<std::chrono::milliseconds>(std::chrono::seconds(chosen_.commit), 1s))
        return;
    try {
        if (db_) keep_house(false);
    } catch (const postgres_error &error) {
        // New reports need not wait for this: another collector may do it, or we do it the next time.
        if (!failing_) say(std::string(error.what()) + ": tried again");
        failing_ = true;
        db_.reset();
        folded_ = since;
    }
}

// Work that new reports do not wait for: making stays, and pruning.
void postgres_store::keep_house(bool wait) {
    // At the end the clock may end stays, even after catching up.
    while (stays_.fold(*db_, wait && !chosen_.of_files ? now() : time(), horizon(), wait) > 0 && wait) {
    }
    folded_ = clock::now();
    if (chosen_.keep_days == 0 || folded_ - pruned_ < prune_interval || newest_ == 0) return;
    pruned_ = folded_;
    days_.prune(*db_, horizon() / one_day);
    const std::int64_t today = now() / one_day;
    if (!chosen_.of_files) days_.prepare(*db_, {today, today + 1, today + 2}, now());
}

bool postgres_store::finish() {
    const bool good = write(at_the_end) && tried([this] { keep_house(true); }, at_the_end);
    if (!rows_.empty()) say(std::to_string(rows_.size()) + " reports could not be stored");
    if (refused_ > 0) say(std::to_string(refused_) + " reports were refused");
    db_.reset();
    return good;
}
