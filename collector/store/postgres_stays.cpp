#include "collector/store/postgres_stays.h"

#include "collector/store/packed_image.h"
#include "collector/store/postgres_days.h"
#include "collector/store/postgres_schema.h"
#include "collector/store/postgres_writing.h"
#include "collector/times.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace {

// Limits of one transaction, and so of the memory that it needs.
constexpr std::int64_t most_batches = 1000; // of some dozen stations each
constexpr std::int64_t most_due = 5000;     // stations

constexpr const char *due =
    "(state = 0 AND watch <= $1 AND heard <= $1) OR (state IN (1, 2) AND watch <= $2 AND heard <= $2)";

parameters limits(const session_rules &rules, moment clock) {
    return parameters().add(clock - rules.silence).add(clock - rules.grace);
}

std::vector<std::string> macs_of(const auto &stations) {
    std::vector<std::string> macs;
    for (const auto &[mac, of] : stations) macs.push_back(mac);
    return macs;
}

// The columns of `stay` in the order of their names here; the numbers below are theirs.
constexpr const char *columns = "s.id, s.mac, s.state, s.ap, s.radio, s.channel, s.ssid, s.ifname, "
                                "s.association, s.began, s.seen, s.ended,"
                                " s.reason_code, s.reason, s.ended_by, s.roams, s.returns, s.reports, "
                                "s.signal, s.signal_least, s.signal_most,"
                                " s.signal_sum, s.signal_count, s.up, s.down, s.raw_up, s.raw_down, "
                                "s.rate_up, s.rate_down, s.max_rate, s.version,"
                                " s.repeater, s.noise, s.utilization, s.opened, s.opened_ap, s.opened_boot, "
                                "s.opened_seq, s.heard, s.earliest,"
                                " s.sampled, s.folded";

kept_stay stay_of(const rows &from, int row) {
    int column = 0;
    const auto big = [&] { return from.number(row, column++); };
    const auto small = [&] { return static_cast<int>(from.number(row, column++)); };
    const auto count = [&] { return static_cast<unsigned>(from.number(row, column++)); };
    const auto bytes = [&] { return std::bit_cast<std::uint64_t>(from.number(row, column++)); };
    const auto text = [&] { return from.text(row, column++); };
    kept_stay one;
    stay &is = one.is;
    is.id = big();
    is.mac = text();
    is.state = static_cast<presence>(std::clamp(small(), 0, 3));
    is.ap = text();
    is.radio = small();
    is.channel = small();
    is.ssid = text();
    is.ifname = text();
    is.association = small();
    is.began = big();
    is.seen = big();
    is.ended = big();
    is.reason_code = small();
    is.reason = text();
    is.ended_by = text();
    is.roams = count();
    is.returns = count();
    is.reports = count();
    is.signal.last = small();
    is.signal.least = small();
    is.signal.most = small();
    is.signal.sum = big();
    is.signal.count = big();
    is.up.total = bytes();
    is.down.total = bytes();
    is.up.raw = bytes();
    is.down.raw = bytes();
    is.rate_up = small();
    is.rate_down = small();
    is.max_rate = count();
    is.version = text();
    is.repeater = small() != 0;
    is.noise = small();
    is.utilization = small();
    one.opened.at = big();
    one.opened.ap = text();
    one.opened.boot = text();
    one.opened.seq = big();
    one.heard = big();
    one.earliest = small();
    one.sampled = big();
    one.folded = big();
    return one;
}

// For each of these stations its last stay, or its last that was opened before a time.
rows last_stays(postgres &db, const std::vector<std::string> &macs, const std::vector<std::int64_t> &before) {
    static const std::string ask =
        std::string("SELECT ") + columns +
        " FROM unnest($1::text[], $2::bigint[]) AS of(mac, before), LATERAL (SELECT * FROM stay"
        " WHERE mac = of.mac COLLATE \"C\" AND opened < of.before ORDER BY opened DESC, opened_ap DESC,"
        " opened_boot DESC, opened_seq DESC LIMIT 1) AS s";
    return db.run_binary(ask.c_str(), parameters().add(macs).add(before));
}

} // namespace

