#include "outputs/backup_gap.h"

#include "tools/array.h"
#include "tools/descriptor.h"
#include "tools/file.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The note of a move. An incomplete one may consist of its NUL only.
struct gap_note {
    std::size_t begin; // of the note in the file
    std::size_t at, length;
};

constexpr std::size_t note_max = 64;

bool write_note(int file, off_t at, off_t length, off_t end) {
    char note[note_max] = "";
    const int text = std::snprintf(note + 1, sizeof(note) - 1, "gap %lld %lld\n", static_cast<long long>(at),
                                   static_cast<long long>(length));
    const auto size = static_cast<std::size_t>(text) + 1;
    return pwrite(file, note, size, end) == static_cast<ssize_t>(size);
}

// Finds the note at the end of the file. False if there is none; an incomplete note has the length 0.
bool find_note(const sta_array<char> &bytes, gap_note &note) {
    const char *const begin = bytes.data(), *const end = begin + bytes.size();
    const char *last = end; // the beginning of the last line
    if (last != begin && last[-1] == '\n') --last;
    while (last != begin && last[-1] != '\n') --last;
    if (last == end || *last != '\0') return false;
    note = {static_cast<std::size_t>(last - begin), 0, 0};
    char text[note_max] = "";
    std::memcpy(text, last + 1, std::min(sizeof(text) - 1, static_cast<std::size_t>(end - last - 1)));
    unsigned long long at = 0, length = 0;
    char feed = '\0';
    // NOLINTNEXTLINE(cert-err34-c): what does not fit is no place in the file
    if (std::sscanf(text, "gap %llu %llu%c", &at, &length, &feed) == 3 && feed == '\n' && at <= note.begin &&
        length <= note.begin - at)
        note = {note.begin, static_cast<std::size_t>(at), static_cast<std::size_t>(length)};
    return true;
}

// Where the gap is now, that is, the bytes to be removed. The bytes that have been moved stand before it; the last `length` of them stand
// in the gap, too, because nothing has overwritten them there. No other part of the file is repeated directly after itself, since
// every line has a MAC of its own. As long as fewer bytes have been moved, nothing after the original place has been overwritten.
std::size_t place_of_gap(const sta_array<char> &bytes, const gap_note &note) {
    std::size_t same = 0;
    for (std::size_t i = note.at; i + note.length < note.begin; ++i) {
        same = bytes[i] == bytes[i + note.length] ? same + 1 : 0;
        if (same == note.length) return i + 1;
    }
    return note.at;
}

// Writes the file without the gap and the note, under the temporary name first.
bool write_anew(const char *path, const char *temporary, const sta_array<char> &bytes, const gap_note &note) {
    const std::size_t gap = place_of_gap(bytes, note), behind = gap + note.length;
    (void)unlink(temporary);
    const sta_file file{std::fopen(temporary, "wxe")};
    const bool well =
        file && std::fwrite(bytes.data(), 1, gap, file.get()) == gap &&
        std::fwrite(bytes.data() + behind, 1, note.begin - behind, file.get()) == note.begin - behind &&
        sta_flush(file.get());
    return well && std::rename(temporary, path) == 0;
}

// Reads only the end of the file: usually there is no note.
bool may_end_with_note(const char *path) {
    char end[note_max];
    const descriptor file{open(path, O_RDONLY | O_CLOEXEC)};
    struct stat status {};
    if (fstat(file.get(), &status) != 0) return false;
    const off_t from = std::max<off_t>(0, status.st_size - static_cast<off_t>(sizeof(end)));
    const ssize_t got = pread(file.get(), end, sizeof(end), from);
    return got > 0 && std::memchr(end, '\0', static_cast<std::size_t>(got));
}

// Whether the file with the temporary name is the complete one: a removal by copying was interrupted, and the other file is missing or
// only a part of it. If a pass was interrupted instead, the temporary file is cut off at its end, and the other one is complete.
// A file of another user is none of ours: the folder is open to everybody.
bool lies_aside(const char *path, const char *temporary) {
    struct stat whole {
    }, part{};
    if (lstat(temporary, &whole) != 0 || !S_ISREG(whole.st_mode) || whole.st_uid != geteuid()) return false;
    if (lstat(path, &part) != 0) return true;
    if (part.st_size >= whole.st_size) return false;
    const sta_file file{std::fopen(temporary, "re")};
    return file && std::fseek(file.get(), -1, SEEK_END) == 0 && std::getc(file.get()) == '\n';
}

} // namespace

bool sta_backup_close_gap(int file, off_t at, off_t length, off_t size) noexcept {
    char bytes[16384];
    const off_t end = size - length;
    // On a full disk there is no room for the note: the line is removed without one.
    if (at < end && !write_note(file, at, length, size) && ftruncate(file, size) != 0) return false;
    while (at < end) {
        const ssize_t got = pread(
            file, bytes, static_cast<std::size_t>(std::min<off_t>(sizeof(bytes), end - at)), at + length);
        if (got <= 0 || pwrite(file, bytes, static_cast<std::size_t>(got), at) != got) return false;
        at += got;
    }
    return ftruncate(file, end) == 0;
}

void sta_backup_mend(const char *path, const char *temporary) noexcept {
    if (lies_aside(path, temporary)) (void)std::rename(temporary, path);
    if (!may_end_with_note(path)) return;
    const sta_file file{std::fopen(path, "re")};
    sta_array<char> bytes;
    gap_note note{};
    if (!file || !sta_read_all(file.get(), bytes, SIZE_MAX) || bytes.size() == 0 || !find_note(bytes, note))
        return;
    (void)write_anew(path, temporary, bytes, note);
}
