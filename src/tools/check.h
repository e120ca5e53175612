// check.h - checks of texts in messages of others; each failure is logged.
#pragma once

#include "tools/log.h"

#include <cstddef>
#include <cstring>

// The fewest characters that such a text must have.
inline constexpr std::size_t sta_mac_text_min = 17;
inline constexpr std::size_t sta_ip_text_min = 7;

// True when the text in the variable `what` is there and has at least `least` characters. Otherwise logs at level 3, with
// `word` as the module's name.
#define STA_HAS_LENGTH(word, what, least)                                                                    \
    (((what) && std::strlen(what) >= (least)) || (STA_ERROR(word, "The parameter " #what " error.\n"), false))

// True when the member `what` of a message was there. Otherwise logs it as `name`.
#define STA_WAS_PARSED(word, what, name) ((what) || (STA_ERROR(word, "Parse " name " failed!\n"), false))
