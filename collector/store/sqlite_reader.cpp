#include "collector/store/sqlite_reader.h"

namespace {

// In every query: ?1 since, ?2 until, ?3 mac or "", ?4 access point or "", ?5 limit, ?6 step in microseconds.
constexpr const char *overlapping = " s.began <= ?2 AND (s.ended IS NULL OR s.state <> 3 OR s.ended >= ?1)"
                                    " AND (?3 = '' OR s.mac = ?3) AND (?4 = '' OR s.ap = ?4) ";
constexpr const char *state_name =
    "CASE s.state WHEN 0 THEN 'here' WHEN 1 THEN 'leaving' WHEN 2 THEN 'moving' ELSE 'gone' END";

cell cell_of(statement &query, int column) {
    switch (query.type(column)) {
    case SQLITE_NULL: return {};
    case SQLITE_INTEGER: return query.integer(column);
    case SQLITE_FLOAT: return query.real(column);
    default: return query.text(column);
    }
}

std::string sql_of(store_question what) {
    switch (what) {
    case store_question::sessions:
        return std::string("SELECT s.id, s.mac, ") + state_name +
               " AS state, s.ap, s.radio, s.ssid,"
               " (SELECT ip FROM address WHERE stay = s.id ORDER BY last DESC LIMIT 1) AS ip, s.began,"
               " CASE s.state WHEN 3 THEN s.ended END AS ended,"
               " (CASE s.state WHEN 3 THEN s.ended ELSE s.seen END - s.began) / 1000000 AS seconds, "
               "s.roams, s.returns,"
               " s.signal_least, CASE WHEN s.signal_count > 0 THEN s.signal_sum * 1.0 / s.signal_count "
               "END AS signal_mean,"
               " s.signal_most, s.up, s.down, s.reason, s.reason_code, s.ended_by FROM stay s WHERE" +
               overlapping + "ORDER BY s.began DESC, s.id DESC LIMIT ?5";
    case store_question::departures:
        return "SELECT s.ap, s.reason, s.reason_code, s.ended_by, count(*) AS departures, count(DISTINCT "
               "s.mac) AS "
               "stations,"
               " sum(s.returns) AS returns FROM stay s WHERE s.state = 3 AND s.ended BETWEEN ?1 AND ?2"
               " AND (?3 = '' OR s.mac = ?3) AND (?4 = '' OR s.ap = ?4)"
               " GROUP BY s.ap, s.reason_code, s.reason, s.ended_by ORDER BY departures DESC, s.reason LIMIT "
               "?5";
    case store_question::top:
        return std::string(
                   "SELECT s.mac, count(*) AS sessions, sum(s.up) AS up, sum(s.down) AS down,"
                   " sum((CASE s.state WHEN 3 THEN s.ended ELSE s.seen END - s.began) / 1000000) AS seconds,"
                   " sum(s.roams) AS roams, sum(s.returns) AS returns FROM stay s WHERE") +
               overlapping + "GROUP BY s.mac ORDER BY sum(s.up) + sum(s.down) DESC, s.mac LIMIT ?5";
    case store_question::flapping:
        return "WITH own AS (SELECT s.mac, s.returns, s.state = 3 AND s.ended - s.began < ?6 AS brief FROM "
               "stay s WHERE" +
               std::string(overlapping) +
               ") SELECT mac, count(*) AS sessions, sum(brief) AS brief, sum(returns) AS returns FROM own"
               " GROUP BY mac HAVING sum(brief) + sum(returns) > 2"
               " ORDER BY sum(brief) + sum(returns) DESC, mac LIMIT ?5";
    case store_question::events:
        return "SELECT e.id, e.at, e.kind, s.mac, e.stay, e.ap, e.radio, e.from_ap, e.from_radio FROM event e"
               " JOIN stay s ON s.id = e.stay WHERE e.at BETWEEN ?1 AND ?2 AND (?3 = '' OR s.mac = ?3)"
               " AND (?4 = '' OR e.ap = ?4) ORDER BY e.id DESC LIMIT ?5";
    case store_question::addresses:
        return "SELECT s.mac, a.ip, min(a.first) AS first, max(a.last) AS last FROM address a JOIN stay s ON "
               "s.id = a.stay"
               " WHERE a.last >= ?1 AND a.first <= ?2 AND (?3 = '' OR s.mac = ?3) AND (?4 = '' OR s.ap = ?4)"
               " GROUP BY s.mac, a.ip ORDER BY last DESC LIMIT ?5";
    case store_question::series:
        return "WITH own AS (SELECT p.at, p.signal, p.rate_up, p.rate_down,"
               " p.up - lag(p.up, 1, 0) OVER of_stay AS up, p.down - lag(p.down, 1, 0) OVER of_stay AS down"
               " FROM sample p JOIN stay s ON s.id = p.stay WHERE s.mac = ?3 AND (?4 = '' OR s.ap = ?4)"
               " AND s.began <= ?2 AND (s.ended IS NULL OR s.ended >= ?1)"
               " WINDOW of_stay AS (PARTITION BY p.stay ORDER BY p.id))"
               " SELECT at / ?6 * ?6 AS at, avg(signal) AS signal, avg(rate_up) AS rate_up, avg(rate_down) "
               "AS rate_down,"
               " sum(up) AS up, sum(down) AS down FROM own WHERE at BETWEEN ?1 AND ?2 GROUP BY 1 ORDER BY 1 "
               "LIMIT ?5";
    case store_question::radios:
        return "SELECT at / ?6 * ?6 AS at, ap, radio, max(stations) AS stations, avg(noise) AS noise,"
               " avg(utilization) AS utilization FROM radio WHERE at BETWEEN ?1 AND ?2 AND ?3 = ''"
               " AND (?4 = '' OR ap = ?4) GROUP BY 1, ap, radio ORDER BY 1, ap, radio LIMIT ?5";
    }
    return {};
}

} // namespace

sqlite_reader::sqlite_reader(const std::string &path, const station_names &names)
    : db_(path, database::access::read), names_(names) {
    db_.run("PRAGMA cache_size = -1024; PRAGMA query_only = 1");
}

table sqlite_reader::ask(store_question what, const store_range &range) {
    statement query(db_, sql_of(what));
    query.bind(range.since).bind(range.end()).bind(range.mac).bind(range.ap).bind(range.limit);
    if (takes_step(what)) query.bind(range.step * second);
    named_table answer(names_);
    for (int i = 0; i < query.columns(); ++i) answer.column(query.name(i));
    while (query.step()) {
        answer.row();
        for (int i = 0; i < query.columns(); ++i) answer.add(cell_of(query, i));
    }
    return answer.made;
}
