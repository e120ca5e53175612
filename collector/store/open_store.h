// open_store.h - the store that a person has named.
#pragma once

#include "collector/store/store_reader.h"

#include <memory>
#include <string>

// What --store has to be; empty: it is. `url` and `path` get what it names, one of them.
std::string parse_store(const std::string &text, std::string &url, std::string &path);

// `store`: as --store has it. store_error when it cannot be opened, or this program was built without it.
std::unique_ptr<store_reader> open_store(const std::string &store, const station_names &names);
