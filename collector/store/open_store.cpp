#include "collector/store/open_store.h"

#if WITH_POSTGRES
#include "collector/store/postgres_reader.h"
#endif
#if WITH_SQLITE
#include "collector/store/sqlite_reader.h"
#endif

std::string parse_store(const std::string &text, std::string &url, std::string &path) {
    constexpr std::string_view file = "sqlite:";
    url.clear();
    path.clear();
    if (text.starts_with("postgresql://") || text.starts_with("postgres://"))
        url = text;
    else if (text.starts_with(file) && text.size() > file.size())
        path = text.substr(file.size());
    else
        return "sqlite:FILE or postgresql://...";
    return {};
}

std::unique_ptr<store_reader> open_store(const std::string &store, const station_names &names) {
    std::string url, path;
    if (const std::string why = parse_store(store, url, path); !why.empty()) throw store_error(why);
#if WITH_SQLITE
    if (!path.empty()) return std::make_unique<sqlite_reader>(path, names);
#else
    if (!path.empty()) throw store_error("this program was built without SQLite");
#endif
#if WITH_POSTGRES
    return std::make_unique<postgres_reader>(url, names);
#else
    (void)names;
    throw store_error("this program was built without libpq");
#endif
}
