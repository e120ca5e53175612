#include "collector/store/postgres.h"

#include <bit>
#include <charconv>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::int64_t days_to_2000 = 10957; // since 1970-01-01

// The kernel notices a server that does not answer any more. The URL can override all of these.
constexpr const char *defaults[][2] = {
    {"connect_timeout", "10"},     {"keepalives_idle", "10"},
    {"keepalives_interval", "5"},  {"keepalives_count", "3"},
    {"tcp_user_timeout", "30000"}, {"fallback_application_name", "wsm-collector"},
    {"client_encoding", "UTF8"},
};

std::string one_line(const char *text) {
    std::string line = text ? text : "";
    while (!line.empty() && (line.back() == '\n' || line.back() == ' ')) line.pop_back();
    for (char &c : line)
        if (c == '\n' || c == '\t') c = ' ';
    return line;
}

// Refuses URLs for which an error message of libpq could show a password, or a part of it.
void check_url(const std::string &url) {
    const auto begin = url.find("://");
    if (begin == std::string::npos) throw postgres_error({}, "not a postgresql:// URL");
    const std::string authority = url.substr(begin + 3, url.find_first_of("/?", begin + 3) - begin - 3);
    if (authority.find('@') != authority.rfind('@'))
        throw postgres_error({}, "not a postgresql:// URL: @ in a user's name or password is written %40");
    char *why = nullptr;
    PQconninfoOption *parsed = PQconninfoParse(url.c_str(), &why);
    PQfreemem(why);
    if (!parsed) throw postgres_error({}, "not a postgresql:// URL");
    PQconninfoFree(parsed);
}

} // namespace

bool postgres_error::of_value() const {
    return state_.starts_with("22") || state_.starts_with("23") || state_.starts_with("54");
}

parameters &parameters::add(std::int64_t value) {
    values_.push_back(std::to_string(value));
    return *this;
}

parameters &parameters::add(std::string_view text) {
    values_.emplace_back(text);
    return *this;
}

parameters &parameters::add(const std::vector<std::int64_t> &values) {
    std::string array = "{";
    for (const std::int64_t value : values) {
        if (array.size() > 1) array += ',';
        array += std::to_string(value);
    }
    values_.push_back(array + '}');
    return *this;
}

parameters &parameters::add(const std::vector<std::string> &texts) {
    std::string array = "{";
    for (const std::string &text : texts) {
        if (array.size() > 1) array += ',';
        array += '"';
        for (const char c : text) {
            if (c == '"' || c == '\\') array += '\\';
            array += c;
        }
        array += '"';
    }
    values_.push_back(array + "}");
    return *this;
}

std::string_view rows::bytes(int row, int column) const {
    return {PQgetvalue(result_.get(), row, column),
            static_cast<std::size_t>(PQgetlength(result_.get(), row, column))};
}

std::int64_t rows::number(int row, int column) const {
    const std::string_view value = bytes(row, column);
    std::int64_t number = 0;
    if (PQfformat(result_.get(), column) == 0) {
        std::from_chars(value.data(), value.data() + value.size(), number);
        return number;
    }
    std::uint64_t bits = 0;
    for (const char c : value) bits = bits << 8 | static_cast<unsigned char>(c);
    if (value.size() == 2) return static_cast<std::int16_t>(bits);
    if (value.size() == 4) return static_cast<std::int32_t>(bits);
    return static_cast<std::int64_t>(bits);
}

double rows::real(int row, int column) const { return std::strtod(text(row, column).c_str(), nullptr); }

std::int64_t rows::changed() const { return std::strtoll(PQcmdTuples(result_.get()), nullptr, 10); }

template <class Int> void copy_rows::put(Int value) {
    if constexpr (std::endian::native == std::endian::little && sizeof(Int) > 1) {
        char bytes[sizeof(Int)];
        std::memcpy(bytes, &value, sizeof(value));
        for (std::size_t i = sizeof(Int); i > 0; --i) data_ += bytes[i - 1];
    } else {
        data_.append(reinterpret_cast<const char *>(&value), sizeof(value));
    }
}

copy_rows &copy_rows::row(int fields) {
    using namespace std::string_view_literals;
    if (count_++ == 0)
        data_ += "PGCOPY\n\377\r\n\0\0\0\0\0\0\0\0\0"sv; // signature, no flags, no further heading
    put(static_cast<std::int16_t>(fields));
    return *this;
}

