// backup_lines.h - the station backup file in memory, for a pass that rewrites every station's line.
//
// Rewriting one line means writing the whole file; for n stations that takes time in the square of n. Here
// the file is read once, each removal finds its lines by MAC, and the file is written once. The result is
// byte for byte what the single operations of outputs/backup would leave, and the same dropped lines are passed
// to the caller in the same order.
//
// Lines:  as the single operations read them: up to a line feed, at most 1023 bytes; the text ends at its first
//         NUL.
// Memory: plain malloc, given back by the destructor. Every operation that needs some can fail.
#pragma once

#include "tools/array.h"
#include "tools/mac_index.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

inline constexpr std::size_t backup_line_max = 1023; // bytes read at once
inline constexpr std::size_t backup_line_least = 36; // a shorter text is not a station's line

// Called for each dropped line, in file order. `text` is valid during the call only.
using backup_line_told = void (*)(const char *mac, std::string_view text, bool too_short);

class backup_lines {
public:
    // Reads all of `file`. False without memory or when reading fails.
    bool read(std::FILE *file) noexcept;

    // Removes every line that is too short or holds `mac` (17 characters or any other text), and calls
    // `tell` for each. At the end calls it with an empty line, as the single operation does when the last line has
    // a line feed, or when there is none.
    void remove(const char *mac, backup_line_told tell) noexcept;

    // Appends a line of `length` bytes. False without memory: the lines are then as before.
    bool append(const char *line, std::size_t length) noexcept;

    // Calls `visit` with each line that is left, until it returns false. True if it never did.
    template <class Visit> bool for_each(Visit visit) const noexcept {
        for (std::size_t i = 0; i < pieces.size(); ++i)
            if (!pieces[i].gone && !visit(std::string_view{bytes.data() + pieces[i].begin, pieces[i].length}))
                return false;
        return true;
    }

    // Whether `mac`, of 17 characters, occurs exactly once in the lines that are left.
    bool has_once(const char *mac) const noexcept;

    // Writes the lines that are left. False when not every byte could be written.
    bool write(std::FILE *file) const noexcept;

private:
    using number = sta_mac_index::number; // index of a byte or a piece; 32 bits halve the memory of a pass

    struct piece {
        number begin;         // in `bytes`
        std::uint16_t length; // at most backup_line_max
        std::uint16_t text;   // length of its text
        bool gone;

        bool is_short() const noexcept { return text < backup_line_least; }
    };
    static constexpr number none = sta_mac_index::none;

    bool make_room(std::size_t length) noexcept;
    bool add_piece(std::size_t begin, std::size_t length) noexcept;
    bool add_pieces(std::size_t begin) noexcept; // for `bytes` from `begin` to the end
    piece *last_piece() noexcept;                // the last one that is not gone, or null
    bool ends_torn() noexcept;                   // the last line has no line feed
    void drop(piece &one, const char *mac, backup_line_told tell) noexcept;
    std::string_view text_of(const piece &one) const noexcept { return {bytes.data() + one.begin, one.text}; }

    sta_array<char> bytes;
    sta_array<piece> pieces;
    sta_mac_index macs; // of the pieces' texts
    bool short_ones_gone = true;
};