std::size_t postgres_stays::fold(postgres &db, moment clock, moment horizon, bool wait) {
    transaction doing(db);
    const std::vector<std::int64_t> shards = lock_shards(db, clock, wait);
    if (shards.empty()) return 0;
    stations all = waiting(db, shards, clock);
    if (all.empty()) return 0;
    read_last(db, all);
    read_anew(db, all, horizon);
    read_reports(db, all);
    postgres_writing writing;
    for (auto &[mac, of] : all) {
        station_fold folded(rules_, gap_);
        if (!of.anew && !of.last.empty()) folded.resume(std::move(of.last.front()));
        for (const auto &[key, report] : of.reports) folded.take(key, report);
        folded.pass(clock);
        writing.add(std::move(folded), std::move(of.ids));
    }
    writing.write(db);
    doing.commit();
    return all.size();
}

std::vector<std::int64_t> postgres_stays::lock_shards(postgres &db, moment clock, bool wait) const {
    static const std::string some =
        std::string("SELECT DISTINCT shard FROM pending UNION SELECT DISTINCT station_shard(mac)"
                    " FROM stay WHERE ") +
        due + " ORDER BY 1";
    const rows found = db.run(some.c_str(), limits(rules_, clock));
    std::vector<std::int64_t> shards, ours;
    for (int i = 0; i < found.count(); ++i) shards.push_back(found.number(i, 0));
    if (shards.empty()) return ours;
    // In the order of the array, which is the same in all collectors.
    const parameters keys = parameters().add(postgres_lock).add(lock_shard).add(shards);
    const rows got = db.run(
        wait ? "SELECT s, pg_advisory_xact_lock($1::int, $2::int + s) IS NOT NULL FROM unnest($3::int[]) AS s"
             : "SELECT s, pg_try_advisory_xact_lock($1::int, $2::int + s) FROM unnest($3::int[]) AS s",
        keys);
    for (int i = 0; i < got.count(); ++i)
        if (got.bytes(i, 1) == "t") ours.push_back(got.number(i, 0));
    return ours;
}

postgres_stays::stations postgres_stays::waiting(postgres &db, const std::vector<std::int64_t> &shards,
                                                 moment clock) const {
    stations all;
    const rows fresh = db.run(
        "WITH taken AS (DELETE FROM pending WHERE id IN (SELECT id FROM pending WHERE shard = ANY($1::int[])"
        " ORDER BY id LIMIT $2) RETURNING macs, ats)"
        " SELECT mac, min(at) FROM taken, unnest(macs, ats) AS of(mac, at) GROUP BY mac",
        parameters().add(shards).add(most_batches));
    for (int i = 0; i < fresh.count(); ++i) all[fresh.text(i, 0)].since = fresh.number(i, 1);
    static const std::string over =
        std::string("SELECT mac FROM stay WHERE station_shard(mac) = ANY($3::int[]) AND (") + due +
        ") LIMIT $4";
    const rows quiet = db.run(over.c_str(), limits(rules_, clock).add(shards).add(most_due));
    for (int i = 0; i < quiet.count(); ++i) all[quiet.text(i, 0)];
    return all;
}

void postgres_stays::read_last(postgres &db, stations &of) {
    const std::vector<std::string> macs = macs_of(of);
    const rows found = last_stays(db, macs, std::vector<std::int64_t>(macs.size(), INT64_MAX));
    std::map<std::int64_t, stay *> going_on;
    std::vector<std::int64_t> ids;
    for (int i = 0; i < found.count(); ++i) {
        station &known = of[found.text(i, 1)];
        known.last.push_back(stay_of(found, i));
        stay &is = known.last.front().is;
        if (is.state == presence::gone) continue;
        going_on[is.id] = &is;
        ids.push_back(is.id);
    }
    const rows addresses = db.run(
        "SELECT stay, ip, first, last FROM address WHERE stay = ANY($1::bigint[]) ORDER BY stay, place",
        parameters().add(ids));
    for (int i = 0; i < addresses.count(); ++i)
        going_on[addresses.number(i, 0)]->addresses.push_back(
            {addresses.text(i, 1), addresses.number(i, 2), addresses.number(i, 3)});
}

