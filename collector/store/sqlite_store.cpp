#include "collector/store/sqlite_store.h"

#include "collector/report_writer.h"
#include "collector/store/schema.h"
#include "collector/times.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <tuple>

namespace {

constexpr auto prune_interval = std::chrono::seconds(60);
constexpr std::int64_t whole_check_below = 64 << 20; // bytes; larger files are checked where they are read
constexpr std::int64_t megabyte = 1 << 20;

void say(const std::string &text) { std::fprintf(stderr, "wsm-collector: store: %s\n", text.c_str()); }

std::int64_t as_signed(std::uint64_t value) {
    return static_cast<std::int64_t>(std::min<std::uint64_t>(value, INT64_MAX));
}

} // namespace

struct sqlite_store::statements {
    explicit statements(database &db)
        : stay(db, "INSERT OR REPLACE INTO stay VALUES"
                   "(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)"),
          address(
              db,
              "INSERT INTO address VALUES(?,?,?,?) ON CONFLICT(stay, ip) DO UPDATE SET last = excluded.last"),
          event(db,
                "INSERT INTO event(at, kind, stay, ap, radio, from_ap, from_radio) VALUES(?,?,?,?,?,?,?)"),
          sample(db,
                 "INSERT INTO sample(at, stay, signal, up, down, rate_up, rate_down) VALUES(?,?,?,?,?,?,?)"),
          radio(db, "INSERT INTO radio(at, ap, radio, stations, noise, utilization) VALUES(?,?,?,?,?,?)") {}
    statement stay, address, event, sample, radio;
};

sqlite_store::sqlite_store(store_options chosen) : chosen_(std::move(chosen)) {
    try {
        open();
    } catch (const sqlite_error &error) {
        if (!error.damaged()) throw;
        open_anew(error.what());
    }
    for (const stay &one : open_stays()) {
        where_[one.id] = {one.ap, one.radio};
        ++population_[{one.ap, one.radio}];
    }
}

sqlite_store::~sqlite_store() = default;

void sqlite_store::open() {
    made_.reset();
    db_ = std::make_unique<database>(chosen_.path, database::access::write);
    db_->run("PRAGMA auto_vacuum = INCREMENTAL"); // must be set before there is a table
    db_->run("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA cache_size = -2048;"
             "PRAGMA wal_autocheckpoint = 500; PRAGMA journal_size_limit = 4194304;");
    const std::int64_t pages = db_->number("PRAGMA page_count");
    if (pages * db_->number("PRAGMA page_size") <= whole_check_below)
        if (const std::string found = db_->text("PRAGMA quick_check(1)"); found != "ok")
            throw sqlite_error(SQLITE_CORRUPT, found);
    constexpr auto newest = static_cast<std::int64_t>(std::size(schema_versions));
    const std::int64_t version = db_->number("PRAGMA user_version");
    if (version > newest)
        throw sqlite_error(SQLITE_ERROR, chosen_.path + " was written by a newer version of this program");
    for (std::int64_t next = version; next < newest; ++next) {
        const std::string step = std::string("BEGIN IMMEDIATE;") + schema_versions[next] +
                                 "PRAGMA user_version = " + std::to_string(next + 1) + "; COMMIT;";
        try {
            db_->run(step.c_str());
        } catch (const sqlite_error &) {
            if (!sqlite3_get_autocommit(db_->raw())) db_->run("ROLLBACK");
            throw;
        }
    }
    made_ = std::make_unique<statements>(*db_);
}

void sqlite_store::open_anew(const std::string &why) {
    made_.reset();
    db_.reset();
    const std::string aside = chosen_.path + ".damaged-" + std::to_string(now() / second);
    say(chosen_.path + " is damaged (" + why + "): set aside as " + aside + ", a new file is begun");
    for (const char *part : {"", "-wal", "-shm"})
        (void)std::rename((chosen_.path + part).c_str(), (aside + part).c_str());
    open();
}

