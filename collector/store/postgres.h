// postgres.h - a connection to PostgreSQL. Errors are exceptions; their SQLSTATE says how to handle them.
//
// Foreign text is always a parameter or a field of a COPY in binary form, never part of a statement.
// Errors:  postgres_error, when connecting or a statement fails. The caller then closes the connection, or uses it again if
//          only the statement was wrong.
// Password: from the URL, ~/.pgpass or a service file, as libpq reads it; it appears in no text of ours.
#pragma once

#include "collector/store/store_error.h"

#include <cstdint>
#include <libpq-fe.h>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class postgres_error : public store_error {
public:
    // `state`: SQLSTATE; empty when there is none, since the server cannot be reached.
    postgres_error(std::string state, const std::string &what)
        : store_error(what), state_(std::move(state)) {}
    const std::string &state() const { return state_; }
    // A value is wrong, so another attempt would fail as well: data exception, integrity violation, program limit.
    bool of_value() const;

private:
    std::string state_;
};

// Values for $1, $2, ... in this order, as text.
class parameters {
public:
    parameters &add(std::int64_t value);
    parameters &add(std::string_view text); // without NUL
    parameters &add(const std::vector<std::int64_t> &values);
    parameters &add(const std::vector<std::string> &texts);
    const std::vector<std::string> &values() const { return values_; }

private:
    std::vector<std::string> values_;
};

class rows {
public:
    explicit rows(PGresult *result) : result_(result) {}

    int count() const { return PQntuples(result_.get()); }
    int columns() const { return PQnfields(result_.get()); }
    const char *name(int column) const { return PQfname(result_.get(), column); }
    Oid type(int column) const { return PQftype(result_.get(), column); }
    bool null(int row, int column) const { return PQgetisnull(result_.get(), row, column) != 0; }
    // Bytes of the value; of a bytea only where the rows were asked for in binary form.
    std::string_view bytes(int row, int column) const;
    std::string text(int row, int column) const { return std::string(bytes(row, column)); }
    std::int64_t number(int row, int column) const; // of int2, int4, int8, or their text; 0: null
    double real(int row, int column) const;         // of text
    std::int64_t changed() const;                   // rows that an INSERT, UPDATE, DELETE touched

private:
    struct closer {
        void operator()(PGresult *result) const { PQclear(result); }
    };
    std::unique_ptr<PGresult, closer> result_;
};

// Rows for COPY ... WITH (FORMAT binary). A number's C++ type is the column's: 4 bytes integer, 8 bytes bigint.
class copy_rows {
public:
    copy_rows &row(int fields);
    copy_rows &add(std::int32_t value);
    copy_rows &add(std::int64_t value);
    copy_rows &add(std::string_view bytes); // text, or bytea
    copy_rows &null();
    // A date is the number of days since 2000-01-01 on the wire; here it is since 1970-01-01.
    copy_rows &day(std::int64_t since_1970);
    bool empty() const { return count_ == 0; }
    const std::string &data() const { return data_; }

private:
    template <class Int> void put(Int value);
    std::string data_;
    std::size_t count_ = 0;
};

class postgres {
public:
    explicit postgres(const std::string &url);

    void script(const char *statements); // trusted, any number of them, results are ignored
    rows run(const char *statement, const parameters &values = {});
    rows run_binary(const char *statement, const parameters &values = {});
    void copy(const char *statement, const copy_rows &from);

    bool usable() const { return PQstatus(connection_.get()) == CONNECTION_OK; }

private:
    [[noreturn]] void fail(const PGresult *result) const;
    rows ask(const char *statement, const parameters &values, int format);
    struct closer {
        void operator()(PGconn *connection) const { PQfinish(connection); }
    };
    std::unique_ptr<PGconn, closer> connection_;
};

// A transaction: rolled back unless commit() was called.
class transaction {
public:
    explicit transaction(postgres &db) : db_(db) { db_.script("BEGIN"); }
    ~transaction();
    transaction(transaction &&) = delete;
    void commit();

private:
    postgres &db_;
    bool done_ = false;
};
