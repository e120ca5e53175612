// postgres_reader.h - queries to a store in PostgreSQL; each is a read-only statement of at most half a minute.
#pragma once

#include "collector/store/postgres.h"
#include "collector/store/store_reader.h"

class postgres_reader : public store_reader {
public:
    postgres_reader(const std::string &url, const station_names &names);

    table ask(store_question what, const store_range &range) override;

private:
    postgres db_;
    const station_names &names_;
};
