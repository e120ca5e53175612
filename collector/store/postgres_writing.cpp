#include "collector/store/postgres_writing.h"

#include <algorithm>
#include <bit>

namespace {

constexpr moment watch_step = 300 * second; // of the index that finds silent stations

std::int64_t signed_bits(std::uint64_t value) { return std::bit_cast<std::int64_t>(value); }

void add_stay(copy_rows &to, const kept_stay &one) {
    const stay &is = one.is;
    to.row(43).add(is.id).add(is.mac).add(static_cast<std::int32_t>(is.state)).add(is.ap);
    to.add(std::int32_t{is.radio}).add(std::int32_t{is.channel}).add(is.ssid).add(is.ifname);
    to.add(is.association).add(is.began).add(is.seen);
    is.ended != 0 ? to.add(is.ended) : to.null();
    to.add(std::int32_t{is.reason_code}).add(is.reason).add(is.ended_by);
    to.add(std::int64_t{is.roams}).add(std::int64_t{is.returns}).add(std::int64_t{is.reports});
    if (is.signal.count > 0)
        to.add(std::int32_t{is.signal.last})
            .add(std::int32_t{is.signal.least})
            .add(std::int32_t{is.signal.most});
    else
        to.null().null().null();
    to.add(is.signal.sum).add(is.signal.count);
    to.add(signed_bits(is.up.total)).add(signed_bits(is.down.total));
    to.add(signed_bits(is.up.raw)).add(signed_bits(is.down.raw));
    to.add(std::int32_t{is.rate_up}).add(std::int32_t{is.rate_down}).add(std::int64_t{is.max_rate});
    to.add(is.version)
        .add(std::int32_t{is.repeater})
        .add(std::int32_t{is.noise})
        .add(std::int32_t{is.utilization});
    to.add(one.opened.at).add(one.opened.ap).add(one.opened.boot).add(one.opened.seq);
    to.add(one.heard).add(one.earliest).add(one.sampled).add(one.folded);
    to.add(is.state == presence::here ? one.heard / watch_step * watch_step : one.heard);
}

void add_event(copy_rows &to, const change &what, std::int64_t stay) {
    to.row(7)
        .add(what.at)
        .add(change_name(what.kind))
        .add(stay)
        .add(what.now.ap)
        .add(std::int32_t{what.now.radio});
    if (what.kind == change_kind::roamed)
        to.add(what.from_ap).add(std::int32_t{what.from_radio});
    else
        to.null().null();
}

void add_sample(copy_rows &to, const stay &now, moment at, std::int64_t stay) {
    to.row(11).add(at).add(stay).add(now.ap).add(std::int32_t{now.radio});
    now.signal.count > 0 ? to.add(std::int32_t{now.signal.last}) : to.null();
    to.add(signed_bits(now.up.total)).add(signed_bits(now.down.total));
    to.add(std::int32_t{now.rate_up}).add(std::int32_t{now.rate_down});
    now.noise != 0 ? to.add(std::int32_t{now.noise}) : to.null();
    to.add(std::int32_t{now.utilization});
}

} // namespace

void postgres_writing::add(station_fold folded, std::vector<std::pair<report_key, std::int64_t>> replaced) {
    for (const auto &[opened, id] : replaced) {
        replaced_.push_back(id);
        for (kept_stay &one : folded.stays)
            if (one.opened == opened) one.is.id = id;
    }
    all_.push_back(std::move(folded));
}

void postgres_writing::number_new_ones(postgres &db) {
    std::vector<kept_stay *> without;
    for (station_fold &of : all_)
        for (kept_stay &one : of.stays)
            if (one.is.id == 0) without.push_back(&one);
    if (without.empty()) return;
    std::sort(without.begin(), without.end(),
              [](const kept_stay *one, const kept_stay *other) { return one->opened < other->opened; });
    const rows ids = db.run("SELECT nextval('stay_id') FROM generate_series(1, $1)",
                            parameters().add(static_cast<std::int64_t>(without.size())));
    for (std::size_t i = 0; i < without.size(); ++i) without[i]->is.id = ids.number(static_cast<int>(i), 0);
}

void postgres_writing::write(postgres &db) {
    if (!replaced_.empty()) {
        const parameters gone = parameters().add(replaced_);
        for (const char *sql : {"DELETE FROM stay WHERE id = ANY($1::bigint[])",
                                "DELETE FROM event WHERE stay = ANY($1::bigint[])",
                                "DELETE FROM address WHERE stay = ANY($1::bigint[])",
                                "DELETE FROM sample WHERE stay = ANY($1::bigint[])"})
            db.run(sql, gone);
    }
    number_new_ones(db);
    copy_rows stays, addresses, events, samples;
    std::vector<std::int64_t> addressed;
    for (const station_fold &of : all_) {
        for (const kept_stay &one : of.stays) {
            if (!one.changed) continue;
            add_stay(stays, one);
            if (one.is.addresses.empty()) continue;
            addressed.push_back(one.is.id);
            std::int32_t place = 0;
            for (const stay_address &address : one.is.addresses)
                addresses.row(5)
                    .add(one.is.id)
                    .add(address.ip)
                    .add(address.first)
                    .add(address.last)
                    .add(place++);
        }
        for (const station_fold::event &one : of.events) add_event(events, one.what, of.stays[one.of].is.id);
        for (const station_fold::sample &one : of.samples)
            add_sample(samples, one.now, one.at, of.stays[one.of].is.id);
    }
    if (!stays.empty()) {
        db.copy("COPY folded FROM STDIN (FORMAT binary)", stays);
        db.script(
            "INSERT INTO stay SELECT * FROM folded ON CONFLICT (id) DO UPDATE SET"
            " state = excluded.state, ap = excluded.ap, radio = excluded.radio, channel = excluded.channel,"
            " ssid = excluded.ssid, ifname = excluded.ifname, association = excluded.association,"
            " began = excluded.began, seen = excluded.seen, ended = excluded.ended,"
            " reason_code = excluded.reason_code, reason = excluded.reason, ended_by = excluded.ended_by,"
            " roams = excluded.roams, returns = excluded.returns, reports = excluded.reports,"
            " signal = excluded.signal, signal_least = excluded.signal_least, signal_most = "
            "excluded.signal_most,"
            " signal_sum = excluded.signal_sum, signal_count = excluded.signal_count, up = excluded.up,"
            " down = excluded.down, raw_up = excluded.raw_up, raw_down = excluded.raw_down,"
            " rate_up = excluded.rate_up, rate_down = excluded.rate_down, max_rate = excluded.max_rate,"
            " version = excluded.version, repeater = excluded.repeater, noise = excluded.noise,"
            " utilization = excluded.utilization, heard = excluded.heard, earliest = excluded.earliest,"
            " sampled = excluded.sampled, folded = excluded.folded, watch = excluded.watch");
    }
    if (!addressed.empty()) {
        db.run("DELETE FROM address WHERE stay = ANY($1::bigint[])", parameters().add(addressed));
        db.copy("COPY address FROM STDIN (FORMAT binary)", addresses);
    }
    db.copy("COPY event(at, kind, stay, ap, radio, from_ap, from_radio) FROM STDIN (FORMAT binary)", events);
    db.copy("COPY sample FROM STDIN (FORMAT binary)", samples);
}
