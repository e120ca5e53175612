// sqlite_reader.h - queries to a store in an SQLite file.
#pragma once

#include "collector/store/sqlite.h"
#include "collector/store/store_reader.h"

class sqlite_reader : public store_reader {
public:
    sqlite_reader(const std::string &path, const station_names &names);

    table ask(store_question what, const store_range &range) override;

private:
    database db_;
    const station_names &names_;
};
