// postgres_reader.h - questions to a store that PostgreSQL has; each a statement of at most half a minute that changes nothing.
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
