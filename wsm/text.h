// text.h - foreign text for a terminal: names of networks and hosts can hold anything.
//
// Printable characters stay as they are; control characters, invisible ones, those that change the direction of writing, and
// bytes that are not UTF-8 become "?". If the locale does not use UTF-8, every character outside ASCII does as well.
#pragma once

#include <cstddef>
#include <cstdint>

// Reads the user's locale. To be called before any other function of this file.
void text_begin();

// Columns of the terminal behind standard output; 80 if it is not a terminal.
int terminal_columns();

// A safe copy of a text: at most `columns` wide, with "~" at its end if it was cut.
struct shown_text {
    char bytes[512];
    std::size_t length;
    int columns;
};
shown_text show(const char *text, int columns);

// Whether this character may be printed unchanged.
bool is_shown(std::uint32_t character);

// Reads one UTF-8 character at `text`. Returns its number of bytes; 0 if it is malformed.
std::size_t read_character(const char *text, std::uint32_t &character);
