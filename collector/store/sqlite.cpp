#include "collector/store/sqlite.h"

namespace {

constexpr int patience = 5000; // ms to wait for another program's lock

[[noreturn]] void fail(sqlite3 *db, int code) {
    throw sqlite_error(code, db ? sqlite3_errmsg(db) : sqlite3_errstr(code));
}

void check(sqlite3 *db, int code) {
    if (code != SQLITE_OK) fail(db, code);
}

} // namespace

database::database(const std::string &path, access how) {
    sqlite3 *opened = nullptr;
    const int flags =
        how == access::write ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY;
    const int code = sqlite3_open_v2(path.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    db_.reset(opened); // also on an error, which it describes
    check(opened, code);
    sqlite3_busy_timeout(opened, patience);
    sqlite3_extended_result_codes(opened, 0);
}

void database::run(const char *sql) {
    check(db_.get(), sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr));
}

std::int64_t database::number(const std::string &sql) {
    statement query(*this, sql);
    return query.step() ? query.integer(0) : 0;
}

std::string database::text(const std::string &sql) {
    statement query(*this, sql);
    return query.step() ? query.text(0) : std::string();
}

statement::statement(database &db, const std::string &sql) {
    sqlite3_stmt *made = nullptr;
    check(db.raw(), sqlite3_prepare_v2(db.raw(), sql.c_str(), static_cast<int>(sql.size()), &made, nullptr));
    stmt_.reset(made);
}

statement &statement::bind(std::int64_t value) {
    check(sqlite3_db_handle(stmt_.get()), sqlite3_bind_int64(stmt_.get(), next_++, value));
    return *this;
}

statement &statement::bind(std::string_view text) {
    check(sqlite3_db_handle(stmt_.get()), sqlite3_bind_text(stmt_.get(), next_++, text.data(),
                                                            static_cast<int>(text.size()), SQLITE_TRANSIENT));
    return *this;
}

statement &statement::bind_null() {
    check(sqlite3_db_handle(stmt_.get()), sqlite3_bind_null(stmt_.get(), next_++));
    return *this;
}

bool statement::step() {
    const int code = sqlite3_step(stmt_.get());
    if (code == SQLITE_ROW) return true;
    if (code != SQLITE_DONE) {
        const sqlite_error error(code, sqlite3_errmsg(sqlite3_db_handle(stmt_.get())));
        reset();
        throw error;
    }
    return false;
}

void statement::run() {
    while (step()) {
    }
    reset();
}

void statement::reset() {
    sqlite3_reset(stmt_.get());
    next_ = 1;
}

std::string statement::text(int column) const {
    const auto *bytes = reinterpret_cast<const char *>(sqlite3_column_text(stmt_.get(), column));
    return bytes ? std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(stmt_.get(), column)))
                 : std::string();
}
