#include "collector/store/postgres_schema.h"

void bring_up_to_date(postgres &db, std::span<const char *const> versions) {
    const auto newest = static_cast<std::int64_t>(versions.size());
    transaction doing(db);
    db.run("SELECT pg_advisory_xact_lock($1, $2)", parameters().add(postgres_lock).add(lock_schema));
    db.script("CREATE TABLE IF NOT EXISTS store_version(version bigint NOT NULL)");
    const rows found = db.run("SELECT version FROM store_version");
    const std::int64_t version = found.count() == 0 ? 0 : found.number(0, 0);
    if (version > newest)
        throw store_error("the tables were made by a newer version of this program: they are version " +
                          std::to_string(version) + ", and this one knows up to " + std::to_string(newest));
    for (const char *next : versions.subspan(static_cast<std::size_t>(version))) db.script(next);
    if (version < newest) {
        db.script("DELETE FROM store_version");
        db.run("INSERT INTO store_version VALUES($1)", parameters().add(newest));
    }
    doing.commit();
}