std::vector<stay> sqlite_store::open_stays() {
    std::vector<stay> all;
    statement query(
        *db_, "SELECT id, mac, state, ap, radio, channel, ssid, ifname, association, began, seen, ended,"
              " reason_code, reason, ended_by, roams, returns, reports, signal, signal_least, signal_most,"
              " signal_sum, signal_count, up, down, raw_up, raw_down, rate_up, rate_down, max_rate, version,"
              " repeater FROM stay WHERE state <> 3 ORDER BY id");
    const auto small = [&query](int column) { return static_cast<int>(query.integer(column)); };
    const auto count = [&query](int column) { return static_cast<unsigned>(query.integer(column)); };
    const auto bytes = [&query](int column) { return static_cast<std::uint64_t>(query.integer(column)); };
    while (query.step()) {
        stay one;
        one.id = query.integer(0);
        one.mac = query.text(1);
        one.state = static_cast<presence>(std::clamp(small(2), 0, 2));
        one.ap = query.text(3);
        one.radio = small(4);
        one.channel = small(5);
        one.ssid = query.text(6);
        one.ifname = query.text(7);
        one.association = static_cast<std::int32_t>(query.integer(8));
        one.began = query.integer(9);
        one.seen = query.integer(10);
        one.ended = query.integer(11);
        one.reason_code = small(12);
        one.reason = query.text(13);
        one.ended_by = query.text(14);
        one.roams = count(15);
        one.returns = count(16);
        one.reports = count(17);
        one.signal = {small(18), small(19), small(20), query.integer(21), query.integer(22)};
        one.up = {bytes(23), bytes(25)};
        one.down = {bytes(24), bytes(26)};
        one.rate_up = small(27);
        one.rate_down = small(28);
        one.max_rate = count(29);
        one.version = query.text(30);
        one.repeater = query.integer(31) != 0;
        statement addresses(*db_, "SELECT ip, first, last FROM address WHERE stay = ? ORDER BY last");
        addresses.bind(one.id);
        while (addresses.step())
            one.addresses.push_back({addresses.text(0), addresses.integer(1), addresses.integer(2)});
        all.push_back(std::move(one));
    }
    return all;
}

std::int64_t sqlite_store::next_stay() { return db_->number("SELECT coalesce(max(id), 0) + 1 FROM stay"); }

void sqlite_store::take(const message &one) {
    if (one.in && one.in->ticket != 0) ticket_ = one.in->ticket;
    if (!one.what) return;
    const change &what = *one.what;
    const stay &now_is = what.now;
    clock_ = std::max(clock_, what.at);
    // The number of stations of each radio, for the radios' series.
    const place here{now_is.ap, now_is.radio};
    const auto before = where_.find(now_is.id);
    const bool gone = what.kind == change_kind::left;
    if (before == where_.end() || before->second != here || gone) {
        if (before != where_.end()) {
            if (--population_[before->second] <= 0) population_.erase(before->second);
            where_.erase(before);
        }
        if (!gone) {
            where_[now_is.id] = here;
            ++population_[here];
        }
    }
    if (one.in) {
        const moment gap = chosen_.sample * second;
        moment &last = sampled_[now_is.id];
        if (last == 0 || what.at >= last + gap || what.kind != change_kind::updated) {
            last = what.at;
            samples_.push_back({what.at, now_is.id, now_is.signal.count > 0 ? now_is.signal.last : 0,
                                as_signed(now_is.up.total), as_signed(now_is.down.total), now_is.rate_up,
                                now_is.rate_down});
        }
        air &radio = radios_[here];
        if (what.at >= radio.at + gap) {
            radio.at = what.at;
            const auto people = population_.find(here);
            airs_.push_back({here,
                             {what.at, people == population_.end() ? 0 : people->second, now_is.noise,
                              now_is.utilization}});
        }
    }
    if (what.kind != change_kind::updated)
        events_.push_back(
            {what.kind, what.at, now_is.id, now_is.ap, now_is.radio, what.from_ap, what.from_radio});
    if (gone) sampled_.erase(now_is.id);
    dirty_.insert_or_assign(now_is.id, now_is);
    if (samples_.size() + events_.size() >= std::min<std::size_t>(8192, chosen_.most_pending) && !failing_)
        write();
}

