// stations.h - which stations a question is about, in which order, and how many of them: the table of a page begins with a
// few rows of a list that may have thousands.
#pragma once

#include "collector/names.h"
#include "collector/stay.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

struct stations_question {
    std::vector<std::string> words; // small letters; each must be in one of a station's texts
    std::string ssid;               // empty here and below: any
    std::string ap;
    std::string state; // presence_name()
    std::string band;  // "2.4", "5", "6"
    std::string sort = "mac";
    bool descending = false;
    std::size_t limit = 0; // 0: all
};

// Reads search (at most 256 bytes), ssid, ap, state, band, sort, direction and limit (1 to 10,000); an empty one is as none.
// Returns nothing, or what is wrong with them.
std::string read_question(const std::map<std::string, std::string> &arguments, stations_question &asked);

// A JSON array of them; equal ones in order of their MACs. Small letters are those of ASCII, and digits count as numbers.
std::string stations_json(const std::vector<stay> &here, const station_names &names,
                          const stations_question &asked);
