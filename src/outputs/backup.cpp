#include "outputs/backup.h"

#include "inputs/network.h"
#include "model/table.h"
#include "outputs/backup_gap.h"
#include "outputs/backup_known.h"
#include "outputs/backup_line_of.h"
#include "outputs/backup_lines.h"
#include "tools/descriptor.h"
#include "tools/file.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <fcntl.h>
#include <memory>
#include <new>

namespace {

constexpr const char *backup_file = sta_backup_file;
constexpr const char *temporary_file = sta_backup_temporary_file;
constexpr const char *counter_file = "/tmp/sta_devc.info";

// Log lines carry the name of the exported function, whichever code does its work.
constexpr const char *del_function = STA_NAME_OF(sta_sta_users_backup_del);

// Logs why a line was left out of the file. The end of the file counts as an empty line.
void tell_dropped(const char *mac, std::string_view text, bool too_short) {
    if (too_short)
        STA_LOG_AS(del_function, "The sta is error:%.*s", static_cast<int>(text.size()), text.data());
    else
        STA_LOG_AS(del_function, "%s found!\n", mac);
}

bool is_deletable(const char *mac) {
    if (mac && *mac != '\0') return true; // an empty text would match, and so remove, every line
    STA_LOG_AS(del_function, "macaddr is NULL!\n");
    return false;
}

bool write_span(const char *begin, const char *end, std::FILE *to) {
    const auto length = static_cast<std::size_t>(end - begin);
    return length == 0 || std::fwrite(begin, 1, length, to) == length;
}

// Copies a file without the lines of a MAC, and logs those. Adjacent lines are copied together.
class line_remover {
public:
    explicit line_remover(const char *mac) noexcept
        : mac_(mac), mac_length_(std::strlen(mac)), room_(static_cast<char *>(std::malloc(most))) {}

    // False when not every byte could be written. A read error counts as the end of the file.
    bool copy(std::FILE *from, std::FILE *to) noexcept {
        char little[2 * backup_line_max];
        char *buffer = room_ ? room_.get() : little; // without memory: smaller steps
        const std::size_t size = room_ ? most : sizeof(little);
        bool well = true;
        bool ended = false; // end of file
        bool torn = false;  // the last line has no line feed
        for (std::size_t have = 0; !ended;) {
            const std::size_t got = std::fread(buffer + have, 1, size - have, from);
            ended = got < size - have;
            have += got;
            const std::size_t used = copy_lines(buffer, have, ended, torn, to, well);
            have -= used;
            std::memmove(buffer, buffer + used, have);
        }
        if (!torn) tell_dropped(mac_, "", true);
        return well;
    }

private:
    static constexpr std::size_t most = 32768;

    // Copies the complete lines of `have` bytes; all bytes when the file has `ended`. Returns how many it used.
    std::size_t copy_lines(const char *buffer, std::size_t have, bool ended, bool &torn, std::FILE *to,
                           bool &well) const noexcept {
        const char *const end = buffer + have;
        const char *kept = buffer;     // start of what is still to be written
        const char *mention = nullptr; // the next occurrence of the MAC; `end`: there is none
        const bool has_nul = std::memchr(buffer, '\0', have) != nullptr;
        const char *line = buffer;
        while (line < end) {
            const auto reach = std::min(static_cast<std::size_t>(end - line), backup_line_max);
            const auto *feed = static_cast<const char *>(std::memchr(line, '\n', reach));
            if (!feed && reach < backup_line_max) {
                if (!ended) break;
                torn = true;
            }
            const char *next = feed ? feed + 1 : line + reach;
            const auto length = static_cast<std::size_t>(next - line);
            const std::size_t text = has_nul ? strnlen(line, length) : length;
            if (!mention || mention < line) {
                mention = static_cast<const char *>(
                    memmem(line, static_cast<std::size_t>(end - line), mac_, mac_length_));
                if (!mention) mention = end;
            }
            const bool too_short = text < backup_line_least;
            if (too_short || (mention < next && mention + mac_length_ <= line + text)) {
                well = write_span(kept, line, to) && well;
                kept = next;
                tell_dropped(mac_, {line, text}, too_short);
            }
            line = next;
        }
        well = write_span(kept, line, to) && well;
        return static_cast<std::size_t>(line - buffer);
    }

