// text.h - foreign text for a terminal: what a network or a host calls itself can hold anything.
//
// Printable characters stay as they are; control characters, invisible ones, those that turn the direction of writing, and bytes that
// are no UTF-8 become "?". Where the locale is not one of UTF-8, so does all that is not ASCII.
#pragma once

#include <cstddef>
#include <cstdint>

// Reads the user's locale. Before anything else of this file.
void text_begin();

// Columns of the terminal behind standard output; 80 where there is none.
int terminal_columns();

// A text made safe: at most `columns` wide, "~" at its end where it was cut.
struct shown_text {
    char bytes[512];
    std::size_t length;
    int columns;
};
shown_text show(const char *text, int columns);

// Whether this character may stand in a line as it is.
bool is_shown(std::uint32_t character);

// One character of UTF-8 at `text`; its bytes, 0 when they are none.
std::size_t read_character(const char *text, std::uint32_t &character);
