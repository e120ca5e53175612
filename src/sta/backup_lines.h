// backup_lines.h - the station backup file in memory, for a pass that rewrites every station's line.
//
// Rewriting one line costs the whole file; done for each of n stations that grows with the square of n. Here
// the file is read once, each removal looks its lines up by MAC, and the file is written once. What remains
// is byte for byte what the single operations of sta_backup would have left, and whoever asks is told of the
// same lines in the same order.
//
// Lines:  as the single operation reads them: up to a line feed, at most 1023 bytes; a text ends at its first
//         NUL.
// Memory: plain malloc, given back by the destructor. Every operation that needs some can fail.
#pragma once

#include "tools/sta_array.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

inline constexpr std::size_t backup_line_max = 1023; // bytes read at once
inline constexpr std::size_t backup_line_least = 36; // a shorter text is no station's line

// What became of a line, told in file order. `text` is terminated and good during the call only.
using backup_line_told = void (*)(const char *mac, const char *text, bool too_short);

class backup_lines {
public:
    // Takes all of `file`. False without memory or when reading fails.
    bool read(std::FILE *file) noexcept;

    // Removes every line that is too short or holds `mac` (17 characters or any other text), and tells of
    // each. At the end tells of one empty line where the single operation reads it: when the last line was a
    // whole one, or there was none.
    void remove(const char *mac, backup_line_told tell) noexcept;

    // Appends a line of `length` bytes. False without memory.
    bool append(const char *line, std::size_t length) noexcept;

    // Writes what is left. False when not every byte was taken.
    bool write(std::FILE *file) const noexcept;

private:
    struct piece {
        std::size_t begin, length; // in `bytes`; each piece is followed by a NUL of its own
        bool gone;
    };
    struct mention { // of a MAC in a piece
        std::size_t at;
        std::size_t piece;
        std::size_t next; // in the same bucket, later in the file
    };
    struct bucket {
        std::size_t first, last;
    };
    static constexpr std::size_t none = SIZE_MAX;

    bool add_piece(const char *text, std::size_t length) noexcept;
    bool add_pieces(const char *text, std::size_t length) noexcept;
    bool index_piece(std::size_t number) noexcept;
    bool link_mention(std::size_t number) noexcept;
    bool rebuild_buckets() noexcept;
    piece *last_piece() noexcept; // the last one that is not gone, or null
    bool ends_torn() noexcept;    // the last line has no line feed
    bool is_short(const piece &one) const noexcept;
    void drop(piece &one, const char *mac, bool too_short, backup_line_told tell) noexcept;
    const char *text_of(const piece &one) const noexcept { return bytes.data() + one.begin; }

    sta_array<char> bytes;
    sta_array<piece> pieces;
    sta_array<mention> mentions;
    sta_array<bucket> buckets; // a power of two
    bool short_ones_gone = false;
};