    struct freer {
        void operator()(char *room) const noexcept { std::free(room); }
    };
    const char *mac_;
    std::size_t mac_length_;
    std::unique_ptr<char, freer> room_;
};

// The lines of the file, as long as no other program writes it.
backup_known known;

// Writes the lines that are left: the first `old_lines` from the file, the others from `added`.
bool write_known(std::FILE *to, std::size_t old_lines, const sta_array<char> &added) {
    const auto write_left = [&](const char *line, std::size_t first, std::size_t end) {
        const char *kept = line; // begins what is still to be written
        for (; first < end; ++first) {
            const char *next_line = line + known.length(first);
            if (known.is_gone(first)) {
                if (!write_span(kept, line, to)) return false;
                kept = next_line;
            }
            line = next_line;
        }
        return write_span(kept, line, to);
    };
    bool is_left = false;
    for (std::size_t i = 0; i < old_lines && !is_left; ++i) is_left = !known.is_gone(i);
    sta_array<char> old;
    if (is_left) {
        const std::size_t had = known.place(old_lines);
        const sta_file from{std::fopen(backup_file, "re")};
        if (!from || !sta_read_all(from.get(), old, had) || old.size() != had ||
            !write_left(old.data(), 0, old_lines))
            return false;
    }
    return write_left(added.data(), old_lines, known.size());
}

// Writes the file under the temporary name and renames it. Any user may have put a link there: it is removed, and its target is not
// touched.
template <class Write> bool replace_file(Write write) {
    (void)unlink(temporary_file);
    bool written = false;
    if (const sta_file file{std::fopen(temporary_file, "wxe")}) {
        written = write(file.get()) && sta_flush(file.get());
        if (!written) STA_LOG_AS(del_function, "%s write error.\n", backup_file);
    } else {
        STA_LOG_AS(del_function, "%s open fail.\n", temporary_file);
    }
    if (written && std::rename(temporary_file, backup_file) != 0) {
        STA_LOG_AS(del_function, "%s rename error.\n", temporary_file);
        return false;
    }
    if (!written) (void)unlink(temporary_file); // the old file stays complete
    return written;
}

bool is_held = false;
bool (*more_waits)() noexcept = nullptr;
std::size_t held_lines = 0; // removed lines that are still in the file

// Takes the removed lines out of the file: a single one in place, several by writing a new file; if that fails, for example on a full
// disk, one after the other in place.
void settle() {
    if (held_lines == 0) return;
    const bool several = held_lines > 1;
    held_lines = 0;
    if (several) {
        if (!known.is_still(backup_file)) return known.forget(); // another program has written it
        if (replace_file([](std::FILE *to) { return write_known(to, known.size(), {}); })) {
            known.pack();
            return known.is_written(backup_file);
        }
    }
    const descriptor file{open(backup_file, O_RDWR | O_NOFOLLOW | O_CLOEXEC)};
    bool well = known.is_still(file.get());
    if (!well && !several) return known.forget();
    for (std::size_t i = known.size(); well && i-- > 0;) {
        if (!known.is_gone(i) || known.length(i) == 0) continue;
        well = sta_backup_close_gap(file.get(), static_cast<off_t>(known.place(i)),
                                    static_cast<off_t>(known.length(i)),
                                    static_cast<off_t>(known.length_of_all()));
        known.take_out(i);
    }
    if (well) return known.is_written(backup_file);
    known.forget();
    STA_LOG_AS(del_function, "%s write error.\n", backup_file);
}

// A station that is reported as gone must not come back after a restart: its line starts with a NUL as long as it is held.
void mark_held(std::size_t line) {
    const descriptor file{open(backup_file, O_WRONLY | O_NOFOLLOW | O_CLOEXEC)};
    if (!known.is_still(file.get()) || pwrite(file.get(), "", 1, static_cast<off_t>(known.place(line))) != 1)
        return;
    known.is_written(backup_file);
}

// Removes the MAC's line in place. False when its place is not known: nothing has been done then.
bool remove_known(const char *mac) {
    constexpr std::size_t many = 64;
    const backup_known::mac_number number = backup_known::number_of(mac);
    struct stat in_the_way {};
    if (number == backup_known::no_mac || !known.is_still(backup_file) ||
        lstat(temporary_file, &in_the_way) == 0)
        return false;
    if (const std::size_t line = known.find(number, 0); line != backup_known::none) {
        tell_dropped(mac, "", false);
        known.remove(line);
        ++held_lines;
        const bool is_alone = held_lines == 1 && more_waits && !more_waits();
        if (!is_held || is_alone || held_lines == many)
            settle();
        else
            mark_held(line);
    }
    tell_dropped(mac, "", true);
    return true;
}

// Called after each attempt to write the file: gives one notice when writing begins to fail.
void backup_written(bool well) {
    static bool said = false;
    if (well)
        said = false;
    else if (sta_first(said))
        STA_NOTICE("%s cannot be written: a restart would lose stations\n", backup_file);
}

} // namespace

