#include "collector/store/postgres_days.h"

#include "collector/store/postgres_schema.h"
#include "collector/times.h"

#include <chrono>
#include <cstdio>

namespace {

constexpr std::int64_t first_day = first_sound_time / one_day;
constexpr const char *rest = "_other";

// "20261122"
std::string name_of(std::int64_t day) {
    const std::chrono::year_month_day date{std::chrono::sys_days{std::chrono::days{day}}};
    char text[32];
    (void)std::snprintf(text, sizeof(text), "%04d%02u%02u", static_cast<int>(date.year()),
                        static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
    return text;
}

void lock(postgres &db, postgres_lock_for what) {
    db.run("SELECT pg_advisory_xact_lock($1, $2)", parameters().add(postgres_lock).add(what));
}

} // namespace

void postgres_days::prepare(postgres &db, const std::set<std::int64_t> &days, moment clock) {
    for (const std::int64_t day : days) {
        if (day < first_day || day > clock / one_day + 2 || ready_.contains(day)) continue;
        make(db, day);
        ready_.insert(day);
    }
}

// A new part is filled with the rows of its day from the part for the rest, and then attached. Writers to other parts are not
// blocked.
void postgres_days::make(postgres &db, std::int64_t day) {
    const std::string name = name_of(day), next = name_of(day + 1);
    const std::string first = std::to_string(day * one_day), last = std::to_string((day + 1) * one_day);
    transaction doing(db);
    lock(db, lock_days);
    const auto part = [&](const std::string &table, const std::string &from, const std::string &to,
                          const std::string &column) {
        const std::string own = table + "_" + name;
        if (db.run("SELECT to_regclass($1) IS NOT NULL", parameters().add(own)).bytes(0, 0) == "t") return;
        const std::string bounds = " >= " + from + " AND " + column + " < " + to;
        db.script(("CREATE TABLE " + own + " (LIKE " + table +
                   " INCLUDING ALL); WITH moved AS (DELETE FROM " + table + rest + " WHERE " + column +
                   bounds + " RETURNING *) INSERT INTO " + own + " SELECT * FROM moved; ALTER TABLE " +
                   table + " ATTACH PARTITION " + own + " FOR VALUES FROM (" + from + ") TO (" + to + ")")
                      .c_str());
    };
    part("report", "'" + name + "'", "'" + next + "'", "day");
    part("sample", first, last, "at");
    doing.commit();
}

bool postgres_days::prune(postgres &db, std::int64_t first_kept) {
    try {
        {
            transaction doing(db);
            const parameters ours = parameters().add(postgres_lock).add(lock_prune);
            if (db.run("SELECT pg_try_advisory_xact_lock($1, $2)", ours).bytes(0, 0) != "t") return false;
            db.script("SET LOCAL lock_timeout = '2s'"); // readers and writers come first
            const std::string limit = name_of(first_kept);
            const rows parts =
                db.run("SELECT c.oid::regclass::text FROM pg_inherits i JOIN pg_class c ON c.oid = i.inhrelid"
                       " WHERE i.inhparent IN ('report'::regclass, 'sample'::regclass)"
                       " AND c.relname ~ '^(report|sample)_[0-9]{8}$' AND right(c.relname, 8) < $1",
                       parameters().add(limit));
            for (int i = 0; i < parts.count(); ++i) db.script(("DROP TABLE " + parts.text(i, 0)).c_str());
            doing.commit();
            ready_.erase(ready_.begin(), ready_.lower_bound(first_kept));
        }
        const parameters before = parameters().add(first_kept * one_day);
        db.run("DELETE FROM report_other WHERE at < $1", before);
        db.run("DELETE FROM sample_other WHERE at < $1", before);
        db.run("DELETE FROM refused WHERE at < to_timestamp($1::bigint / 1000000)", before);
        // The part for the rest is pruned in small steps, so that nobody waits for it.
        for (const char *some :
             {"WITH over AS (DELETE FROM event WHERE id IN (SELECT id FROM event WHERE at < $1 ORDER BY at "
              "LIMIT 10000)"
              " RETURNING 1) SELECT count(*) FROM over",
              "WITH over AS (DELETE FROM stay WHERE id IN (SELECT id FROM stay WHERE state = 3 AND ended < $1"
              " ORDER BY ended LIMIT 5000) RETURNING id),"
              " gone AS (DELETE FROM address WHERE stay IN (SELECT id FROM over)) SELECT count(*) FROM over"})
            while (db.run(some, before).number(0, 0) > 0) {
            }
        return true;
    } catch (const postgres_error &error) {
        if (error.state() != "55P03") throw; // the lock was not available in time
        return false;
    }
}
