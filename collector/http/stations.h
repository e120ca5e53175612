// stations.h - selecting and sorting stations: a page's table shows a few rows first of a list that may have
// thousands.
#pragma once

#include "collector/names.h"
#include "collector/stay.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

struct stations_question {
    std::vector<std::string> words; // lower case; each must occur in one of a station's texts
    std::string ssid;               // empty here and below: any
    std::string ap;
    std::string state; // presence_name()
    std::string band;  // "2.4", "5", "6"
    std::string sort = "mac";
    bool descending = false;
    std::size_t limit = 0; // 0: all
};

// Reads search (at most 256 bytes), ssid, ap, state, band, sort, direction and limit (1 to 10,000); an empty argument counts as missing.
// Returns an empty text, or what is wrong with them.
std::string read_question(const std::map<std::string, std::string> &arguments, stations_question &asked);

// A JSON array of the selected stations; equal ones in order of their MACs. Case is ignored for ASCII only, and runs of digits
// are compared as numbers.
std::string stations_json(const std::vector<stay> &here, const station_names &names,
                          const stations_question &asked);
