// open_store.h - opening the store that --store names.
#pragma once

#include "collector/store/store_reader.h"

#include <memory>
#include <string>

// Returns an empty text, or the forms that --store must have. Sets `url` or `path`.
std::string parse_store(const std::string &text, std::string &url, std::string &path);

// `store`: the argument of --store. Throws store_error when it cannot be opened, or this program was built without it.
std::unique_ptr<store_reader> open_store(const std::string &store, const station_names &names);
