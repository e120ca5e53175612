// reader.h - the words of configuration files, delta files and batch input.
//
// A line is logical: quotes and continuations take in as many lines of the file as they need. Words are
// unquoted in place, so a word is an offset into the line; text() is valid until the next word is read.
#pragma once

#include <uci.h>

#include <cstddef>

namespace uci {

class reader {
public:
    // The meaning of ";" where a word could start.
    enum class semicolon {
        empty_word, // it is an empty word, and the line continues after it: it separates commands
        ends_line
    };

    explicit reader(semicolon rule) : rule_(rule) {}
    reader(reader &&) = delete;
    ~reader();

    // Drops what is left of the line and fetches the next one. UCI_OK, UCI_ERR_NOTFOUND at the end of the
    // file, UCI_ERR_IO, UCI_ERR_MEM.
    int next_line(FILE *file);

    // Reads a word; *word is its place for text(). UCI_OK also for the empty word, which is what the end of the
    // line holds. UCI_ERR_PARSE with reason() for a quote that is still open at the end of the file;
    // UCI_ERR_IO, UCI_ERR_MEM.
    int word(FILE *file, std::size_t *word);

    // Takes the characters up to a blank unchanged, including quotes, and skips the blank. Not at the end.
    std::size_t plain_word();

    void skip_space();
    void skip_blanks(); // space and tab only

    bool at_end() const { return pos_ >= end_; }
    bool cut() const { return cut_; } // a comment or a semicolon has ended the line before its end
    bool at_comment() const { return !at_end() && text_[pos_] == '#'; }
    std::size_t pos() const { return pos_; }
    void seek(std::size_t pos) { pos_ = pos < end_ ? pos : end_; }

    char *text(std::size_t place) { return text_ + place; }
    std::size_t place_of(const char *text) const { return static_cast<std::size_t>(text - text_); }
    bool holds(const char *text) const { return text_ && text >= text_ && text <= text_ + end_; }

    int lines() const { return lines_; }           // read so far, counting those that end in a line feed
    const char *reason() const { return reason_; } // of the last UCI_ERR_PARSE

private:
    int append_line(FILE *file);
    int continue_line(FILE *file);
    int escape(FILE *file);
    int quoted(FILE *file, char quote);
    void keep_until(const char *stops);
    int fail(const char *reason);
    void cut_here();

    char *text_ = nullptr; // the logical line, text_[end_] is NUL
    std::size_t room_ = 0;
    std::size_t end_ = 0;
    std::size_t pos_ = 0;  // next byte to read
    std::size_t out_ = 0;  // next byte of the word that is being unquoted; never behind pos_
    char *more_ = nullptr; // a further line, before it is appended
    std::size_t more_room_ = 0;
    bool cut_ = false;
    int lines_ = 0;
    semicolon rule_;
    const char *reason_ = nullptr;
};

} // namespace uci
