// table.h - rows that fit the terminal: wide columns become narrower, and the least important ones are left out.
#pragma once

#include "tools/array.h"

#include <span>

struct table_column {
    const char *title;
    int least;   // columns of the terminal that it can be narrowed to; 0: not at all
    int goes_at; // without room the column with the highest number is left out first; 0: never
    bool right;  // aligned to the right, for numbers
};

class table {
public:
    explicit table(std::span<const table_column> wanted) noexcept : columns(wanted) {}

    // Adds the next cell, row by row. It may be foreign text. False without memory.
    bool add(const char *text) noexcept;

    // Title line and rows, at most `width` columns wide each.
    void print(int width) const noexcept;

    std::size_t rows() const noexcept { return cells.size() / columns.size(); }

private:
    static constexpr std::size_t columns_max = 16;
    struct layout {
        int width[columns_max]; // 0: not shown
    };
    layout fitted(int width) const noexcept;
    int natural(std::size_t column) const noexcept;
    static void print_cell(const char *text, int width, bool right, bool last) noexcept;
    const char *cell(std::size_t index) const noexcept { return texts.data() + cells[index]; }

    std::span<const table_column> columns;
    sta_array<char> texts;
    sta_array<std::size_t> cells; // offsets in `texts`
};
