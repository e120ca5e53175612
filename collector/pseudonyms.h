// pseudonyms.h - replacing MACs of stations by pseudonyms that can be computed only with a key: the first 46 bits of HMAC-SHA-256 as
// a locally administered MAC. The same key gives the same pseudonym.
#pragma once

#include "collector/received.h"

#include <string>

class pseudonyms {
public:
    // The key: the file's bytes, 16 at least. std::runtime_error without it.
    explicit pseudonyms(const std::string &key_file);

    // Replaces the MAC in the report and in its image. A report without a MAC stays unchanged.
    void apply(received &in) const;
    std::string of(const std::string &mac) const;

private:
    std::string key_;
};
