#include "reader.h"

#include "text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace uci {
namespace {

// One line of the file with its line feed, up to a NUL byte if there is one: texts end there.
int fetch(FILE *file, char **line, std::size_t *room, std::size_t *length, int *lines) {
    const ssize_t n = getline(line, room, file);
    if (n < 0) {
        if (std::feof(file)) return UCI_ERR_NOTFOUND;
        return errno == ENOMEM ? UCI_ERR_MEM : UCI_ERR_IO;
    }
    if ((*line)[n - 1] == '\n') ++*lines;
    *length = std::strlen(*line);
    return UCI_OK;
}

} // namespace

reader::~reader() {
    std::free(text_);
    std::free(more_);
}

int reader::next_line(FILE *file) {
    pos_ = end_ = 0;
    cut_ = false;
    return fetch(file, &text_, &room_, &end_, &lines_);
}

int reader::append_line(FILE *file) {
    std::size_t n = 0;
    if (const int rc = fetch(file, &more_, &more_room_, &n, &lines_)) return rc;
    if (room_ - end_ <= n) {
        const std::size_t room = 2 * (end_ + n + 1);
        auto *grown = static_cast<char *>(std::realloc(text_, room));
        if (!grown) return UCI_ERR_MEM;
        text_ = grown;
        room_ = room;
    }
    std::memcpy(text_ + end_, more_, n + 1);
    end_ += n;
    return UCI_OK;
}

// A backslash before the line feed: both vanish, and the next line, if there is one, takes their place.
int reader::continue_line(FILE *file) {
    end_ = pos_;
    text_[end_] = '\0';
    const int rc = append_line(file);
    return rc == UCI_ERR_NOTFOUND ? UCI_OK : rc;
}

int reader::escape(FILE *file) {
    ++pos_;
    const char *rest = text_ + pos_;
    if (std::strcmp(rest, "\n") == 0 || std::strcmp(rest, "\r\n") == 0) return continue_line(file);
    if (!at_end()) text_[out_++] = text_[pos_++];
    return UCI_OK;
}

// Takes bytes into the word up to the first of stops, or to the end.
void reader::keep_until(const char *stops) {
    const std::size_t n = std::strcspn(text_ + pos_, stops);
    if (out_ != pos_) std::memmove(text_ + out_, text_ + pos_, n);
    out_ += n;
    pos_ += n;
}

int reader::quoted(FILE *file, char quote) {
    const bool is_double = quote == '"';
    for (++pos_;;) {
        keep_until(is_double ? "\"\\" : "'");
        int rc = UCI_OK;
        if (at_end()) {
            rc = append_line(file);
            if (rc == UCI_ERR_NOTFOUND)
                return fail(is_double ? "EOF with unterminated \"" : "EOF with unterminated '");
        } else if (text_[pos_] == quote) {
            ++pos_;
            return UCI_OK;
        } else {
            rc = escape(file);
        }
        if (rc) return rc;
    }
}

int reader::word(FILE *file, std::size_t *word) {
    skip_space();
    *word = out_ = pos_;
    if (!at_end() && text_[pos_] == ';' && rule_ == semicolon::empty_word) {
        text_[pos_++] = '\0';
        return UCI_OK;
    }
    for (bool more = true; more && !at_end();) {
        keep_until(" \t\n\v\f\r;#'\"\\");
        if (at_end()) break;
        int rc = UCI_OK;
        switch (const char c = text_[pos_]) {
        case '\'':
        case '"': rc = quoted(file, c); break;
        case '\\': rc = escape(file); break;
        case '#': cut_here(); break;
        case ';':
            // After a word without quotes its terminator replaces the semicolon: the line ends there.
            if (out_ == pos_) cut_here();
            more = false;
            break;
        default: // white space goes with the word
            ++pos_;
            more = false;
        }
        if (rc) return rc;
    }
    text_[out_] = '\0';
    return UCI_OK;
}

std::size_t reader::plain_word() {
    const std::size_t start = pos_;
    while (!at_end() && !is_blank(text_[pos_])) ++pos_;
    if (!at_end()) text_[pos_++] = '\0';
    return start;
}

void reader::skip_space() {
    while (!at_end() && is_space(text_[pos_])) ++pos_;
}

void reader::skip_blanks() {
    while (!at_end() && is_blank(text_[pos_])) ++pos_;
}

void reader::cut_here() {
    end_ = pos_;
    cut_ = true;
}

int reader::fail(const char *reason) {
    reason_ = reason;
    return UCI_ERR_PARSE;
}

} // namespace uci
