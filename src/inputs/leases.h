// leases.h - stations' addresses and names from the DHCP server's lease file and the snooping table.
//
// Source: "/tmp/dhcp.leases", lines "<expiry> <mac> <address> <host name> <client id>"; "/tmp/snoop_ip_bak",
//         lines "<x> <mac> <address> <interface>". Both belong to other programs and may hold anything.
// Keys:   the MAC. In the lease file it is searched as plain text anywhere in the line, case-sensitive; in
//         the snooping table as a whole word in either case.   Changes: no file.
#pragma once

extern "C" {

// Copies the leased address of `mac` into `out` (17 bytes: at most 15 characters, the rest zeroed) and
// returns 0. -1 when there is none: `out` is then unchanged. A hit, and a file that cannot be opened, are logged at
// level 7.
int sta_get_ipaddr_by_dhcp_mac(char *out, const char *mac);

// The leased host name of `mac`, at most 64 characters, "*" included, possibly empty: to be freed with
// sta_free. Null when there is none. Logs the reason or the hit.
char *sta_get_name_by_dhcp_mac(const char *mac);

// Copies the snooped address of `mac` into `out` (16 bytes) and returns 0; otherwise -1, and `out` is unchanged. Runs
// a shell, if the walk has no copy of the table (inputs/snoop_copy).
int sta_get_ipaddr_by_snoop_mac(const char *mac, char *out);

// "-" in a 32-byte block, to be freed with sta_free; null when there is no memory.
char *sta_get_default_name(void);

// Calls `visit` with MAC and address of every snooped line on "br-lan", in file order.
void sta_snoop_foreach_lan(void (*visit)(const char *mac, const char *ip));
}

// While an object of this class lives, the lease file is read once, by the first look-up; later look-ups use that copy, and their
// cost does not grow with the file. A walk over the table holds one. Without memory, or with a file above 8 MiB, each look-up
// reads the file itself.
class sta_lease_snapshot {
public:
    struct file;

    sta_lease_snapshot() noexcept;

    // Of one event of several that come together: the copy is kept for the next, for as long as the file is the same.
    struct of_events {};
    explicit sta_lease_snapshot(of_events /*kind*/) noexcept;

    // Gives the kept copy back. To be called when the loop has handled what came together.
    static void forget_kept() noexcept;

    ~sta_lease_snapshot();
    sta_lease_snapshot(const sta_lease_snapshot &) = delete;
    sta_lease_snapshot &operator=(const sta_lease_snapshot &) = delete;

    // The copy in use now; null outside of walks.
    static file *shared() noexcept { return current; }

private:
    static file *make() noexcept;
    static void free(file *copy) noexcept;

    file *mine = nullptr; // null when an outer object has the copy
    static file *kept;
    static file *current;
};