// For stations with a report older than those their stays were made of: finds the report from which stays must be made again,
// and these stays.
void postgres_stays::read_anew(postgres &db, stations &of, moment horizon) {
    std::vector<std::string> macs;
    std::vector<std::int64_t> before;
    for (auto &[mac, one] : of) {
        one.from.at = one.last.empty() ? one.since : one.last.front().folded + 1;
        if (one.since == 0 || one.last.empty() || one.since > one.last.front().folded) continue;
        one.anew = true;
        one.from.at = one.since; // used when no stay was opened before
        macs.push_back(mac);
        before.push_back(one.since);
    }
    if (macs.empty()) return;
    const rows found = last_stays(db, macs, before);
    for (int i = 0; i < found.count(); ++i) {
        station &one = of[found.text(i, 1)];
        const kept_stay begin = stay_of(found, i);
        one.from = begin.opened;
        if (begin.opened.at >= horizon) continue;
        // Some of the reports that this stay was made of have been deleted.
        one.anew = false;
        one.from = {one.last.front().folded + 1, {}, {}, 0};
    }
    std::vector<std::int64_t> from;
    for (const std::string &mac : macs) from.push_back(of[mac].anew ? of[mac].from.at : INT64_MAX);
    const rows old = db.run("SELECT s.mac, s.id, s.opened, s.opened_ap, s.opened_boot, s.opened_seq"
                            " FROM unnest($1::text[], $2::bigint[]) AS of(mac, since)"
                            " JOIN stay s ON s.mac = of.mac COLLATE \"C\" AND s.opened >= of.since",
                            parameters().add(macs).add(from));
    for (int i = 0; i < old.count(); ++i) {
        station &one = of[old.text(i, 0)];
        report_key opened{old.number(i, 2), old.text(i, 3), old.text(i, 4), old.number(i, 5)};
        if (opened >= one.from) one.ids.emplace_back(std::move(opened), old.number(i, 1));
    }
}

void postgres_stays::read_reports(postgres &db, stations &of) {
    std::vector<std::string> macs;
    std::vector<std::int64_t> since;
    for (const auto &[mac, one] : of) {
        if (one.since == 0) continue;
        macs.push_back(mac);
        since.push_back(one.from.at);
    }
    if (macs.empty()) return;
    const moment first = std::max<moment>(*std::min_element(since.begin(), since.end()), 0);
    // The day is that of the time or, where a clock was wrong, a later one or one before clocks were set: other days' parts need
    // not be read.
    const rows found =
        db.run_binary("SELECT r.mac, r.at, r.ap, r.boot, r.seq, r.image FROM unnest($1::text[], "
                      "$2::bigint[]) AS of(mac, since)"
                      " JOIN report r ON r.mac = of.mac COLLATE \"C\" AND r.at >= of.since"
                      " WHERE (r.day >= date '1970-01-01' + $3::int OR r.day < date '1970-01-01' + $4::int) "
                      "ORDER BY r.mac, r.at, r.ap, r.boot, r.seq",
                      parameters().add(macs).add(since).add(first / one_day).add(first_sound_time / one_day));
    for (int i = 0; i < found.count(); ++i) {
        station &one = of[found.text(i, 0)];
        report_key key{found.number(i, 1), found.text(i, 2), found.text(i, 3), found.number(i, 4)};
        const auto image = unpack_image(found.bytes(i, 5));
        if (!image || key < one.from) continue;
        auto &[own, report] = one.reports.emplace_back(std::move(key), station_report{});
        station_report_decode(std::span<const std::uint8_t, station_report_size>(
                                  reinterpret_cast<const std::uint8_t *>(image->data()), station_report_size),
                              report);
    }
}