void sqlite_store::settle() {
    if (std::chrono::steady_clock::now() - written_ < std::chrono::seconds(chosen_.commit)) return;
    write();
    prune();
}

bool sqlite_store::finish() {
    const bool good = write();
    if (dropped_ > 0) say(std::to_string(dropped_) + " samples were dropped");
    made_.reset();
    db_.reset();
    return good;
}

// Writes one batch. False: it is kept for later.
bool sqlite_store::write() {
    written_ = std::chrono::steady_clock::now();
    if (dirty_.empty() && samples_.empty() && events_.empty()) {
        tell();
        return true;
    }
    for (int attempt = 0; attempt < 2; ++attempt) {
        try {
            write_batch();
            if (failing_) say("goes on");
            failing_ = false;
            dirty_.clear();
            samples_.clear();
            events_.clear();
            airs_.clear();
            tell();
            return true;
        } catch (const sqlite_error &error) {
            if (db_ && !sqlite3_get_autocommit(db_->raw()))
                sqlite3_exec(db_->raw(), "ROLLBACK", nullptr, nullptr, nullptr);
            try {
                if (error.damaged() && attempt == 0) {
                    open_anew(error.what());
                    continue;
                }
            } catch (const sqlite_error &again) {
                say(again.what());
            }
            if (!failing_) say(std::string(error.what()) + ": kept until it can be written");
            failing_ = true;
            break;
        }
    }
    // The number of rows kept is bounded; only samples and events are dropped, never stays.
    while (samples_.size() + events_.size() + airs_.size() > chosen_.most_pending) {
        if (!samples_.empty())
            samples_.pop_front();
        else if (!airs_.empty())
            airs_.pop_front();
        else
            events_.pop_front();
        ++dropped_;
    }
    return false;
}

void sqlite_store::tell() {
    if (chosen_.committed && ticket_ > told_) chosen_.committed(told_ = ticket_);
}

void sqlite_store::write_batch() {
    if (!made_) open(); // an earlier attempt to open it has failed
    db_->run("BEGIN IMMEDIATE");
    for (const auto &[id, one] : dirty_) write_stay(one);
    for (const event &one : events_) {
        made_->event.bind(one.at)
            .bind(std::string_view(change_name(one.kind)))
            .bind(one.stay)
            .bind(one.ap)
            .bind(std::int64_t{one.radio});
        if (one.kind == change_kind::roamed)
            made_->event.bind(one.from_ap).bind(std::int64_t{one.from_radio});
        else
            made_->event.bind_null().bind_null();
        made_->event.run();
    }
    for (const sample &one : samples_) {
        made_->sample.bind(one.at).bind(one.stay);
        one.signal != 0 ? made_->sample.bind(std::int64_t{one.signal}) : made_->sample.bind_null();
        made_->sample.bind(one.up)
            .bind(one.down)
            .bind(std::int64_t{one.rate_up})
            .bind(std::int64_t{one.rate_down});
        made_->sample.run();
    }
    for (const auto &[where, what] : airs_) {
        const auto &[at, people, noise, utilization] = what;
        made_->radio.bind(at).bind(where.first).bind(std::int64_t{where.second}).bind(std::int64_t{people});
        noise != 0 ? made_->radio.bind(std::int64_t{noise}) : made_->radio.bind_null();
        made_->radio.bind(std::int64_t{utilization});
        made_->radio.run();
    }
    db_->run("COMMIT");
}

