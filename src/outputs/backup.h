// backup.h - the files that let the table survive a restart of the daemon: writing their lines.
//
// Files:  "/tmp/sta_sta.info", one line per station (outputs/backup_line_of.h); "/tmp/sta_devc.info", one line of
//         device counters. Both are private to the daemon, and are in memory like "/tmp".
// Keys:   a line belongs to a MAC when it holds that text anywhere.
// Logs:   level 7; no failure changes the table in memory.
#pragma once

#include "model/record.h"

class sta_configuration;

inline constexpr const char *sta_backup_file = "/tmp/sta_sta.info";
inline constexpr const char *sta_backup_temporary_file =
    "/tmp/sta_sta_tmp.info"; // under which it is written anew

extern "C" {

// Appends the station's line. Before that a bridged station takes its address and name from the DHCP monitor
// list, spaces in the name become "-", and an empty name becomes "-": the record changes too (deliberate).
// Nothing is written for an empty MAC or a record flagged `no_backup`.
void sta_sta_users_backup_add(sta_info_t *sta);

// Removes every line that holds `mac`, and every line shorter than 36 characters. Null and empty are refused.
void sta_sta_users_backup_del(const char *mac);

// Removes the MAC's lines and appends the station's.
void sta_sta_users_backup_update(sta_info_t *sta);

// Loads the four device counters (the last line wins); a missing file is created empty.
void sta_sta_load_devc(void);

// Rewrites the device-counter file: four zeros and the online count.
void sta_sta_save_devc(void);
}

// While lines are held (true), removed lines stay in the file, each with a NUL as its first byte, and a restore skips them. They are
// taken out together when holding ends (false), when the file is needed, or when there are 64 of them. Used when several stations
// leave at once: held as long as another message waits. `more`, if given, is asked before the first line is held: if nothing
// waits, the line is taken out at once.
void sta_backup_hold(bool held, bool (*more)() noexcept = nullptr) noexcept;
bool sta_backup_holds_lines() noexcept;

// One walk over the table that rewrites or removes the lines of many stations: the same bytes and log lines as calling
// sta_sta_users_backup_update or sta_sta_users_backup_del for each, but the file is read once and replaced once, atomically.
class sta_backup_pass {
public:
    sta_backup_pass() = default;
    ~sta_backup_pass(); // writes the file
    sta_backup_pass(const sta_backup_pass &) = delete;
    sta_backup_pass &operator=(const sta_backup_pass &) = delete;

    void update(sta_info_t *sta, sta_configuration &configuration);
    void remove(const char *mac);

private:
    void remove(const char *mac, std::uint64_t number); // the MAC's, as backup_known has it
    bool is_open();                                     // its lines are known, or were read
    void close();
    bool read_instead(); // writes the changes so far, then reads the file, for a change that needs its text

    struct state;
    state *now = nullptr; // made by the first call
    bool single = false;  // without memory for the file: use the single operations
};
