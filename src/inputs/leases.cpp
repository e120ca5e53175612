#include "inputs/leases.h"

#include "inputs/snoop_copy.h"
#include "model/record.h"
#include "tools/command.h"
#include "tools/file.h"
#include "tools/health.h"
#include "tools/log.h"
#include "tools/mac_index.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <cstdio>
#include <cstdlib>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char *lease_file = "/tmp/dhcp.leases";
constexpr const char *snoop_file = sta_snoop_copy::path;

// What follows the MAC and one separator in `line`; null when the MAC is not in the line or ends it.
const char *after_mac(const char *line, const char *mac) {
    const char *at = std::strstr(line, mac);
    if (!at) return nullptr;
    at += std::strlen(mac);
    return *at == '\0' ? nullptr : at + 1;
}

// Length of the word at `at`: up to white space or the end, at most `most`.
std::size_t word_length(const char *at, std::size_t most) {
    return std::min(std::strcspn(at, " \r\n\t"), most);
}

// fgets reads a long line in pieces of size - 1 characters. Where the piece begins that holds the character at `at`, for a
// line that begins at `line`.
std::size_t piece_of(std::size_t line, std::size_t at, std::size_t size) {
    return line + (at - line) / (size - 1) * (size - 1);
}

} // namespace

// The file, read once for all look-ups of a walk.
struct sta_lease_snapshot::file {
    enum class outcome { missing, whole, unread };

    // Reads the file if that was not tried yet. `unread`: the look-up must read it itself.
    outcome read() noexcept {
        constexpr std::size_t most = 8 << 20;
        if (tried) return known;
        tried = true;
        const sta_file leases{std::fopen(lease_file, "re")};
        if (!leases)
            known = outcome::missing;
        else if (fstat(fileno(leases.get()), &status) == 0 && sta_read_all(leases.get(), bytes, most))
            known = outcome::whole;
        return known;
    }

    // Whether reading it again would give the same.
    bool is_still() const noexcept {
        struct stat now {};
        return known == outcome::whole && stat(lease_file, &now) == 0 && sta_same_file(now, status);
    }

    // Calls `visit` with the offset of each occurrence of `mac`, in file order, until it returns true.
    template <class Visit> void find(const char *mac, Visit visit) noexcept {
        constexpr unsigned searches_max = 16; // more searches than this cost as much as an index
        if (searches <= searches_max && ++searches > searches_max)
            indexed = macs.add(bytes.data(), 0, bytes.size(), 0); // without memory, searches go on
        if (indexed && sta_mac_index::is_mac(mac)) {
            macs.find(bytes.data(), mac, [&](const sta_mac_index::mention &one) { return visit(one.at); });
            return;
        }
        const std::size_t length = std::strlen(mac);
        for (std::size_t from = 0; from < bytes.size();) {
            const void *at = memmem(bytes.data() + from, bytes.size() - from, mac, length);
            if (!at) return;
            const auto offset = static_cast<std::size_t>(static_cast<const char *>(at) - bytes.data());
            if (visit(offset)) return;
            from = offset + 1;
        }
    }

    // Fills `piece` of `size` bytes as fgets would from offset `begin`.
    void cut(std::size_t begin, char *piece, std::size_t size) const noexcept {
        const std::size_t most = std::min(bytes.size() - begin, size - 1);
        void *behind = memccpy(piece, bytes.data() + begin, '\n', most);
        (behind ? static_cast<char *>(behind) : piece + most)[0] = '\0';
    }

    sta_array<char> bytes;

private:
    bool tried = false;
    bool indexed = false;
    outcome known = outcome::unread;
    struct stat status {};
    unsigned searches = 0;
    sta_mac_index macs;
};

sta_lease_snapshot::file *sta_lease_snapshot::current = nullptr;

sta_lease_snapshot::file *sta_lease_snapshot::kept = nullptr;

sta_lease_snapshot::file *sta_lease_snapshot::make() noexcept {
    void *room = std::malloc(sizeof(file)); // without memory every call reads the file itself
    return room ? new (room) file : nullptr;
}

void sta_lease_snapshot::free(file *copy) noexcept {
    if (!copy) return;
    copy->~file();
    std::free(copy);
}

sta_lease_snapshot::sta_lease_snapshot() noexcept {
    if (!current) mine = current = make();
}

sta_lease_snapshot::sta_lease_snapshot(of_events /*kind*/) noexcept {
    if (current) return;
    if (kept && !kept->is_still()) forget_kept();
    if (!kept) kept = make();
    mine = current = kept;
}

void sta_lease_snapshot::forget_kept() noexcept {
    free(kept);
    kept = nullptr;
}

sta_lease_snapshot::~sta_lease_snapshot() {
    if (!mine) return;
    current = nullptr;
    if (mine != kept) free(mine);
}