void sqlite_store::write_stay(const stay &one) {
    const auto number = [](auto value) { return static_cast<std::int64_t>(value); };
    statement &into = made_->stay;
    into.bind(one.id)
        .bind(one.mac)
        .bind(number(one.state))
        .bind(one.ap)
        .bind(number(one.radio))
        .bind(number(one.channel));
    into.bind(one.ssid).bind(one.ifname).bind(number(one.association)).bind(one.began).bind(one.seen);
    one.ended != 0 ? into.bind(one.ended) : into.bind_null();
    into.bind(number(one.reason_code))
        .bind(one.reason)
        .bind(std::string_view(one.ended_by))
        .bind(number(one.roams));
    into.bind(number(one.returns)).bind(number(one.reports));
    if (one.signal.count > 0)
        into.bind(number(one.signal.last)).bind(number(one.signal.least)).bind(number(one.signal.most));
    else
        into.bind_null().bind_null().bind_null();
    into.bind(one.signal.sum)
        .bind(one.signal.count)
        .bind(as_signed(one.up.total))
        .bind(as_signed(one.down.total));
    into.bind(as_signed(one.up.raw))
        .bind(as_signed(one.down.raw))
        .bind(number(one.rate_up))
        .bind(number(one.rate_down));
    into.bind(number(one.max_rate)).bind(one.version).bind(number(one.repeater));
    into.run();
    for (const stay_address &address : one.addresses) {
        made_->address.bind(one.id).bind(address.ip).bind(address.first).bind(address.last);
        made_->address.run();
    }
}

// Oldest first, in small steps.
void sqlite_store::prune() {
    if (failing_ || std::chrono::steady_clock::now() - pruned_ < prune_interval) return;
    try {
        bool more = true;
        for (int rounds = 0; more && rounds < 50; ++rounds) more = prune_once();
        db_->run("PRAGMA incremental_vacuum");
        if (!more) pruned_ = std::chrono::steady_clock::now();
    } catch (const sqlite_error &error) {
        say(std::string("cannot make room: ") + error.what());
        pruned_ = std::chrono::steady_clock::now();
    }
}

bool sqlite_store::prune_once() {
    const std::int64_t used = db_->number("PRAGMA page_count") - db_->number("PRAGMA freelist_count");
    const bool large =
        chosen_.most_mb > 0 && used * db_->number("PRAGMA page_size") > chosen_.most_mb * megabyte;
    const moment oldest =
        chosen_.keep_days > 0 && clock_ > 0 ? clock_ - chosen_.keep_days * 86400 * second : 0;
    const std::string old = std::to_string(oldest);
    // If the file is too large, the oldest tenth is deleted.
    const auto some = [this](const char *table) {
        return std::to_string(std::clamp<std::int64_t>(
            db_->number(std::string("SELECT (max(id) - min(id)) / 10 FROM ") + table), 100, 20000));
    };
    std::int64_t removed = 0;
    const auto remove = [this, &removed](const std::string &sql) {
        statement(*db_, sql).run();
        removed += sqlite3_changes(db_->raw());
    };
    db_->run("BEGIN IMMEDIATE");
    try {
        for (const char *table : {"sample", "event", "radio"}) {
            const std::string oldest_rows = std::string("DELETE FROM ") + table +
                                            " WHERE id IN (SELECT id FROM " + table + " ORDER BY id LIMIT " +
                                            some(table) + ")";
            remove(oldest_rows + (large ? std::string() : " AND at < " + old));
        }
        const std::string over = "FROM stay WHERE state = 3 " +
                                 (large ? std::string() : "AND ended < " + old) + " ORDER BY ended LIMIT " +
                                 (large ? some("stay") : "1000");
        remove("DELETE FROM address WHERE stay IN (SELECT id " + over + ")");
        remove("DELETE FROM stay WHERE id IN (SELECT id " + over + ")");
        db_->run("COMMIT");
    } catch (const sqlite_error &) {
        if (!sqlite3_get_autocommit(db_->raw())) db_->run("ROLLBACK");
        throw;
    }
    return removed > 0;
}
