// sqlite.h - a database file and its prepared statements. Errors are exceptions; their result code says how to handle them.
#pragma once

#include "collector/store/store_error.h"

#include <cstdint>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <string_view>

class sqlite_error : public store_error {
public:
    sqlite_error(int code, const std::string &what) : store_error(what), code_(code) {}
    int code() const { return code_ & 0xff; }
    // The file is damaged or not a database: a new one is needed.
    bool damaged() const { return code() == SQLITE_CORRUPT || code() == SQLITE_NOTADB; }

private:
    int code_;
};

class database {
public:
    enum class access { write, read };
    // Opens the file; for writing, makes it if it is missing.
    database(const std::string &path, access how);

    void run(const char *sql); // any number of statements, results are ignored
    std::int64_t number(const std::string &sql);
    std::string text(const std::string &sql);
    sqlite3 *raw() const { return db_.get(); }

private:
    struct closer {
        void operator()(sqlite3 *db) const { sqlite3_close_v2(db); }
    };
    std::unique_ptr<sqlite3, closer> db_;
};

// Values are bound in the order of the calls, and columns are read in theirs.
class statement {
public:
    statement(database &db, const std::string &sql);

    statement &bind(std::int64_t value);
    statement &bind(std::string_view text);
    statement &bind_null();

    bool step(); // true: there is a row
    void run();  // to the end, then resets it
    void reset();

    int columns() const { return sqlite3_column_count(stmt_.get()); }
    const char *name(int column) const { return sqlite3_column_name(stmt_.get(), column); }
    int type(int column) const { return sqlite3_column_type(stmt_.get(), column); }
    std::int64_t integer(int column) const { return sqlite3_column_int64(stmt_.get(), column); }
    double real(int column) const { return sqlite3_column_double(stmt_.get(), column); }
    std::string text(int column) const;

private:
    struct closer {
        void operator()(sqlite3_stmt *stmt) const { sqlite3_finalize(stmt); }
    };
    std::unique_ptr<sqlite3_stmt, closer> stmt_;
    int next_ = 1;
};
