// words.h - durations, bytes and times in a form for people.
#pragma once

#include <cstdint>

inline constexpr int word_size = 32;

// Seconds as "7s", "12m", "3h05m", "2d04h".
void put_duration(char (&word)[word_size], std::int64_t seconds);

// Bytes as "512", "3.4k", "12M", "1.2G": powers of 1000.
void put_bytes(char (&word)[word_size], std::int64_t bytes);

// Seconds since 1970 as "14:03:22" of today, or "Nov 21 14:03"; compared with `now`. "-" for a time that the calendar cannot express.
void put_time(char (&word)[word_size], std::int64_t time, std::int64_t now);
