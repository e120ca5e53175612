// check.h - checks of what others announce, each with its line in the log.
#pragma once

#include "tools/log.h"

#include <cstddef>
#include <cstring>

// Characters that an announced text must have at least.
inline constexpr std::size_t sta_mac_text_min = 17;
inline constexpr std::size_t sta_ip_text_min = 7;

// True when the text in the variable `what` is there and has `least` characters; else that is logged at level 3, in the
// words of the module `word`.
#define STA_HAS_LENGTH(word, what, least)                                                                    \
    (((what) && std::strlen(what) >= (least)) || (STA_ERROR(word, "The parameter " #what " error.\n"), false))

// True when the member `what` of a message was there, as `name` in the log.
#define STA_WAS_PARSED(word, what, name) ((what) || (STA_ERROR(word, "Parse " name " failed!\n"), false))
