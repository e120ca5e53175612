// postgres_reader.h - questions to a store that PostgreSQL has; each a statement of at most half a minute that changes nothing.
#pragma once

#include "collector/store/postgres.h"
#include "collector/store/store_reader.h"

class postgres_reader : public store_reader {
public:
    postgres_reader(const std::string &url, const station_names &names);

    table sessions(const store_range &range) override;
    table departures(const store_range &range) override;
    table top(const store_range &range) override;
    table flapping(const store_range &range) override;
    table events(const store_range &range) override;
    table addresses(const store_range &range) override;
    table series(const store_range &range) override;
    table radios(const store_range &range) override;

private:
    table ask(const char *sql, const store_range &range, bool with_step = false);
    postgres db_;
    const station_names &names_;
};
