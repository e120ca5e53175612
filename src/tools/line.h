// line.h - builds a line of fields separated by single spaces in the caller's buffer. A pass writes one for
// every station; with printf that would be most of the pass's time.
//
// Bounds: a text that does not fit is cut, a number that does not fit is left out; the line feed always fits. No terminator is written.
#pragma once

#include <algorithm>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>

class sta_line {
public:
    template <std::size_t N>
    explicit sta_line(char (&buffer)[N]) noexcept : begin_(buffer), at_(buffer), end_(buffer + N - 1) {}

    // A field of at most `most` characters of `from`. White space, which would end the field or the line, becomes
    // `instead`.
    void text(const char *from, char instead, std::size_t most = SIZE_MAX) noexcept {
        part();
        const std::size_t length = strnlen(from, std::min(most, static_cast<std::size_t>(end_ - at_)));
        for (std::size_t i = 0; i < length; ++i) at_[i] = is_white(from[i]) ? instead : from[i];
        at_ += length;
    }

    // A field with a decimal number.
    template <std::integral T> void number(T value) noexcept {
        part();
        if (value >= 0 && value <= 9 && at_ < end_) // most of them are small
            *at_++ = static_cast<char>('0' + static_cast<int>(value));
        else if (const auto [end, error] = std::to_chars(at_, end_, value); error == std::errc{})
            at_ = end;
    }

    // Ends the line. Its length, with the line feed.
    std::size_t finish() noexcept {
        *at_++ = '\n';
        return static_cast<std::size_t>(at_ - begin_);
    }

private:
    static constexpr bool is_white(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

    void part() noexcept {
        if (at_ != begin_ && at_ < end_) *at_++ = ' ';
    }

    char *begin_;
    char *at_;
    char *end_; // end of the fields; one more byte is left for the line feed
};