void sta_sta_users_backup_add(sta_info_t *sta) {
    if (!sta || sta->mac[0] == '\0') return;
    settle();
    const sta_file file{std::fopen(backup_file, "a+e")};
    if (!file || sta->no_backup) return;
    sta_configuration configuration;
    char line[sta_backup_line_size];
    const std::size_t length = sta_make_backup_line(sta, configuration, line);
    (void)std::fwrite(line, 1, length, file.get()); // when the disk is full the line is lost, not the station
    if (!sta_flush(file.get())) STA_LOG("%s write error.\n", backup_file);
}

void sta_sta_users_backup_del(const char *mac) {
    if (!is_deletable(mac) || remove_known(mac)) return;
    settle();
    if (access(backup_file, F_OK) != 0) {
        STA_LOG("%s no found!\n", backup_file);
        return;
    }
    if (std::rename(backup_file, temporary_file) != 0) {
        STA_LOG("%s rename error.\n", temporary_file);
        return;
    }
    {
        const sta_file from{std::fopen(temporary_file, "re")};
        if (!from) {
            STA_LOG("%s open fail.\n", temporary_file);
            return;
        }
        const sta_file to{std::fopen(backup_file, "ae")};
        if (!to) {
            STA_LOG("%s open fail.\n", backup_file);
            return;
        }
        // Reads and writes are large: the C library's buffers would only copy them.
        (void)std::setvbuf(from.get(), nullptr, _IONBF, 0);
        (void)std::setvbuf(to.get(), nullptr, _IONBF, 0);
        if (!line_remover{mac}.copy(from.get(), to.get())) {
            // Better to keep one line too many than to lose the other stations' lines.
            STA_LOG("%s write error.\n", backup_file);
            if (std::rename(temporary_file, backup_file) != 0) STA_LOG("%s rename error.\n", temporary_file);
            return;
        }
    }
    if (std::remove(temporary_file) != 0) STA_LOG("%s remove error.\n", backup_file);
}

void sta_sta_users_backup_update(sta_info_t *sta) {
    if (!sta) return;
    sta_sta_users_backup_del(sta->mac);
    sta_sta_users_backup_add(sta);
}

void sta_backup_hold(bool held, bool (*more)() noexcept) noexcept {
    is_held = held;
    more_waits = more;
    if (!held) settle();
}

bool sta_backup_holds_lines() noexcept { return held_lines > 0; }

void sta_sta_load_devc() {
    if (access(counter_file, F_OK) != 0) STA_LOG("sta devc info is null.\n");
    const sta_file file{std::fopen(counter_file, "a+e")};
    if (!file) return;
    std::rewind(file.get()); // the C library decides where reading a file opened for appending starts
    char line[256];
    while (std::fgets(line, sizeof(line), file.get())) {
        std::int32_t *count = g_sta_sta_master.device_count;
        // NOLINTNEXTLINE(cert-err34-c): a line of garbage leaves the counters as they are
        (void)std::sscanf(line, "%d %d %d %d", &count[0], &count[1], &count[2], &count[3]);
    }
}

void sta_sta_save_devc() {
    const sta_file file{std::fopen(counter_file, "w+e")};
    if (!file) return;
    std::fprintf(file.get(), "%d %d %d %d %d\n", 0, 0, 0, 0, g_sta_sta_master.online);
    if (!sta_flush(file.get())) STA_LOG("%s write error.\n", counter_file);
}

struct sta_backup_pass::state {
    bool is_known = false; // the file's lines are known, so it need not be read
    bool exists = false;   // the file exists, or would after the calls so far

    backup_lines lines; // if the file was read

    std::size_t old_lines = 0; // if its lines are known: their number
    std::size_t next = 0;      // where the next search begins: a walk asks for one line after the other
    sta_array<char> added;     // the text of the lines added after them

