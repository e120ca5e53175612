#include "collector/store/postgres_reader.h"

namespace {

enum column_type : Oid { type_int8 = 20, type_int2 = 21, type_int4 = 23, type_float8 = 701 };

cell cell_of(const rows &from, int row, int column) {
    if (from.null(row, column)) return {};
    switch (from.type(column)) {
    case type_int2:
    case type_int4:
    case type_int8: return from.number(row, column);
    case type_float8: return from.real(row, column);
    default: return from.text(row, column);
    }
}

// In every query: $1 since, $2 until, $3 mac or "", $4 access point or "", $5 limit, $6 step in microseconds. Sums have no
// bound, so those of hostile figures are limited to the range of bigint.
// clang-format off
const char *sql_of(store_question what) {
    switch (what) {
    case store_question::sessions: return R"(
        SELECT s.id, s.mac, CASE s.state WHEN 0 THEN 'here' WHEN 1 THEN 'leaving' WHEN 2 THEN 'moving' ELSE 'gone' END AS state,
            s.ap, s.radio, s.ssid,
            (SELECT ip FROM address WHERE stay = s.id ORDER BY last DESC, place DESC LIMIT 1) AS ip,
            s.began, CASE s.state WHEN 3 THEN s.ended END AS ended,
            (CASE s.state WHEN 3 THEN s.ended ELSE s.seen END - s.began) / 1000000 AS seconds, s.roams, s.returns,
            s.signal_least, CASE WHEN s.signal_count > 0 THEN s.signal_sum::float8 / s.signal_count END AS signal_mean,
            s.signal_most, s.up, s.down, s.reason, s.reason_code, s.ended_by
        FROM stay s
        WHERE s.began <= $2::bigint AND (s.state <> 3 OR s.ended >= $1::bigint)
            AND ($3::text = '' OR s.mac = $3) AND ($4::text = '' OR s.ap = $4)
        ORDER BY s.began DESC, s.id DESC LIMIT $5::bigint)";
    case store_question::departures: return R"(
        SELECT s.ap, s.reason, s.reason_code, s.ended_by, count(*) AS departures, count(DISTINCT s.mac) AS stations,
            sum(s.returns)::bigint AS returns
        FROM stay s
        WHERE s.state = 3 AND s.ended BETWEEN $1::bigint AND $2::bigint
            AND ($3::text = '' OR s.mac = $3) AND ($4::text = '' OR s.ap = $4)
        GROUP BY s.ap, s.reason_code, s.reason, s.ended_by
        ORDER BY departures DESC, s.reason COLLATE "C" LIMIT $5::bigint)";
    case store_question::top: return R"(
        SELECT s.mac, count(*) AS sessions, least(sum(s.up), 9223372036854775807)::bigint AS up,
            least(sum(s.down), 9223372036854775807)::bigint AS down,
            sum((CASE s.state WHEN 3 THEN s.ended ELSE s.seen END - s.began) / 1000000)::bigint AS seconds,
            sum(s.roams)::bigint AS roams, sum(s.returns)::bigint AS returns
        FROM stay s
        WHERE s.began <= $2::bigint AND (s.state <> 3 OR s.ended >= $1::bigint)
            AND ($3::text = '' OR s.mac = $3) AND ($4::text = '' OR s.ap = $4)
        GROUP BY s.mac ORDER BY sum(s.up) + sum(s.down) DESC, s.mac LIMIT $5::bigint)";
    case store_question::flapping: return R"(
        WITH own AS (
            SELECT s.mac, s.returns, (s.state = 3 AND s.ended - s.began < $6::bigint)::integer AS brief
            FROM stay s
            WHERE s.began <= $2::bigint AND (s.state <> 3 OR s.ended >= $1::bigint)
                AND ($3::text = '' OR s.mac = $3) AND ($4::text = '' OR s.ap = $4))
        SELECT mac, count(*) AS sessions, sum(brief) AS brief, sum(returns)::bigint AS returns
        FROM own GROUP BY mac HAVING sum(brief) + sum(returns) > 2
        ORDER BY sum(brief) + sum(returns) DESC, mac LIMIT $5::bigint)";
    case store_question::events: return R"(
        SELECT e.id, e.at, e.kind, s.mac, e.stay, e.ap, e.radio, e.from_ap, e.from_radio
        FROM event e JOIN stay s ON s.id = e.stay
        WHERE e.at BETWEEN $1::bigint AND $2::bigint AND ($3::text = '' OR s.mac = $3) AND ($4::text = '' OR e.ap = $4)
        ORDER BY e.at DESC, e.id DESC LIMIT $5::bigint)";
    case store_question::addresses: return R"(
        SELECT s.mac, a.ip, min(a.first) AS first, max(a.last) AS last
        FROM address a JOIN stay s ON s.id = a.stay
        WHERE a.last >= $1::bigint AND a.first <= $2::bigint
            AND ($3::text = '' OR s.mac = $3) AND ($4::text = '' OR s.ap = $4)
        GROUP BY s.mac, a.ip ORDER BY last DESC LIMIT $5::bigint)";
    case store_question::series: return R"(
        WITH own AS (
            SELECT p.at, p.signal, p.rate_up, p.rate_down, p.up - lag(p.up, 1, 0::bigint) OVER of_stay AS up,
                p.down - lag(p.down, 1, 0::bigint) OVER of_stay AS down
            FROM sample p JOIN stay s ON s.id = p.stay
            WHERE s.mac = $3::text AND ($4::text = '' OR s.ap = $4) AND s.began <= $2::bigint
                AND (s.state <> 3 OR s.ended >= $1::bigint)
            WINDOW of_stay AS (PARTITION BY p.stay ORDER BY p.at, p.up, p.down))
        SELECT at / $6::bigint * $6::bigint AS at, avg(signal)::float8 AS signal, avg(rate_up)::float8 AS rate_up,
            avg(rate_down)::float8 AS rate_down, least(sum(up), 9223372036854775807)::bigint AS up,
            least(sum(down), 9223372036854775807)::bigint AS down
        FROM own WHERE at BETWEEN $1::bigint AND $2::bigint GROUP BY 1 ORDER BY 1 LIMIT $5::bigint)";
    // Every station is reported once a minute, so five minutes include all stations of a radio.
    case store_question::radios: return R"(
        WITH own AS (
            SELECT at / 300000000 * 300000000 AS at, ap, radio, count(DISTINCT stay) AS stations, avg(noise) AS noise,
                avg(utilization) AS utilization
            FROM sample
            WHERE at BETWEEN $1::bigint AND $2::bigint AND $3::text = '' AND ($4::text = '' OR ap = $4)
            GROUP BY 1, 2, 3)
        SELECT at / $6::bigint * $6::bigint AS at, ap, radio, max(stations) AS stations, avg(noise)::float8 AS noise,
            avg(utilization)::float8 AS utilization
        FROM own GROUP BY 1, 2, 3 ORDER BY at, ap, radio LIMIT $5::bigint)";
    }
    return "";
}
// clang-format on

} // namespace

postgres_reader::postgres_reader(const std::string &url, const station_names &names)
    : db_(url), names_(names) {
    db_.script("SET default_transaction_read_only = on; SET statement_timeout = '30s'; SET jit = off");
}

table postgres_reader::ask(store_question what, const store_range &range) {
    parameters values;
    values.add(range.since).add(range.end()).add(range.mac).add(range.ap).add(range.limit);
    if (takes_step(what)) values.add(range.step * second);
    const rows found = db_.run(sql_of(what), values);
    named_table answer(names_);
    for (int i = 0; i < found.columns(); ++i) answer.column(found.name(i));
    for (int row = 0; row < found.count(); ++row) {
        answer.row();
        for (int i = 0; i < found.columns(); ++i) answer.add(cell_of(found, row, i));
    }
    return answer.made;
}
