// tables.h - the driver's station table: fetching one interface's table, copying one station's figures
// from it.
//
// Source: protocol/driver_request.h.   Logs: level 7.   Blocks: until the driver answers.
#pragma once

#include "model/record.h"
#include "tools/array.h"

class sta_configuration;

extern "C" {

// Fetches the table of `ifname` with the sections of `mask` (table_basic, table_extended). Returns the number
// of stations that the driver counts and stores the table at `table`: from the counting allocator, to be
// freed with sta_free. The table is null when there is none: count 0 or below, or a failing request, in which
// case the count is still returned. Callers check the table, not the count.
int sta_get_ioctl_stainfo(const sta_info_t *sta, std::uint8_t **table, const char *ifname, unsigned mask);

// Copies the figures of the entry whose MAC begins with the record's `mac` (the first such entry) into the
// record. `count` entries are searched. Returns 0, or 1 when the station is not listed (the record is then
// unchanged) or an argument is null.
int sta_sta_get_ioctl(sta_info_t *sta, const std::uint8_t *table, unsigned mask, int count);
}

// The driver's list for `ifname` with the sections of `mask`. False: it has not answered. True: `table` has
// `entries` filled entries, and space for as many as its count says; it is from the counting allocator, to be freed with sta_free,
// and null when there are none.
bool sta_driver_list(const char *ifname, unsigned mask, std::uint8_t **table,
                     std::uint32_t *entries) noexcept;

// The tables of both radios during one walk over the stations: each is fetched once, through the interface of
// the first station on its radio, even if that fails.
class sta_radio_tables {
public:
    static constexpr int radios = 2;

    sta_radio_tables(unsigned section_mask, sta_configuration &of_the_walk) noexcept
        : mask(section_mask), configuration(of_the_walk) {}
    ~sta_radio_tables();
    sta_radio_tables(const sta_radio_tables &) = delete;
    sta_radio_tables &operator=(const sta_radio_tables &) = delete;

    // Fetches the table of the station's radio unless that was done before. True when it was fetched now.
    bool fetch_for(const sta_info_t *sta) noexcept;
    // sta_sta_get_ioctl with the table of the station's radio; 1 for a radio other than 0 and 1.
    int update(sta_info_t *sta) noexcept;

    static bool has_radio(const sta_info_t *sta) noexcept {
        return sta->radio_id >= 0 && sta->radio_id < radios;
    }
    // The table and the count of the station's radio; it must have one.
    std::uint8_t *table_of(const sta_info_t *sta) const noexcept { return slots[sta->radio_id].table; }
    int count_of(const sta_info_t *sta) const noexcept { return slots[sta->radio_id].count; }
    // How many entries the driver has filled: never more than were asked for, whatever it claims. There must be a table.
    std::uint32_t entries_of(const sta_info_t *sta) const noexcept { return slots[sta->radio_id].entries; }

private:
    struct slot {
        bool tried = false;
        std::uint8_t *table = nullptr;
        int count = 0;
        std::uint32_t entries = 0;
        // The MACs of the table's entries, one after the other, and an index of them by hash: an entry's number, counted from 1,
        // stands at the hash of its MAC or in the next free place; of two entries with one MAC the first. Empty without memory.
        sta_array<std::uint64_t> macs;
        sta_array<std::uint32_t> homes;
        bool indexed =
            false; // when the first station is looked for: a pass looks for those only that are new
        void index() noexcept;
    };
    unsigned mask;
    sta_configuration &configuration; // says which VLAN a station is in
    slot slots[radios];
};