    bool open();
    void remove(const char *mac, backup_known::mac_number number);
    bool add(const char *mac, backup_known::mac_number number, std::string_view line);
    bool write(std::FILE *to) const;
    void learn() const;
};

bool sta_backup_pass::state::open() {
    settle();
    if (known.is_still(backup_file)) {
        known.pack();
        (void)added.reserve(known.length_of_all() +
                            sta_backup_line_size); // in one step: usually all lines are rewritten
        known.forget();                            // until the new file is written
        old_lines = known.size();
        is_known = exists = true;
        return true;
    }
    known.forget();
    const sta_file file{std::fopen(backup_file, "re")};
    if (file && !lines.read(file.get())) return false; // a file that was read in part is not rewritten
    exists = file != nullptr;
    return true;
}

void sta_backup_pass::state::remove(const char *mac, backup_known::mac_number number) {
    if (!is_known) {
        lines.remove(mac, tell_dropped);
        return;
    }
    if (const std::size_t line = known.find(number, next); line != backup_known::none) {
        known.remove(line);
        next = line + 1;
        tell_dropped(mac, "", false);
    }
    tell_dropped(mac, "", true);
}

// False for a line whose MAC and place cannot be remembered.
bool sta_backup_pass::state::add(const char *mac, backup_known::mac_number number, std::string_view line) {
    if (!is_known) {
        (void)lines.append(line.data(), line.size());
        return true;
    }
    if (number == backup_known::no_mac || !backup_known::is_line_of(line, mac) ||
        !added.append(line.data(), line.size()))
        return false;
    if (known.add(number, line.size())) return true;
    added.cut(added.size() - line.size());
    return false;
}

bool sta_backup_pass::state::write(std::FILE *to) const {
    if (!is_known) return lines.write(to);
    return write_known(to, old_lines, added);
}

// Remembers the lines of the file just written, if that is possible.
void sta_backup_pass::state::learn() const {
    if (is_known) {
        known.pack();
    } else {
        known.clear();
        const bool all = lines.for_each([&](std::string_view line) {
            const std::string_view mac = backup_known::mac_of_line(line);
            const backup_known::mac_number number = backup_known::number_of(mac);
            return number != backup_known::no_mac && lines.has_once(mac.data()) &&
                   known.add(number, line.size());
        });
        if (!all) return;
    }
    known.is_written(backup_file);
}

sta_backup_pass::~sta_backup_pass() { close(); }

void sta_backup_pass::close() {
    if (!now) return;
    bool written = false;
    if (now->exists) {
        written = replace_file([this](std::FILE *to) { return now->write(to); });
        if (written) now->learn();
        backup_written(written);
    }
    now->~state();
    std::free(now);
    now = nullptr;
}

bool sta_backup_pass::is_open() {
    if (single || now) return !single;
    void *room = std::malloc(sizeof(state));
    now = room ? new (room) state : nullptr;
    single = !now || !now->open();
    return !single;
}

bool sta_backup_pass::read_instead() {
    close();
    known.forget();
    return is_open();
}

void sta_backup_pass::remove(const char *mac) {
    remove(mac, mac ? backup_known::number_of(mac) : backup_known::no_mac);
}

void sta_backup_pass::remove(const char *mac, std::uint64_t number) {
    if (!is_open() || (now->is_known && mac && number == backup_known::no_mac && !read_instead())) {
        sta_sta_users_backup_del(mac);
    } else if (is_deletable(mac)) {
        if (now->exists)
            now->remove(mac, number);
        else
            STA_LOG_AS(del_function, "%s no found!\n", backup_file);
    }
}

void sta_backup_pass::update(sta_info_t *sta, sta_configuration &configuration) {
    if (!is_open()) {
        sta_sta_users_backup_update(sta);
        return;
    }
    const backup_known::mac_number number = backup_known::number_of(sta->mac);
    remove(sta->mac, number);
    if (single) sta_sta_users_backup_add(sta);
    if (single || sta->mac[0] == '\0') return;
    now->exists = true;
    if (sta->no_backup) return;
    char line[sta_backup_line_size];
    const std::size_t length = sta_make_backup_line(sta, configuration, line);
    // Without memory this line is lost until the next pass.
    if (!now->add(sta->mac, number, {line, length}) && read_instead())
        (void)now->add(sta->mac, number, {line, length});
}
