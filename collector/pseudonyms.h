// pseudonyms.h - MACs of stations replaced by others that only who has the key can tell: the first 46 bits of HMAC-SHA-256 as a
// locally administered MAC. The same key gives the same pseudonym.
#pragma once

#include "collector/received.h"

#include <string>

class pseudonyms {
public:
    // The key: the file's bytes, 16 at least. std::runtime_error without it.
    explicit pseudonyms(const std::string &key_file);

    // In the report and in its image. What has no MAC stays as it is.
    void apply(received &in) const;
    std::string of(const std::string &mac) const;

private:
    std::string key_;
};