namespace {

using outcome = sta_lease_snapshot::file::outcome;

// Returns true to end the search. `found` is passed through to it.
using piece_taker = bool (*)(const char *piece, const char *mac, void *found);

// Reads the lease file in pieces, as fgets does with `piece` of `size` bytes, and passes at least the pieces that hold
// `mac` to `take`. A file that cannot be opened is logged in the name of `function`.
void search(const char *function, const char *mac, char *piece, std::size_t size, piece_taker take,
            void *found) {
    ++sta_health.lease_lookups;
    sta_lease_snapshot::file *shared = sta_lease_snapshot::shared();
    const outcome known = shared ? shared->read() : outcome::unread;
    if (known == outcome::whole) {
        const char *text = shared->bytes.data();
        std::size_t line = 0, looked = 0, last = SIZE_MAX;
        shared->find(mac, [&](std::size_t at) {
            // The line begins after the last line feed since the previous occurrence, if there is one.
            if (const void *feed = memrchr(text + looked, '\n', at - looked))
                line = static_cast<std::size_t>(static_cast<const char *>(feed) - text) + 1;
            looked = at;
            const std::size_t begin = piece_of(line, at, size);
            if (begin == last) return false; // this piece has been passed already
            last = begin;
            shared->cut(begin, piece, size);
            return take(piece, mac, found);
        });
        return;
    }
    const sta_file leases{known == outcome::unread ? std::fopen(lease_file, "re") : nullptr};
    if (!leases) {
        STA_LOG_AS(function, "%s open fail.\n", lease_file);
        return;
    }
    while (std::fgets(piece, static_cast<int>(size), leases.get()))
        if (take(piece, mac, found)) return;
}

} // namespace

int sta_get_ipaddr_by_dhcp_mac(char *out, const char *mac) {
    if (!out || !mac || *mac == '\0') return -1;
    char piece[64]; // longer lines are read in pieces, and each piece is searched separately
    struct result {
        char *out;
        bool found;
    } into = {out, false};
    constexpr const char *function = STA_NAME_OF(sta_get_ipaddr_by_dhcp_mac);
    search(
        function, mac, piece, sizeof(piece),
        [](const char *text, const char *wanted, void *given) {
            result &mine = *static_cast<result *>(given);
            const char *address = after_mac(text, wanted);
            const std::size_t length = address ? word_length(address, 15) : 0;
            if (length == 0) return false;
            std::memset(mine.out, 0, 17);
            std::memcpy(mine.out, address, length);
            STA_LOG_AS(function, "%s ipaddr found!\n", mine.out);
            return mine.found = true;
        },
        &into);
    return into.found ? 0 : -1;
}

char *sta_get_name_by_dhcp_mac(const char *mac) {
    if (!mac || *mac == '\0') {
        STA_ERROR("sta_tools", "mac is NULL!\n");
        return nullptr;
    }
    char line[1024];
    char *found = nullptr;
    constexpr const char *function = STA_NAME_OF(sta_get_name_by_dhcp_mac);
    search(
        function, mac, line, sizeof(line),
        [](const char *text, const char *wanted, void *given) {
            if (!std::strstr(text, wanted)) return false;
            const char *address = after_mac(text, wanted);
            const char *blank = address ? std::strchr(address, ' ') : nullptr;
            if (!blank) {
                STA_LOG_AS(function, "data error!\n");
                return true;
            }
            const char *rest = blank + 1;
            char name[65] = "";
            std::memcpy(name, rest, std::min(std::strcspn(rest, " \r\n"), sizeof(name) - 1));
            STA_LOG_AS(function, "hostname found.[%s]------->[%s]\n", rest, name);
            *static_cast<char **>(given) = sta_strdup(name);
            return true;
        },
        &found);
    return found;
}

int sta_get_ipaddr_by_snoop_mac(const char *mac, char *out) {
    if (!mac || *mac == '\0' || !out) return -1;
    using answer = sta_snoop_copy::outcome;
    const bool plain = sta_mac_is_plain(mac); // or it must not become part of a command
    char address[16];
    const sta_snoop_copy *shared = sta_snoop_copy::shared();
    const answer known = shared && plain ? shared->find(mac, address) : answer::unknown;
    if (known == answer::found) std::memcpy(out, address, sizeof(address));
    if (known == answer::found) return 0;
    if (known == answer::absent) return -1;
    if (known == answer::missing || access(snoop_file, F_OK) != 0) {
        STA_LOG("%s file no exist!\n", snoop_file);
        return -1;
    }
    if (!plain) return -1;
    char command[100];
    std::snprintf(command, sizeof(command), "cat %s | grep -iw %s | awk '{print $3}'", snoop_file, mac);
    char *line = sta_execute_buf("%s", command);
    sta_str_trim(line);
    const bool found = line && *line != '\0';
    if (found) {
        std::strncpy(out, line, 16); // pads a shorter text with zeros
        out[15] = '\0';
    }
    sta_free(line);
    return found ? 0 : -1;
}

char *sta_get_default_name() {
    char *name = static_cast<char *>(sta_malloc(sta_name_size));
    if (name) name[0] = '-';
    return name;
}

void sta_snoop_foreach_lan(void (*visit)(const char *mac, const char *ip)) {
    if (!visit) return;
    const sta_file snoop{std::fopen(snoop_file, "re")};
    if (!snoop) return;
    char line[255];
    while (std::fgets(line, sizeof(line), snoop.get())) {
        char first[255], mac[255], ip[255], interface[255];
        if (std::sscanf(line, "%254s %254s %254s %254s", first, mac, ip, interface) < 4) continue;
        if (std::strcmp(interface, "br-lan") == 0) visit(mac, ip);
    }
}
