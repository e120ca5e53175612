#include "record/watched_files.h"

#include "record/recorder.h"
#include "record/uci_options.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Identifies a version of the content.
struct identity {
    bool exists;
    ino_t inode;
    off_t size;
    std::int64_t modified; // ns
};

identity known[std::size(recorded_places)];
char wireless_path[32] = "/etc/config/wireless"; // as long as the daemon's

const char *path_of(const recorded_place &place) {
    return place.number == file_wireless ? wireless_path : place.path;
}

identity look_at(const char *path) {
    struct stat now {};
    if (stat(path, &now) != 0) return {};
    return {true, now.st_ino, now.st_size,
            std::int64_t{now.st_mtim.tv_sec} * 1000000000 + now.st_mtim.tv_nsec};
}

bool same(const identity &a, const identity &b) {
    return a.exists == b.exists && a.inode == b.inode && a.size == b.size && a.modified == b.modified;
}

struct content {
    char *text = nullptr; // malloc'd
    std::size_t size = 0;
    file_state state = file_absent;
    content() = default;
    content(content &&) = delete;
    ~content() { std::free(text); }
};

void read_whole(const char *path, content &into) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return;
    std::size_t room = 0;
    for (ssize_t got = 1; got > 0; into.size += static_cast<std::size_t>(std::max<ssize_t>(got, 0))) {
        if (into.size == room) {
            if (room == file_size_max) break;
            room = std::min(room ? 4 * room : 4096, file_size_max);
            char *grown = static_cast<char *>(std::realloc(into.text, room));
            if (!grown) break; // cut
            into.text = grown;
        }
        do got = read(fd, into.text + into.size, room - into.size);
        while (got < 0 && errno == EINTR);
        if (got == 0) into.state = file_whole;
    }
    if (into.state != file_whole && into.size > 0) into.state = file_cut;
    close(fd);
}

// The daemon takes the path of the wireless package from the capability file.
void take_wireless_path(const content &capability) {
    constexpr char name[] = "\"wireless_path\"";
    const char *end = capability.text + capability.size;
    const char *at =
        capability.text
            ? static_cast<const char *>(memmem(capability.text, capability.size, name, sizeof(name) - 1))
            : nullptr;
    if (!at) return;
    at = std::find(at + sizeof(name) - 1, end, '"');
    if (at == end) return;
    char folder[sizeof(wireless_path)] = "";
    std::size_t length = 0;
    for (++at; at < end && *at != '"' && length < sizeof(folder) - 1; ++at)
        if (*at != '\\') folder[length++] = *at; // of an escaped slash
    std::snprintf(wireless_path, sizeof(wireless_path), "%s/wireless", folder);
}

void take(const recorded_place &place, std::uint64_t time) {
    content found;
    read_whole(path_of(place), found);
    if (place.number == file_capability) take_wireless_path(found);
    if (place.is_uci) found.size = keep_known_options(found.text, found.size);
    std::uint8_t header[file_header];
    wire::put(header + file_number_offset, static_cast<std::uint16_t>(place.number));
    wire::put(header + file_state_offset, static_cast<std::uint16_t>(found.state));
    recorder_write(record_file, time,
                   {recorder_part(header, sizeof(header)), recorder_part(found.text, found.size)});
}

} // namespace

void watched_files_take_all() noexcept {
    for (std::size_t i = 0; i < std::size(recorded_places); ++i) {
        known[i] = look_at(path_of(recorded_places[i]));
        take(recorded_places[i], 0);
    }
}

void watched_files_look() noexcept {
    const int reason = errno;
    const std::uint64_t now = recorder_now();
    for (std::size_t i = 0; i < std::size(recorded_places); ++i) {
        if (recorded_places[i].at_start) continue;
        const identity seen = look_at(path_of(recorded_places[i]));
        if (same(seen, known[i])) continue;
        known[i] = seen;
        const std::int64_t changed = seen.exists ? seen.modified / 1000 - recorder_wall_start() : -1;
        take(recorded_places[i],
             std::clamp<std::uint64_t>(changed < 0 ? now : static_cast<std::uint64_t>(changed), 0, now));
    }
    errno = reason;
}
