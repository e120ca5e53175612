// sqlite_reader.h - questions to a store that is an SQLite file.
#pragma once

#include "collector/store/sqlite.h"
#include "collector/store/store_reader.h"

class sqlite_reader : public store_reader {
public:
    sqlite_reader(const std::string &path, const station_names &names);

    table sessions(const store_range &range) override;
    table departures(const store_range &range) override;
    table top(const store_range &range) override;
    table flapping(const store_range &range) override;
    table events(const store_range &range) override;
    table addresses(const store_range &range) override;
    table series(const store_range &range) override;
    table radios(const store_range &range) override;

private:
    table ask(const std::string &sql, const store_range &range, bool with_step = false);
    database db_;
    const station_names &names_;
};