copy_rows &copy_rows::add(std::int32_t value) {
    put(std::int32_t{sizeof(value)});
    put(value);
    return *this;
}

copy_rows &copy_rows::add(std::int64_t value) {
    put(std::int32_t{sizeof(value)});
    put(value);
    return *this;
}

copy_rows &copy_rows::add(std::string_view bytes) {
    put(static_cast<std::int32_t>(bytes.size()));
    data_ += bytes;
    return *this;
}

copy_rows &copy_rows::null() {
    put(std::int32_t{-1});
    return *this;
}

copy_rows &copy_rows::day(std::int64_t since_1970) {
    return add(static_cast<std::int32_t>(since_1970 - days_to_2000));
}

postgres::postgres(const std::string &url) {
    check_url(url);
    std::vector<const char *> names, values;
    for (const auto &[name, value] : defaults) {
        names.push_back(name);
        values.push_back(value);
    }
    names.insert(names.end(), {"dbname", nullptr}); // the last one counts, and may be a whole URL
    values.insert(values.end(), {url.c_str(), nullptr});
    connection_.reset(PQconnectdbParams(names.data(), values.data(), 1));
    if (!usable())
        throw postgres_error({}, connection_ ? one_line(PQerrorMessage(connection_.get())) : "no memory");
    PQsetNoticeProcessor(
        connection_.get(), [](void *, const char *) {}, nullptr);
}

void postgres::fail(const PGresult *result) const {
    const char *state = result ? PQresultErrorField(result, PG_DIAG_SQLSTATE) : nullptr;
    const char *words = result ? PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY) : nullptr;
    std::string why = one_line(words ? words : PQerrorMessage(connection_.get()));
    if (why.empty()) why = "the connection is lost";
    throw postgres_error(state && usable() ? state : "", why);
}

void postgres::script(const char *statements) {
    const std::unique_ptr<PGresult, void (*)(PGresult *)> done(PQexec(connection_.get(), statements),
                                                               PQclear);
    const ExecStatusType status = PQresultStatus(done.get());
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) fail(done.get());
}

rows postgres::ask(const char *statement, const parameters &values, int format) {
    std::vector<const char *> texts;
    for (const std::string &value : values.values()) texts.push_back(value.c_str());
    PGresult *result = PQexecParams(connection_.get(), statement, static_cast<int>(texts.size()), nullptr,
                                    texts.data(), nullptr, nullptr, format);
    rows answer(result);
    const ExecStatusType status = PQresultStatus(result);
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) fail(result);
    return answer;
}

rows postgres::run(const char *statement, const parameters &values) { return ask(statement, values, 0); }
rows postgres::run_binary(const char *statement, const parameters &values) {
    return ask(statement, values, 1);
}

void postgres::copy(const char *statement, const copy_rows &from) {
    if (from.empty()) return;
    constexpr std::size_t most = 1 << 20; // bytes sent at once
    constexpr std::string_view end("\377\377", 2);
    using result = std::unique_ptr<PGresult, void (*)(PGresult *)>;
    const result begun(PQexec(connection_.get(), statement), PQclear);
    if (PQresultStatus(begun.get()) != PGRES_COPY_IN) fail(begun.get());
    bool sent = true;
    for (std::size_t at = 0; sent && at < from.data().size(); at += most) {
        const std::string_view part = std::string_view(from.data()).substr(at, most);
        sent = PQputCopyData(connection_.get(), part.data(), static_cast<int>(part.size())) == 1;
    }
    sent = sent && PQputCopyData(connection_.get(), end.data(), static_cast<int>(end.size())) == 1;
    sent = sent && PQputCopyEnd(connection_.get(), nullptr) == 1;
    if (!sent) fail(nullptr);
    result done(PQgetResult(connection_.get()), PQclear);
    const bool good = PQresultStatus(done.get()) == PGRES_COMMAND_OK;
    for (PGresult *more; (more = PQgetResult(connection_.get())) != nullptr;) PQclear(more);
    if (!good) fail(done.get());
}

transaction::~transaction() {
    if (done_) return;
    try {
        db_.script("ROLLBACK");
    } catch (const postgres_error &) {
        // The connection is lost, and so is the transaction.
    }
}

void transaction::commit() {
    done_ = true;
    db_.script("COMMIT");
}
