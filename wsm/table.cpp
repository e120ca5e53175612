#include "table.h"

#include "text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

constexpr int gap = 2;
constexpr int cell_max = 128;

} // namespace

bool table::add(const char *text) noexcept {
    const std::size_t begin = texts.size();
    return texts.append(text, std::strlen(text) + 1) && cells.push(begin);
}

int table::natural(std::size_t column) const noexcept {
    int most = static_cast<int>(std::strlen(columns[column].title));
    for (std::size_t i = column; i < cells.size(); i += columns.size())
        most = std::max(most, show(cell(i), cell_max).columns);
    return most;
}

table::layout table::fitted(int width) const noexcept {
    layout natural_widths{}, now{};
    for (std::size_t i = 0; i < columns.size(); ++i) natural_widths.width[i] = natural(i);
    const auto total = [&] {
        int sum = -gap;
        for (const int one : now.width) sum += one > 0 ? one + gap : 0;
        return sum;
    };
    now = natural_widths;
    while (total() > width) {
        // The widest column that can become narrower.
        std::size_t widest = columns.size(), last = columns.size();
        for (std::size_t i = 0; i < columns.size(); ++i) {
            if (now.width[i] == 0) continue;
            const table_column &one = columns[i];
            if (one.least > 0 && now.width[i] > one.least &&
                (widest == columns.size() || now.width[i] > now.width[widest]))
                widest = i;
            if (one.goes_at > 0 && (last == columns.size() || one.goes_at > columns[last].goes_at)) last = i;
        }
        if (widest < columns.size()) {
            --now.width[widest];
        } else if (last < columns.size()) {
            natural_widths.width[last] = 0;
            now = natural_widths;
        } else { // no column may become narrower: cut the widest anyway
            int *most = std::max_element(now.width, now.width + columns_max);
            if (*most <= 1) break;
            --*most;
        }
    }
    return now;
}

void table::print_cell(const char *text, int width, bool right, bool last) noexcept {
    const shown_text shown = show(text, width);
    const int blanks = width - shown.columns;
    std::printf("%*s%.*s%*s", right ? blanks : 0, "", static_cast<int>(shown.length), shown.bytes,
                right || last ? 0 : blanks, "");
    if (!last) std::printf("%*s", gap, "");
}

void table::print(int width) const noexcept {
    const layout chosen = fitted(width);
    std::size_t last = 0;
    for (std::size_t i = 0; i < columns.size(); ++i)
        if (chosen.width[i] > 0) last = i;
    const auto print_row = [&](auto text_of) {
        for (std::size_t i = 0; i < columns.size(); ++i)
            if (chosen.width[i] > 0) print_cell(text_of(i), chosen.width[i], columns[i].right, i == last);
        std::putchar('\n');
    };
    print_row([&](std::size_t i) { return columns[i].title; });
    for (std::size_t row = 0; row < rows(); ++row)
        print_row([&](std::size_t i) { return cell(row * columns.size() + i); });
}
